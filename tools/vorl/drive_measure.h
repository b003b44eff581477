// The figures of "vorl measure" (and of the scene kit's evaluation): how much drive noise a processed recording
// lost during drives, and how much it changed outside them. Energies are
// sums of squared samples over both channels of the blocks concerned; a
// block is driven when its zoom or af word is non-zero.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "drive_words.h"

namespace vorl {

struct EnergySums {
    double noise = 0;      // E[noisy - clean]
    double residual = 0;   // E[processed - clean]
    double processed = 0;  // E[processed]
    double noisy = 0;      // E[noisy]
    double change = 0;     // E[processed - noisy]
    int64_t blocks = 0;
    EnergySums &operator+=(const EnergySums &o);
    double attenuation_db() const { return ratio_db(noise, residual); }       // positive: noise reduced
    double level_change_db() const { return ratio_db(processed, noisy); }
    double difference_db() const { return ratio_db(change, noisy); }          // distortion
    // 10 log10(num / den); a change too small to show at two decimals is 0.
    static double ratio_db(double num, double den);
};

struct DriveMeasure {
    EnergySums drives;   // driven blocks
    EnergySums outside;  // all other blocks
    EnergySums wind;     // not driven, wind word set
    DriveMeasure &operator+=(const DriveMeasure &o);
};

// Sums the energies of three time-aligned interleaved stereo recordings of
// `frames` frames in 256-frame blocks; words(b) gives the words of block b.
DriveMeasure measure_drives(const int16_t *clean, const int16_t *noisy, const int16_t *processed, std::size_t frames,
                            const std::function<DriveWords(std::size_t block)> &words);

}  // namespace vorl
