// Sample-rate conversion of interleaved stereo float audio with libsoxr
// (high quality), streamed: input in any amounts, output as it is ready.
#pragma once

#include <cstddef>
#include <vector>

struct soxr;

namespace vorl {

class Resampler {
public:
    Resampler(double from_rate, double to_rate);
    ~Resampler();
    Resampler(const Resampler &) = delete;
    Resampler &operator=(const Resampler &) = delete;

    // Converts `frames` frames and appends the output frames to `out`.
    void push(const float *in, std::size_t frames, std::vector<float> &out);
    // The input has ended: appends what the filter still holds.
    void finish(std::vector<float> &out);

private:
    void run(const float *in, std::size_t frames, std::vector<float> &out);
    soxr *soxr_ = nullptr;
    double ratio_;
};

}  // namespace vorl
