// vorl: lens-drive noise reduction for stereo recordings, from the shell.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "cli.h"
#include "commands.h"

namespace {

const char kHelp[] = R"(usage: vorl COMMAND [arguments] [options]

Removes lens-drive noise (zoom motor in both directions, autofocus, with a
wind allowance) from stereo recordings.

Commands:
  process IN OUT [options]       remove drive noise from a recording
  table new|dump|check|to-json|from-json ...
                                 create, inspect, check and convert tuning
                                 tables
  measure CLEAN NOISY PROCESSED --drive FILE
                                 measure noise attenuation and the change
                                 outside drives

"vorl COMMAND --help" describes a command and all its options.

Example:
  vorl process take1.wav take1-clean.wav --zoom-in 2-4.5 --zoom-out 7-8

Exit status: 0 success, 1 usage error, 2 input, output or table error.
)";

}  // namespace

int main(int argc, char **argv) {
    try {
        if (argc < 2) {
            std::fputs(kHelp, stderr);
            return vorl::cli::kExitUsage;
        }
        const std::string cmd = argv[1];
        if (cmd == "-h" || cmd == "--help" || cmd == "help") {
            std::fputs(kHelp, stdout);
            return vorl::cli::kExitOk;
        }
        if (cmd == "process") return vorl::run_process(argc, argv, 2);
        if (cmd == "table") return vorl::run_table(argc, argv, 2);
        if (cmd == "measure") return vorl::run_measure(argc, argv, 2);
        vorl::cli::usage_error("unknown command \"" + cmd + "\" (see: vorl --help)");
    } catch (const vorl::cli::Failure &f) {
        std::fprintf(stderr, "vorl: %s\n", f.what());
        return f.exit_code;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "vorl: %s\n", e.what());
        return vorl::cli::kExitInput;
    }
}
