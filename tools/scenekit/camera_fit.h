// The table "vorl table fit" makes for a camera from one of its generated
// calibration takes: how fitted tables are measured on held-out scenes.
#pragma once

#include <cstdint>

#include "vorl.h"

namespace scenekit {

// Fits `base` to camera `camera` from make_calibration(camera, seed), with
// the fitter's held-out search as the tool runs it. Throws
// vorl::fit::FitError if the take cannot give a table.
st_vorl_tbl fit_camera_table(int camera, uint64_t seed, const st_vorl_tbl &base);

}  // namespace scenekit
