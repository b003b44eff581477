#include "progress.h"

#include <cstdio>

#include <unistd.h>

namespace vorl {

namespace {
constexpr int kBarWidth = 30;
}

Progress::Progress(bool allowed, int64_t total_frames, int sample_rate)
    : shown_(allowed && isatty(STDERR_FILENO) && total_frames > 0),
      total_(total_frames),
      rate_(sample_rate > 0 ? sample_rate : 1),
      last_(std::chrono::steady_clock::now() - std::chrono::seconds(1)) {}

Progress::Progress(bool allowed, int64_t total_steps, const char *label) : Progress(allowed, total_steps, 1) {
    label_ = label;
}

void Progress::update(int64_t done) {
    if (!shown_ || done == last_done_) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - last_ < std::chrono::milliseconds(100) && done < total_) return;
    last_ = now;
    last_done_ = done;
    const double part = done >= total_ ? 1.0 : static_cast<double>(done) / static_cast<double>(total_);
    const int filled = static_cast<int>(part * kBarWidth);
    char bar[kBarWidth + 1];
    for (int i = 0; i < kBarWidth; ++i) bar[i] = i < filled ? '#' : '.';
    bar[kBarWidth] = '\0';
    if (label_)
        std::fprintf(stderr, "\r[%s] %3d%%  %s", bar, static_cast<int>(part * 100.0), label_);
    else
        std::fprintf(stderr, "\r[%s] %3d%%  %.1f / %.1f s", bar, static_cast<int>(part * 100.0),
                     static_cast<double>(done) / rate_, static_cast<double>(total_) / rate_);
    std::fflush(stderr);
}

void Progress::finish() {
    if (!shown_) return;
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
}

}  // namespace vorl
