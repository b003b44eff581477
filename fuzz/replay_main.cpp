// Replays inputs through a fuzz target's entry function without libFuzzer:
// each argument is a file or a folder of files (a missing folder is noted
// and skipped). A broken invariant or a memory error ends the program.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace fs = std::filesystem;

int main(int argc, char **argv) {
    // The dump goes to standard output; only failures matter here.
    if (std::freopen("/dev/null", "w", stdout) == nullptr) return 2;
    std::vector<fs::path> inputs;
    for (int a = 1; a < argc; ++a) {
        const fs::path arg(argv[a]);
        std::error_code ec;
        if (fs::is_directory(arg, ec)) {
            for (const auto &entry : fs::directory_iterator(arg))
                if (entry.is_regular_file()) inputs.push_back(entry.path());
        } else if (fs::is_regular_file(arg, ec)) {
            inputs.push_back(arg);
        } else {
            std::fprintf(stderr, "replay: %s: no such file or folder, skipped\n", argv[a]);
        }
    }
    std::sort(inputs.begin(), inputs.end());
    for (const fs::path &p : inputs) {
        std::ifstream in(p, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::fprintf(stderr, "replay: %s (%zu bytes)\n", p.c_str(), bytes.size());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    }
    std::fprintf(stderr, "replay: %zu inputs, no failure\n", inputs.size());
    return 0;
}
