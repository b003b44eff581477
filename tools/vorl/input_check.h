// Faults of a recording chain that the noise reducer cannot see and that
// change what it does, watched on the samples it is given:
// - a DC offset, which adds to every learning period's power, so no
//   reference is quiet and no drive looks like motor noise alone;
// - a channel in opposite polarity. Sound from afar reaches two capsules a
//   few centimetres apart nearly alike below 500 Hz, so between drives the
//   channels' correlation there is near 1; inverted, near -1, and then far
//   sound lands in the channel difference, which the engine takes for
//   motor noise during drives;
// - two identical channels (a mono recording copied to both), whose
//   difference, and so the zoom-noise estimate, is zero; or one silent
//   channel (a dead capsule), whose difference is the other channel itself,
//   all of it then taken for motor noise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vorl {

class InputCheck {
public:
    // `frames` interleaved stereo frames; `between_drives`: no drive, no
    // autofocus, no wind (where only the scene sounds); `zoom`: a zoom drive.
    void take(const int16_t *frames, std::size_t count, bool between_drives, bool zoom);

    double offset(int channel) const;  // mean sample value
    // Correlation of the channels from 94 to 470 Hz between drives; 0 when
    // that band held (next to) nothing.
    double low_band_correlation() const;
    // What to tell the user when that correlation shows one channel
    // inverted; empty otherwise.
    std::string polarity_warning() const;
    // What to tell the user when the channels are identical, or one is
    // silent, during the zoom drives; empty otherwise.
    std::string channels_warning() const;
    // Every warning above that applies.
    std::vector<std::string> warnings() const;

private:
    int64_t frames_ = 0, sum_[2] = {0, 0};
    double low_[2] = {0, 0}, high_[2] = {0, 0};  // band-pass state per channel
    double cross_ = 0, power_[2] = {0, 0};
    double zoom_power_[2] = {0, 0}, zoom_difference_ = 0;  // broadband, during zoom drives
};

}  // namespace vorl
