#include "resampler.h"

#include <soxr.h>

#include "cli.h"

namespace vorl {

Resampler::Resampler(double from_rate, double to_rate) : ratio_(to_rate / from_rate) {
    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    soxr_ = soxr_create(from_rate, to_rate, 2, &error, &io, &quality, nullptr);
    if (soxr_ == nullptr || error != nullptr)
        cli::input_error(std::string("cannot set up resampling: ") + (error ? error : "libsoxr failed"));
}

Resampler::~Resampler() { soxr_delete(soxr_); }

void Resampler::push(const float *in, std::size_t frames, std::vector<float> &out) {
    if (frames > 0) run(in, frames, out);
}

void Resampler::finish(std::vector<float> &out) { run(nullptr, 0, out); }

// A null `in` asks libsoxr to flush; it is called until it gives nothing.
void Resampler::run(const float *in, std::size_t frames, std::vector<float> &out) {
    std::size_t taken = 0;
    while (true) {
        const std::size_t room = static_cast<std::size_t>(static_cast<double>(frames - taken) * ratio_) + 1024;
        const std::size_t start = out.size();
        out.resize(start + 2 * room);
        std::size_t used = 0, made = 0;
        const soxr_error_t error = soxr_process(soxr_, in ? in + 2 * taken : nullptr, frames - taken, &used,
                                                out.data() + start, room, &made);
        if (error != nullptr) cli::input_error(std::string("resampling failed: ") + error);
        out.resize(start + 2 * made);
        taken += used;
        if (in != nullptr ? taken == frames : made == 0) return;
    }
}

}  // namespace vorl
