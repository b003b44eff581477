#include "table_store.h"

#include <cstring>

#include <unistd.h>

#include "cli.h"
#include "default_table.h"
#include "pending_file.h"
#include "table_json.h"
#include "table_rules.h"

namespace vorl {

namespace {

bool looks_like_json(const std::string &bytes) {
    const std::size_t first = bytes.find_first_not_of(" \t\r\n");
    return first != std::string::npos && bytes[first] == '{';
}

st_vorl_tbl table_of_bytes(const std::string &bytes, const std::string &path) {
    if (bytes.size() != VORL_TBL_SIZE && looks_like_json(bytes))
        cli::input_error(cli::input_name(path) + ": a table's JSON, not a table file; build the table with: vorl table from-json " +
                         path + " TABLE");
    if (bytes.size() != VORL_TBL_SIZE)
        cli::input_error(cli::input_name(path) + ": " + std::to_string(bytes.size()) + " bytes, a tuning table has " +
                         std::to_string(VORL_TBL_SIZE));
    st_vorl_tbl t;
    std::memcpy(&t, bytes.data(), sizeof t);
    return t;
}

st_vorl_tbl json_table_of(const std::string &text, const std::string &path) {
    try {
        return tablekit::table_from_json(text);
    } catch (const tablekit::JsonError &e) {
        cli::input_error(cli::input_name(path) + ": " + cli::excerpt(e.what(), 300));
    }
}

}  // namespace

st_vorl_tbl read_table(const std::string &path) {
    return table_of_bytes(read_file(path, "tuning table", 1 << 20), path);  // the size is checked there
}

st_vorl_tbl read_json_table(const std::string &path) { return json_table_of(read_file(path, "JSON table", 1 << 24), path); }

st_vorl_tbl read_table_or_json(const std::string &path) {
    const std::string bytes = read_file(path, "tuning table", 1 << 24);
    return looks_like_json(bytes) ? json_table_of(bytes, path) : table_of_bytes(bytes, path);
}

void check_table_destination(const std::string &path) {
    if (path == "-" && isatty(STDOUT_FILENO))
        cli::usage_error("standard output is a terminal; redirect it or name a table file");
}

void write_table(const std::string &path, const st_vorl_tbl &t) {
    check_table_destination(path);
    write_output(path, &t, sizeof t);
}

std::string broken_rules(const std::string &path, const st_vorl_tbl &t) {
    const auto broken = tablekit::check_table_rules(t);
    if (broken.empty()) return {};
    return cli::input_name(path) + ": " + tablekit::summarise(broken) + " (see: vorl table check " + path + ")";
}

st_vorl_tbl default_table() {
    static_assert(sizeof kDefaultTable == sizeof(st_vorl_tbl), "embedded table has the file's size");
    st_vorl_tbl t;
    std::memcpy(&t, kDefaultTable, sizeof t);
    return t;
}

}  // namespace vorl
