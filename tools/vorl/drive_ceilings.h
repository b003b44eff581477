// The two yardsticks of a drive-noise measurement, for recordings whose
// clean content is known (noise = noisy - clean), on the engine's framing
// (512-point sine-window frames, hop 256), acting on the frames that
// overlap a driven block (zoom or af word set); other frames pass.
// - The oracle: per channel and bin the Wiener gain |S|^2 / (|S|^2 + |N|^2)
//   of the true content S and noise N.
// - The reach of the engine's difference model: its gain rule
//   max(floor, 1 - oe z |L-R|^2 / P), smoothed over frames, where each bin's
//   coefficient z is the ideal one, the recording's own ratio of channel
//   noise power to the noise's difference power over its drive frames, and
//   oe and the smoothing are the best for the recording of 0.75-3 and 0 or
//   0.3. It knows the noise's spectrum but not its frames: the oracle's lead
//   over it is the model's, which no table can close; what lies between it
//   and a table is the table's.
// - The same reach with the content's own channel difference taken out
//   (`ContentDifference::ignored`: the rule reads the noise's difference
//   power alone, as if the content were alike in both channels). What it
//   gains over the reach is what the content's width costs the model; its
//   own distance to the oracle is what one frame's difference power cannot
//   tell of that frame's noise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "drive_measure.h"

namespace vorl {

using BlockWordsAt = std::function<DriveWords(std::size_t block)>;

// The oracle's output, time-aligned with `noisy` (interleaved stereo of
// `frames` frames).
std::vector<int16_t> oracle_output(const int16_t *clean, const int16_t *noisy, std::size_t frames,
                                   const BlockWordsAt &words);

// The difference the rule reads: the recording's (heard), or the noise's
// alone, as if the content were alike in both channels (ignored).
enum class ContentDifference { heard, ignored };

// The reach, measured as measure_drives() does (the best of its runs).
DriveMeasure difference_model_reach(const int16_t *clean, const int16_t *noisy, std::size_t frames,
                                    const BlockWordsAt &words, float floor, ContentDifference content);

}  // namespace vorl
