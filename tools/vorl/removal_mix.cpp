#include "removal_mix.h"

#include <algorithm>
#include <cmath>

namespace vorl {

RemovalMix::RemovalMix(double strength, std::size_t delay_frames)
    : strength_(static_cast<float>(strength)), held_(2 * delay_frames, 0) {}

void RemovalMix::take_input(const int16_t *in, std::size_t frames) { held_.insert(held_.end(), in, in + 2 * frames); }

void RemovalMix::apply(int16_t *out, int16_t *removed, std::size_t frames) {
    const std::size_t held = std::min(2 * frames, held_.size());
    for (std::size_t i = 0; i < 2 * frames; ++i) {
        const int in = i < held ? held_[i] : 0;  // after the input: the silence fed to the library
        // Strength 1 is the library's output itself, not a mix that equals
        // it; any mix of two 16-bit values stays within 16 bits.
        if (strength_ < 1.0f)
            out[i] = static_cast<int16_t>(std::lrint(static_cast<float>(in) + strength_ * static_cast<float>(out[i] - in)));
        if (removed != nullptr) removed[i] = static_cast<int16_t>(std::clamp(in - out[i], -32768, 32767));
    }
    held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(held));
}

}  // namespace vorl
