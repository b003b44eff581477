#include "video_files.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <unistd.h>

#include "audio_io.h"
#include "cli.h"
#include "pending_file.h"

namespace vorl {

namespace {

// The folder of the running program.
std::string program_dir() {
    std::vector<char> path(4096);
    const ssize_t n = readlink("/proc/self/exe", path.data(), path.size() - 1);
    if (n <= 0) return ".";
    const std::string exe(path.data(), static_cast<std::size_t>(n));
    const auto slash = exe.rfind('/');
    return slash == std::string::npos ? "." : exe.substr(0, slash);
}

}  // namespace
}  // namespace vorl

// Defined when the module's code is linked in whole (the Python module);
// the tool leaves it undefined and loads the module.
extern "C" const vorl::VideoModule *vorl_video_module() __attribute__((weak));

namespace vorl {
namespace {

// The module linked in, or else the one beside the program (a build tree)
// or where the installation puts it, relative to the program's folder;
// loaded once, when first needed. Input error naming what was tried when
// it cannot be loaded.
const VideoModule &video_module() {
    static const VideoModule *module = [] {
        if (vorl_video_module != nullptr) return vorl_video_module();
        const std::string dir = program_dir();
        std::string tried;
        for (const std::string &candidate : {dir + "/vorl_video.so", dir + "/" VORL_VIDEO_MODULE_FROM_BIN "/vorl_video.so"}) {
            if (!file_exists(candidate)) {
                tried += (tried.empty() ? "" : ", ") + candidate;
                continue;
            }
            void *handle = dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
            if (handle == nullptr) cli::input_error(std::string("cannot load the video module: ") + dlerror());
            using Entry = const VideoModule *(*)();
            const auto entry = reinterpret_cast<Entry>(dlsym(handle, "vorl_video_module"));
            const VideoModule *m = entry != nullptr ? entry() : nullptr;
            if (m == nullptr || m->interface != VideoModule::kInterface)
                cli::input_error(candidate + ": not the video module of this vorl (reinstall the tool)");
            return m;
        }
        cli::input_error("video files need the tool's video module (vorl_video.so), which is missing: looked for " +
                         tried);
        return static_cast<const VideoModule *>(nullptr);
    }();
    return *module;
}

}  // namespace

int64_t parse_bit_rate(const std::string &text) {
    char *end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || !(value > 0)) return 0;
    double scale = 1;
    if (*end == 'k' || *end == 'K') scale = 1e3, ++end;
    else if (*end == 'M' || *end == 'm') scale = 1e6, ++end;
    if (*end != '\0' || value * scale > 1e9) return 0;
    return static_cast<int64_t>(value * scale + 0.5);
}

bool is_video_container(const std::string &path) {
    const std::string ext = lower_extension(path);
    if (ext == "mp4" || ext == "m4v" || ext == "m4a" || ext == "mov" || ext == "mkv" || ext == "mka") return true;
    if (path == "-" || !file_exists(path) || format_for_extension(path) != 0) return false;
    return video_module().probe(path);
}

std::unique_ptr<SampleReader> open_video(const std::string &path) { return video_module().open_reader(path); }

std::unique_ptr<SampleWriter> open_video_output(const SampleReader &source, const std::string &destination,
                                                int sample_rate, const AudioEncoding &encoding) {
    return video_module().open_writer(source, destination, sample_rate, encoding);
}

}  // namespace vorl
