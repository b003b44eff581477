#include "removal_mix.h"

#include <algorithm>
#include <cmath>

namespace vorl {

RemovalMix::RemovalMix(double strength, std::size_t delay_frames)
    : strength_(static_cast<float>(strength)), held_(2 * delay_frames, 0) {}

void RemovalMix::take_input(const int16_t *in, std::size_t frames) { held_.insert(held_.end(), in, in + 2 * frames); }

void RemovalMix::apply(int16_t *out, int16_t *removed, std::size_t frames) {
    const std::size_t n = std::min(2 * frames, held_.size());
    const int16_t *in = held_.data();
    // Strength 1 is the library's output itself, not a mix that equals it.
    if (strength_ < 1.0f)
        for (std::size_t i = 0; i < n; ++i) {
            // A convex mix of two 16-bit values stays within 16 bits.
            const float mixed = static_cast<float>(in[i]) + strength_ * static_cast<float>(out[i] - in[i]);
            out[i] = static_cast<int16_t>(std::lrint(mixed));
        }
    if (removed != nullptr)
        for (std::size_t i = 0; i < n; ++i)
            removed[i] = static_cast<int16_t>(std::clamp(in[i] - out[i], -32768, 32767));
    held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(n));
}

}  // namespace vorl
