#include "camera_fit.h"

#include <algorithm>
#include <vector>

#include "fit_table.h"

namespace scenekit {

namespace {

st_vorl_tbl fit_recording(const std::vector<int16_t> &samples, const std::vector<DriveWords> &words,
                          const st_vorl_tbl &base) {
    vorl::fit::Take take;
    take.samples = samples.data();
    take.frames = samples.size() / 2;
    for (const DriveWords &w : words) take.words.push_back(vorl::fit::block_words(w));
    return vorl::fit::fit_table(take, base).table;
}

}  // namespace

st_vorl_tbl fit_camera_table(int camera, uint64_t seed, const st_vorl_tbl &base) {
    const Scene cal = make_calibration(camera, seed);
    return fit_recording(cal.noisy, cal.words, base);
}

st_vorl_tbl fit_noise_table(const Scene &scene, const st_vorl_tbl &base) {
    std::vector<int16_t> noise(scene.zoom.size());
    for (std::size_t i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<int16_t>(std::clamp(scene.zoom[i] + scene.af[i], -32768, 32767));
    return fit_recording(noise, scene.words, base);
}

}  // namespace scenekit
