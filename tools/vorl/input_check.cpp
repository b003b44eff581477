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

void InputCheck::take(const int16_t *frames, std::size_t count, bool between_drives, bool zoom) {
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
    if (!zoom) return;
    for (std::size_t n = 0; n < count; ++n) {  // broadband, for the channel checks
        const double left = frames[2 * n], right = frames[2 * n + 1];
        zoom_power_[0] += left * left;
        zoom_power_[1] += right * right;
        zoom_difference_ += (left - right) * (left - right);
    }
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

std::string InputCheck::channels_warning() const {
    const double both = zoom_power_[0] + zoom_power_[1];
    if (both == 0.0) return {};  // silence, or no zoom drive
    if (zoom_difference_ <= kSilentRatio * both)
        return "the two channels are identical during the zoom drives (a mono recording copied to both?): the "
               "zoom-noise estimate rests on their difference, so no zoom noise is removed";
    for (int c = 0; c < 2; ++c)
        if (zoom_power_[c] <= kSilentRatio * zoom_power_[1 - c])
            return std::string("the ") + (c == 0 ? "left" : "right") +
                   " channel is silent during the zoom drives (over 60 dB under the other; a dead capsule?): the "
                   "channels' difference is then the " + (c == 0 ? "right" : "left") +
                   " channel itself, and all its sound is taken for motor noise";
    return {};
}

std::vector<std::string> InputCheck::warnings() const {
    std::vector<std::string> found;
    for (std::string w : {polarity_warning(), channels_warning()})
        if (!w.empty()) found.push_back(std::move(w));
    return found;
}

}  // namespace vorl
