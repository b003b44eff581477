// Command-line plumbing shared by the commands: the two kinds of failure
// with their exit codes, and a small option parser in the style of sox and
// ffmpeg (options before or after the file names, --opt VALUE or --opt=VALUE).
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace vorl::cli {

// 3: the recording was processed, but the table learned from it failed the
// plausibility check and was not saved.
enum ExitCode { kExitOk = 0, kExitUsage = 1, kExitInput = 2, kExitLearningDiscarded = 3 };

// A failure with the exit code it ends the program with. The message names
// the file and the problem; main prefixes it with "vorl: ".
struct Failure : std::runtime_error {
    Failure(int code, const std::string &message) : std::runtime_error(message), exit_code(code) {}
    int exit_code;
};

[[noreturn]] void usage_error(const std::string &message);
[[noreturn]] void input_error(const std::string &message);

struct OptionDef {
    std::string name;        // long name without dashes, e.g. "table"
    bool takes_value = false;
    char short_name = 0;     // e.g. 'q' for -q
};

struct ParsedArgs {
    std::vector<std::string> positional;
    std::map<std::string, std::vector<std::string>> values;  // every occurrence
    bool help = false;

    bool has(const std::string &name) const { return values.count(name) != 0; }
    // The value of an option given at most once; "" if absent.
    std::string value(const std::string &name) const;
    const std::vector<std::string> &all(const std::string &name) const;
};

// Parses argv[first..argc). "-h"/"--help" set `help`; "--" ends the options.
// Unknown options and missing values are usage errors naming `command`.
ParsedArgs parse_args(int argc, char **argv, int first, const std::vector<OptionDef> &defs,
                      const std::string &command);

// Requires exactly `n` positional arguments, named in the error message.
void expect_positional(const ParsedArgs &args, std::size_t n, const std::string &command,
                       const std::string &synopsis);

// Warnings and notes go to stderr, prefixed like errors.
void warn(const std::string &message);

// How messages name an input: "standard input" for "-".
inline std::string input_name(const std::string &path) { return path == "-" ? "standard input" : path; }
// ... and an output: "standard output" for "-".
inline std::string output_name(const std::string &path) { return path == "-" ? "standard output" : path; }

// Usage error when more than one of `inputs` is "-": standard input can
// be read only once.
void one_standard_input(const std::vector<std::string> &inputs);

// A piece of an input file fit to quote in a message: bytes that are not
// printable ASCII shown as \xNN, cut after `limit` characters.
std::string excerpt(const std::string &text, std::size_t limit = 60);

// "; did you mean NAME?" for the known name nearest to a mistyped `word`
// (a slip of a letter or two, or a missing dash), "" when none is near.
std::string did_you_mean(const std::string &word, const std::vector<std::string> &known);

}  // namespace vorl::cli
