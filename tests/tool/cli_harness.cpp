#include "cli_harness.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <sndfile.h>
#include <sys/wait.h>

namespace vorl::test {

namespace fs = std::filesystem;

namespace {

std::string quote(const std::string &s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

}  // namespace

Sandbox::Sandbox() {
    std::string pattern = (fs::temp_directory_path() / "vorl-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot create a temporary folder");
    dir_ = pattern;
}

Sandbox::~Sandbox() {
    std::error_code ec;
    fs::remove_all(dir_, ec);
}

static const char *tool_path() {
    const char *tool = std::getenv("VORL_TOOL");
    if (tool == nullptr) throw std::runtime_error("VORL_TOOL is not set");
    return tool;
}

RunResult Sandbox::vorl(const std::vector<std::string> &args, long limit_kb) const {
    std::string line = "exec " + quote(tool_path());
    for (const auto &a : args) line += " " + quote(a);
    return shell(line, limit_kb);
}

RunResult Sandbox::shell(const std::string &line, long limit_kb) const {
    std::string cmd = "cd " + quote(dir_) + " && VORL=" + quote(tool_path()) + " && ";
    if (limit_kb > 0) cmd += "ulimit -f " + std::to_string(limit_kb * 2) + " && ";  // 512-byte units
    cmd += line;
    const std::string out = dir_ + "/../" + fs::path(dir_).filename().string() + ".out";
    const std::string err = dir_ + "/../" + fs::path(dir_).filename().string() + ".err";
    const int status = std::system(("(" + cmd + ") >" + quote(out) + " 2>" + quote(err) + " </dev/null").c_str());
    RunResult r{WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), read_bytes(out), read_bytes(err)};
    fs::remove(out);
    fs::remove(err);
    return r;
}

std::vector<std::string> Sandbox::files() const {
    std::vector<std::string> names;
    for (const auto &e : fs::directory_iterator(dir_)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

void write_audio(const std::string &path, int channels, int64_t frames, int rate, int format,
                 double (*value)(int64_t n, int c)) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SNDFILE *f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (f == nullptr) throw std::runtime_error(path + ": " + sf_strerror(nullptr));
    sf_command(f, SFC_SET_CLIPPING, nullptr, SF_FALSE);
    std::vector<double> data(static_cast<std::size_t>(frames * channels));
    for (int64_t n = 0; n < frames; ++n)
        for (int c = 0; c < channels; ++c) data[static_cast<std::size_t>(n * channels + c)] = value(n, c);
    sf_writef_double(f, data.data(), frames);
    sf_close(f);
}

std::vector<int16_t> read_audio(const std::string &path, int *channels, int *rate) {
    SF_INFO info{};
    SNDFILE *f = sf_open(path.c_str(), SFM_READ, &info);
    if (f == nullptr) throw std::runtime_error(path + ": " + sf_strerror(nullptr));
    // Through doubles: libsndfile's own conversion of float and compressed
    // formats to 16 bits either wraps or scales the file to its peak.
    std::vector<double> wide(static_cast<std::size_t>(info.frames * info.channels));
    wide.resize(static_cast<std::size_t>(sf_readf_double(f, wide.data(), info.frames) * info.channels));
    sf_close(f);
    std::vector<int16_t> data(wide.size());
    for (std::size_t i = 0; i < wide.size(); ++i)
        data[i] = static_cast<int16_t>(std::clamp(std::lround(wide[i] * 32768.0), -32768L, 32767L));
    if (channels != nullptr) *channels = info.channels;
    if (rate != nullptr) *rate = info.samplerate;
    return data;
}

std::string read_bytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

void write_bytes(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace vorl::test
