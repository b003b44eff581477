// What the learning step's two tests made of a run's measuring periods, so
// that a run that learned nothing can say why. The library keeps no such
// count: the tally follows its block driver from outside, predicting from
// the workspace before each block whether that block ends a period, and
// reading the test's verdict (and its error ratio, dval) after it.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "vorl.h"

namespace vorl {

struct LearningTally {
    uint32_t drive_periods = 0, drive_passed = 0;  // zoom-drive periods; those passing the motor-noise test
    uint32_t drive_in_wind = 0;                    // drive periods with the wind word set
    uint32_t quiet_periods = 0, quiet_passed = 0;  // reference periods outside drives; those passing
    uint32_t zero_rate = 0;  // passing drive periods after a passing reference that learned at rate 0
    // Error ratios of the failing drive periods without wind (low > high: none).
    float failed_low = std::numeric_limits<float>::infinity(), failed_high = -failed_low;

    // One block through VORLEnterLibrary (drive words and input already
    // handed over), counting the learning test it ends, if any.
    void enter(VORLResource *res);

    // Every drive period outside wind failed the motor-noise test.
    bool motor_test_failed() const { return drive_passed == 0 && drive_in_wind < drive_periods; }

    // Why nothing was learned, in words naming the table's fields (after a
    // run with no update).
    std::string why_nothing(const st_vorl &p) const;
};

}  // namespace vorl
