// Tuning tables as files: strict reading, atomic writing, and the default
// table embedded in the tool at build time.
#pragma once

#include <string>

#include "vorl.h"

namespace vorl {

// Reads a table file; input error unless it holds exactly 4184 bytes.
st_vorl_tbl read_table(const std::string &path);
// A table's JSON (vorl table to-json, either form), parsed and sealed;
// input error naming the file and the field at fault.
st_vorl_tbl read_json_table(const std::string &path);
// A table file, or a table's JSON (vorl table to-json, either form; sealed),
// told apart by its first character, "{"; for comparing, not for the engine.
st_vorl_tbl read_table_or_json(const std::string &path);

// Usage error for a table bound for standard output ("-") when that is a
// terminal: a table is binary.
void check_table_destination(const std::string &path);

// Writes a table atomically (temporary file beside it, then rename), or
// to standard output for "-" (checked as above).
void write_table(const std::string &path, const st_vorl_tbl &t);

// Empty when the table keeps every table rule; otherwise a message naming
// the file (or standard input), the number of broken rules and the first.
std::string broken_rules(const std::string &path, const st_vorl_tbl &t);

// The default table built from data/default_table.json.
st_vorl_tbl default_table();

}  // namespace vorl
