// Runs scenes through the library exactly as "vorl process" does (public
// host interface, time-aligned output) and through an oracle that knows the
// true noise, and measures both with the figures of "vorl measure".
#pragma once

#include <string>
#include <vector>

#include "drive_measure.h"
#include "scene.h"
#include "vorl.h"

namespace scenekit {

// One library instance per call (the tool's host session, autofocus words
// switching the "AF" template when any is set, as in "vorl process");
// `words[b]` goes with input block b (blocks past the end are idle); the
// session is primed with the recording's start unless `prime` is false.
// Returns the output time-aligned with `in`, of its length.
Pcm run_library(const st_vorl_tbl &table, const Pcm &in, const std::vector<DriveWords> &words, bool prime = true);

// The oracle: per channel and bin the Wiener gain |S|^2 / (|S|^2 + |N|^2) of
// the true content S and noise N (noisy - clean), on the engine's framing
// (512-point sine-window frames, hop 256), applied to the noisy frames that
// overlap a driven block of `words`, overlap-added; other frames pass.
Pcm oracle(const Scene &scene, const std::vector<DriveWords> &words);

using vorl::DriveMeasure;
using vorl::EnergySums;

// How far a table can reach with the engine's difference model on this
// scene: its gain rule max(floor, 1 - oe z |L-R|^2 / P), smoothed over
// frames, where each bin's coefficient z is the ideal one, the scene's own
// ratio of channel noise power to the noise's difference power over its
// drive frames, and oe and the smoothing are the best for the scene of
// 0.75-3 and 0 or 0.3. On the oracle's framing and frames; measured as
// "vorl measure" does. It knows the noise's spectrum but not its frames: the
// distance from the oracle is the model's, the distance to it the table's.
DriveMeasure model_ceiling(const Scene &scene, float floor);

struct SceneResult {
    DriveMeasure library, oracle;
};

// Both runs on one scene; the library gets `words` (the true words or a
// detector's), the measurement and the oracle use the scene's true words.
SceneResult evaluate(const Scene &scene, const st_vorl_tbl &table, const std::vector<DriveWords> &words,
                     bool prime = true);

}  // namespace scenekit
