#include "input_check.h"

#include <cmath>
#include <cstdio>

#include "recording_faults.h"

namespace vorl {

namespace {
constexpr double kPi = 3.14159265358979323846;
// One-pole low-passes at 470 Hz and 94 Hz at 48 kHz; their difference is
// the band between.
const double kUpper = 1.0 - std::exp(-2.0 * kPi * 470.0 / 48000.0);
const double kLower = 1.0 - std::exp(-2.0 * kPi * 94.0 / 48000.0);
// Under this mean band power per sample (about -80 dBFS) the band is
// rounding and self-noise, too little to judge by.
constexpr double kLeastPower = 1.0;
}  // namespace

void InputCheck::take(const int16_t *frames, std::size_t count, bool between_drives) {
    for (std::size_t n = 0; n < count; ++n) {
        double band[2];
        for (int c = 0; c < 2; ++c) {
            const int16_t x = frames[2 * n + c];
            sum_[c] += x;
            low_[c] += kUpper * (x - low_[c]);
            high_[c] += kLower * (x - high_[c]);
            band[c] = low_[c] - high_[c];
        }
        if (!between_drives) continue;
        cross_ += band[0] * band[1];
        power_[0] += band[0] * band[0];
        power_[1] += band[1] * band[1];
    }
    frames_ += static_cast<int64_t>(count);
}

double InputCheck::offset(int channel) const {
    return frames_ > 0 ? static_cast<double>(sum_[channel]) / static_cast<double>(frames_) : 0.0;
}

double InputCheck::low_band_correlation() const {
    if (frames_ == 0 || power_[0] < kLeastPower * static_cast<double>(frames_) ||
        power_[1] < kLeastPower * static_cast<double>(frames_))
        return 0.0;
    return cross_ / std::sqrt(power_[0] * power_[1]);
}

std::string InputCheck::polarity_warning() const {
    const double c = low_band_correlation();
    if (c >= kInvertedCorrelation) return {};
    char m[240];
    std::snprintf(m, sizeof m,
                  "the channels are in opposite polarity below 470 Hz between drives (correlation %.2f): one seems "
                  "inverted, and then far sound reads as motor noise during drives; check the recording chain",
                  c);
    return m;
}

}  // namespace vorl
