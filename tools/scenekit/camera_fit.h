// The tables "vorl table fit" makes from generated recordings: how fitted
// tables are measured on held-out scenes, and the best a fit can know.
#pragma once

#include <cstdint>

#include "scene.h"
#include "vorl.h"

namespace scenekit {

// Fits `base` to camera `camera` from make_calibration(camera, seed), with
// the fitter's held-out search as the tool runs it. Throws
// vorl::fit::FitError if the take cannot give a table.
st_vorl_tbl fit_camera_table(int camera, uint64_t seed, const st_vorl_tbl &base);

// Fits `base` to the scene's own drive noise (its zoom and autofocus
// components alone, with its true drive words): a table made from the very
// noise it will meet, as if the calibration take were the scene's drives.
st_vorl_tbl fit_noise_table(const Scene &scene, const st_vorl_tbl &base);

}  // namespace scenekit
