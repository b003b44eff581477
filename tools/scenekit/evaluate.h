// Runs scenes through the library exactly as "vorl process" does (public
// host interface, time-aligned output) and through an oracle that knows the
// true noise, and measures both with the figures of "vorl measure".
#pragma once

#include <string>
#include <vector>

#include "drive_ceilings.h"
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
// the true content S and noise N (noisy - clean), on the engine's framing,
// applied to the noisy frames that overlap a driven block of `words`
// (vorl::oracle_output, drive_ceilings.h).
Pcm oracle(const Scene &scene, const std::vector<DriveWords> &words);

using vorl::DriveMeasure;
using vorl::EnergySums;

// The reach of the engine's difference model on the scene, at `floor`
// (vorl::difference_model_reach, drive_ceilings.h): what the best table
// could do, short of knowing the noise frame by frame.
DriveMeasure model_ceiling(const Scene &scene, float floor,
                           vorl::ContentDifference content = vorl::ContentDifference::heard);

struct SceneResult {
    DriveMeasure library, oracle;
};

// Both runs on one scene; the library gets `words` (the true words or a
// detector's), the measurement and the oracle use the scene's true words.
SceneResult evaluate(const Scene &scene, const st_vorl_tbl &table, const std::vector<DriveWords> &words,
                     bool prime = true);

}  // namespace scenekit
