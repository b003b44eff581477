#include "camera_fit.h"

#include "fit_table.h"
#include "scene.h"

namespace scenekit {

st_vorl_tbl fit_camera_table(int camera, uint64_t seed, const st_vorl_tbl &base) {
    const Scene cal = make_calibration(camera, seed);
    vorl::fit::Take take;
    take.samples = cal.noisy.data();
    take.frames = cal.frames();
    for (const DriveWords &w : cal.words) take.words.push_back(vorl::fit::block_words(w));
    return vorl::fit::fit_table(take, base).table;
}

}  // namespace scenekit
