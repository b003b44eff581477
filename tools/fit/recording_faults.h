// Limits for faults of a recording chain that the fit and the tool's
// processing both look for, so that the two judge a recording alike.
#pragma once

namespace vorl {

// A channel's mean sample value from this on (0.1 % of full scale) is a DC
// offset worth taking out or naming; below, it is harmless.
constexpr long kNoticeableOffset = 33;
// Far sound reaches two capsules a few centimetres apart nearly alike below
// 500 Hz, so the channels' correlation there is near 1 (0.95-1 in every kit
// room and scene); below this, one channel is inverted.
constexpr double kInvertedCorrelation = -0.5;
// The engine's zoom-noise estimate is a channel's share of the channels'
// difference. A difference, or one channel, this far (60 dB) under the
// channels' power during zoom drives leaves it nothing to work with (two
// identical channels) or only the other channel itself (a dead capsule).
constexpr double kSilentRatio = 1e-6;

}  // namespace vorl
