// A progress bar on the standard error stream, shown only when that is a
// terminal, so logs and pipes stay clean.
#pragma once

#include <chrono>
#include <cstdint>

namespace vorl {

class Progress {
public:
    Progress(bool allowed, int64_t total_frames, int sample_rate);  // shows seconds done
    Progress(bool allowed, int64_t total_steps, const char *label);  // shows the label
    void update(int64_t done_frames);  // redraws at most ten times a second
    void finish();                     // clears the bar

private:
    bool shown_;
    int64_t total_, last_done_ = -1;
    double rate_;
    const char *label_ = nullptr;
    std::chrono::steady_clock::time_point last_;
};

}  // namespace vorl
