// Running the built vorl binary on files in a private temporary folder.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vorl::test {

struct RunResult {
    int exit_code;
    std::string out, err;
};

class Sandbox {
public:
    Sandbox();   // a fresh folder under $TMPDIR or /tmp
    ~Sandbox();  // removes it with everything in it
    Sandbox(const Sandbox &) = delete;
    Sandbox &operator=(const Sandbox &) = delete;

    std::string path(const std::string &name) const { return dir_ + "/" + name; }
    // Runs the tool (path from $VORL_TOOL) with `args`; `limit_kb` > 0
    // caps the size of any file it writes (ulimit -f).
    RunResult vorl(const std::vector<std::string> &args, long limit_kb = 0) const;
    // Runs a shell command line in the folder, with $VORL naming the tool
    // (for pipes and redirections).
    RunResult shell(const std::string &line, long limit_kb = 0) const;
    // Names of the files in the folder, sorted.
    std::vector<std::string> files() const;

private:
    std::string dir_;
};

// Writes a WAV (or other libsndfile format by `format`) of `frames` frames;
// sample value of channel c at frame n from `value(n, c)` in -1..1.
void write_audio(const std::string &path, int channels, int64_t frames, int rate, int format,
                 double (*value)(int64_t n, int c));

// Reads interleaved 16-bit samples; channels and rate through the pointers.
std::vector<int16_t> read_audio(const std::string &path, int *channels = nullptr, int *rate = nullptr);

std::string read_bytes(const std::string &path);
void write_bytes(const std::string &path, const std::string &bytes);

}  // namespace vorl::test
