// How well a table does on drives it was not fitted on: a known probe
// scene (speech-like noise, a little wider than mono) is added to the take,
// the sum runs through the library, and the error against the probe over
// the held-out drives is compared with the motor noise there:
//   score = 10 log10( sum (in - probe)^2 / sum (out - probe)^2 )  [dB]
// over the blocks of the held-out drives: the noise attenuation "vorl
// measure" reports, on a scene whose clean sound is known. It is the
// mean-squared-error criterion the oracle's Wiener gain optimises: removing
// motor noise raises it, taking away the scene lowers it. The score is the
// mean over three probe levels: 10 dB under the motor, equal, 10 dB over.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "take_analysis.h"
#include "vorl.h"

namespace vorl::fit {

class HeldOutScore {
public:
    // `scored[b]`: block b belongs to a held-out drive; the probe levels are
    // set against the motor's over those blocks.
    HeldOutScore(const Take &take, std::vector<bool> scored, std::function<void()> after_each = {});

    // The score of `table` run over the take with `words`.
    double operator()(const st_vorl_tbl &table, const std::vector<BlockWords> &words) const;

private:
    const Take &take_;
    std::vector<bool> scored_;
    std::function<void()> after_each_;
    struct Mix {
        std::vector<int16_t> mixed;  // take + probe, saturated
        std::vector<float> probe;    // what the mixed take holds beyond the take
    };
    std::vector<Mix> mixes_;
};

}  // namespace vorl::fit
