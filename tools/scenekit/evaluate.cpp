#include "evaluate.h"

#include <cstring>

#include "drive_ceilings.h"
#include "host_session.h"

namespace scenekit {

Pcm run_library(const st_vorl_tbl &table, const Pcm &in, const std::vector<DriveWords> &words, bool prime) {
    vorl::HostSession session(table, "evaluated table");
    for (const DriveWords &w : words)
        if (w.af != 0) {
            session.follow_autofocus_word();
            break;
        }
    const std::size_t frames = in.size() / 2, delay = VORL_DELAY_FRAMES;
    if (prime) session.prime(in.data(), frames, words.empty() ? DriveWords{} : words[0]);  // as vorl process does
    const std::size_t blocks = (frames + kBlock - 1) / kBlock + delay / kBlock;
    Pcm out(in.size());
    int16_t block_in[2 * kBlock], block_out[2 * kBlock];
    for (std::size_t b = 0; b < blocks; ++b) {
        for (std::size_t i = 0; i < 2 * kBlock; ++i) block_in[i] = 2 * b * kBlock + i < in.size() ? in[2 * b * kBlock + i] : 0;
        session.process(block_in, block_out, b < words.size() ? words[b] : DriveWords{});
        for (std::size_t i = 0; i < kBlock; ++i) {  // output frame b*256+i is input frame b*256+i-768
            const std::size_t n = b * kBlock + i;
            if (n >= delay && n - delay < frames) std::memcpy(&out[2 * (n - delay)], &block_out[2 * i], 2 * sizeof(int16_t));
        }
    }
    return out;
}

Pcm oracle(const Scene &scene, const std::vector<DriveWords> &words) {
    return vorl::oracle_output(scene.clean.data(), scene.noisy.data(), scene.frames(),
                               [&](std::size_t b) { return b < words.size() ? words[b] : DriveWords{}; });
}

DriveMeasure model_ceiling(const Scene &scene, float floor, vorl::ContentDifference content) {
    return vorl::difference_model_reach(
        scene.clean.data(), scene.noisy.data(), scene.frames(),
        [&](std::size_t b) { return b < scene.words.size() ? scene.words[b] : DriveWords{}; }, floor, content);
}

SceneResult evaluate(const Scene &scene, const st_vorl_tbl &table, const std::vector<DriveWords> &words,
                     bool prime) {
    const Pcm processed = run_library(table, scene.noisy, words, prime);
    const Pcm ideal = oracle(scene, scene.words);
    auto truth = [&](std::size_t b) { return b < scene.words.size() ? scene.words[b] : DriveWords{}; };
    return {vorl::measure_drives(scene.clean.data(), scene.noisy.data(), processed.data(), scene.frames(), truth),
            vorl::measure_drives(scene.clean.data(), scene.noisy.data(), ideal.data(), scene.frames(), truth)};
}

}  // namespace scenekit
