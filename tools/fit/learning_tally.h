// What the learning step's two tests made of a run's measuring periods, so
// that a run that learned nothing can say why. The library keeps no such
// count: the tally follows its block driver from outside, predicting from
// the workspace before each block whether that block ends a period, and
// reading the test's verdict (and its error ratio, dval) after it.
#pragma once

#include <cstdint>
#include <string>

#include "vorl.h"

namespace vorl {

struct LearningTally {
    uint32_t drive_periods = 0, drive_passed = 0;  // zoom-drive periods; those passing the motor-noise test
    uint32_t drive_in_wind = 0;                    // drive periods with the wind word set
    uint32_t quiet_periods = 0, quiet_passed = 0;  // reference periods outside drives; those passing
    uint32_t zero_rate = 0;      // passing drive periods after a passing reference that learned at rate 0
    float failed_low = 0.0f, failed_high = 0.0f;  // error ratios of the failing drive periods without wind

    // Before a block: which test (if any) the block's post stage will run,
    // with `zoom` the drive word handed in with it.
    enum class Test { none, drive, quiet };
    static Test upcoming(const st_vorl_ws &ws, uint32_t zoom);

    // After that block: counts its test's verdict. `learned` says whether
    // the block applied a learning update; `wind` whether its wind word was set.
    void count(Test test, const st_vorl_ws &ws, bool learned, bool wind);

    // Why nothing was learned, in words naming the table's fields (after a
    // run with no update); empty when the tally has no reason to give.
    std::string why_nothing(const st_vorl &p) const;
};

}  // namespace vorl
