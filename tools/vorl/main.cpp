// vorl: lens-drive noise reduction for stereo recordings, from the shell.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "vorl.h"

namespace {

struct Command {
    const char *group;  // "" for a top-level command, else e.g. "table"
    const char *name;
    const char *synopsis;
    const char *summary;
    int (*run)(int argc, char **argv, int first);
};

// Every command, in the order "vorl --help" lists them. A new command is one
// line here.
const Command kCommands[] = {
    {"", "process", "IN OUT [options]", "remove drive noise from a recording", vorl::run_process},
    {"", "measure", "CLEAN NOISY PROCESSED --drive FILE",
     "noise attenuation and change outside drives", vorl::run_measure},
    {"", "report", "IN [options] DIR", "PNG pictures of what was removed, the gains and the table", vorl::run_report},
    {"table", "new", "OUT", "write the built-in default table to OUT", vorl::run_table_new},
    {"table", "dump", "FILE", "print the parameters as the library does", vorl::run_table_dump},
    {"table", "check", "FILE", "check every rule a usable table keeps", vorl::run_table_check},
    {"table", "to-json", "FILE", "print the table as JSON", vorl::run_table_to_json},
    {"table", "from-json", "JSON OUT", "build a table from JSON (- for stdin)", vorl::run_table_from_json},
    {"table", "fit", "CAL_AUDIO --drive FILE -o OUT", "fit a table to a camera from a calibration take",
     vorl::run_table_fit},
    {"table", "diff", "A B", "what changed between two tables, band by band", vorl::run_table_diff},
};

// Groups of commands ("vorl table new", ...) with the text "vorl GROUP
// --help" shows.
struct Group {
    const char *name;
    const char *help;
};
const Group kGroups[] = {{"table", vorl::kTableHelp}};

void print_commands(std::FILE *to, const std::string &group) {
    for (const Command &c : kCommands) {
        if (group != c.group) continue;
        const std::string head = (*c.group ? std::string(c.group) + " " : std::string()) + c.name + " " + c.synopsis;
        if (head.size() <= 26)
            std::fprintf(to, "  %-26s %s\n", head.c_str(), c.summary);
        else
            std::fprintf(to, "  %s\n  %-26s %s\n", head.c_str(), "", c.summary);
    }
}

void print_help(std::FILE *to) {
    std::fputs("usage: vorl COMMAND [arguments] [options]\n\n"
               "Removes lens-drive noise (zoom motor in both directions, autofocus, with a\n"
               "wind allowance) from stereo recordings.\n\nCommands:\n",
               to);
    print_commands(to, "");
    for (const Group &g : kGroups) print_commands(to, g.name);
    std::fputs("\n\"vorl COMMAND --help\" describes a command and all its options;\n"
               "\"vorl --version\" prints the tool's and the library's version.\n\n"
               "Example:\n  vorl process take1.wav take1-clean.wav --zoom-in 2-4.5 --zoom-out 7-8\n\n"
               "Exit status: 0 success, 1 usage error, 2 input, output or table error,\n"
               "3 the recording was processed but the learned table was discarded.\n",
               to);
}

// The tool's version (the headers it was built with) and the library's.
void print_version() {
    const uint32_t lib = VORLGetVersion();
    std::printf("vorl %d.%d.%d (libvorl %u.%u.%u)\n", VORL_VERSION_MAJOR, VORL_VERSION_MINOR, VORL_VERSION_PATCH,
                (lib >> 16) & 0xffu, (lib >> 8) & 0xffu, lib & 0xffu);
}

bool is_help(const std::string &arg) { return arg == "-h" || arg == "--help" || arg == "help"; }

int dispatch(int argc, char **argv) {
    if (argc < 2) {
        print_help(stderr);
        return vorl::cli::kExitUsage;
    }
    const std::string word = argv[1];
    if (is_help(word)) {
        print_help(stdout);
        return vorl::cli::kExitOk;
    }
    if (word == "--version") {
        print_version();
        return vorl::cli::kExitOk;
    }
    for (const Command &c : kCommands)
        if (*c.group == '\0' && word == c.name) return c.run(argc, argv, 2);
    const Group *group = nullptr;
    for (const Group &g : kGroups)
        if (word == g.name) group = &g;
    if (group == nullptr) {
        std::vector<std::string> known;
        for (const Command &c : kCommands) known.push_back(*c.group ? c.group : c.name);
        vorl::cli::usage_error("unknown command \"" + word + "\"" + vorl::cli::did_you_mean(word, known) +
                               " (see: vorl --help)");
    }

    const std::string sub = argc > 2 ? argv[2] : "";
    for (const Command &c : kCommands)
        if (word == c.group && sub == c.name) return c.run(argc, argv, 3);
    if (is_help(sub)) {
        std::fputs(group->help, stdout);
        return vorl::cli::kExitOk;
    }
    if (sub.empty()) {
        std::fprintf(stderr, "vorl: missing %s command; usage:\n", word.c_str());
        print_commands(stderr, word);
        return vorl::cli::kExitUsage;
    }
    std::vector<std::string> known;
    for (const Command &c : kCommands)
        if (word == c.group) known.push_back(c.name);
    vorl::cli::usage_error("unknown " + word + " command \"" + sub + "\"" + vorl::cli::did_you_mean(sub, known) +
                           " (see: vorl " + word + " --help)");
}

}  // namespace

int main(int argc, char **argv) {
    try {
        const int status = dispatch(argc, argv);
        // Standard output is a result too: a full disk must not pass as success.
        if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
            std::fprintf(stderr, "vorl: standard output: write failed: %s\n", std::strerror(errno));
            return vorl::cli::kExitInput;
        }
        return status;
    } catch (const vorl::cli::Failure &f) {
        std::fprintf(stderr, "vorl: %s\n", f.what());
        return f.exit_code;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "vorl: %s\n", e.what());
        return vorl::cli::kExitInput;
    }
}
