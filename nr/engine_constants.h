// Dimensions and fixed coefficients of the noise-reduction engine, shared by
// its stages (nr/), the table check (table/) and the pulse filter (pulse/).
#pragma once

#include <cstdint>

namespace vorl {

constexpr int kBins = 256;       // frequency bins 0..255 of a 512-sample frame
constexpr int kBinGroups = 65;   // curve groups: bin 0, then bins 4g-3..4g
constexpr int kBands = 72;       // zoom-noise bands, ending at zspec_comp_base_bin
constexpr int kFitPoints = 48;   // fit tests compare spectra at odd bins 1..95

// Taps of the 3-tap (2/3, 1, 2/3) and 5-tap (1/3, 2/3, 1, 2/3, 1/3) smoothers.
constexpr float kOneThird = 0.33333334f;
constexpr float kTwoThirds = 0.6666667f;
// One over the 3-tap weight sum: 1 / (1 + 2/3 + 2/3) = 3/7.
constexpr float kThreeTapNorm = 0.42857143f;

// Curve group of bin i: 0 for bin 0, g for bins 4g-3..4g.
inline int bin_group(int i) { return (i + 3) / 4; }

// Channels a stage works on: the count, at most the two the records hold.
// The instance carries two counts, both set from the block settings: the
// block driver's transforms follow ch_num, which it hands on with
// frame_size as the settings describe the frames; the stages that keep
// per-channel state (core, pulse filter, table check) follow ch_num_proc,
// the instance's own count, so a host driving the stages can narrow them
// without touching the settings.
inline int stage_channels(int32_t count) { return count > 2 ? 2 : count; }

}  // namespace vorl
