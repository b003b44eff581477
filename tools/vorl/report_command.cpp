// vorl report: the report pictures, drawn by the Python module (vorl.report,
// matplotlib). The tool finds the module beside itself, installed or in the
// build tree, and hands the command line over to it.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"

namespace vorl {

namespace {

#if defined(VORL_PYTHON_EXECUTABLE)
bool has_module(const std::string &dir) { return access((dir + "/vorl/report.py").c_str(), R_OK) == 0; }

// Where the vorl package is: PREFIX/<site folder> for an installed tool
// (PREFIX/bin/vorl), else the build tree's staging folder.
std::string module_dir() {
    std::vector<char> exe(4096);
    const ssize_t n = readlink("/proc/self/exe", exe.data(), exe.size() - 1);
    if (n > 0) {
        std::string bin(exe.data(), static_cast<std::size_t>(n));
        bin.erase(bin.rfind('/'));
        const std::string installed = bin + "/../" VORL_PYTHON_INSTALL_DIR;
        if (has_module(installed)) return installed;
    }
    if (has_module(VORL_PYTHON_STAGE)) return VORL_PYTHON_STAGE;
    cli::input_error("report: the Python module vorl is not installed beside this vorl (cmake --install)");
}
#endif

}  // namespace

int run_report(int argc, char **argv, int first) {
#if defined(VORL_PYTHON_EXECUTABLE)
    std::string path = module_dir();
    if (const char *old = std::getenv("PYTHONPATH"); old != nullptr && *old != '\0') path += std::string(":") + old;
    setenv("PYTHONPATH", path.c_str(), 1);
    std::vector<char *> args = {const_cast<char *>(VORL_PYTHON_EXECUTABLE), const_cast<char *>("-m"),
                                const_cast<char *>("vorl.report")};
    for (int i = first; i < argc; ++i) args.push_back(argv[i]);
    args.push_back(nullptr);
    execv(VORL_PYTHON_EXECUTABLE, args.data());
    cli::input_error(std::string("report: cannot run " VORL_PYTHON_EXECUTABLE ": ") + std::strerror(errno));
#else
    for (int i = first; i < argc; ++i)
        if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) {
            std::fputs("usage: vorl report IN [--processed OUT] [--drive FILE | --zoom-in R ...] [--table T]\n"
                       "                   [--section RANGE] [--no-resample] DIR\n\n"
                       "Draws report pictures (spectrograms, removed noise, suppression gain, the\n"
                       "table's curves) into DIR. This vorl was built without the Python module\n"
                       "that draws them (pybind11-dev, python3-dev, python3-numpy,\n"
                       "python3-matplotlib), so the command is not available.\n",
                       stdout);
            return cli::kExitOk;
        }
    cli::input_error("report: this vorl was built without the Python module (needs pybind11-dev, python3-dev, "
                     "python3-numpy, python3-matplotlib)");
#endif
}

}  // namespace vorl
