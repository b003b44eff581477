#include "learning_tally.h"

#include <cstdio>

namespace vorl {

namespace {

std::string format(const char *fmt, double a, double b = 0.0, double c = 0.0) {
    char buf[256];
    std::snprintf(buf, sizeof buf, fmt, a, b, c);
    return buf;
}

}  // namespace

// Mirrors the block driver: a drive edge restarts the period count (the
// opening blocks of a drive, or a reference period), then the count goes
// down by one, and the post stage acts when it reaches 0.
LearningTally::Test LearningTally::upcoming(const st_vorl_ws &ws, uint32_t zoom) {
    const st_vorl &p = ws.st_vorl_work;
    const bool driving = (zoom & 0xFFu) != 0, was_driving = (ws.zoom_prev & 0xFFu) != 0;
    int32_t count = ws.blk_cnt;
    uint8_t phase = ws.learn_phase;
    if (driving && !was_driving) {
        count = p.i_block_counter;
        phase = VORL_LEARN_DRIVE_STARTED;
    } else if (!driving && was_driving) {
        count = p.nz_block_counter;
        phase = VORL_LEARN_IDLE;
    }
    if (static_cast<uint32_t>(count) - 1u != 0u) return Test::none;
    if (phase == VORL_LEARN_DRIVE_RUNNING) return Test::drive;
    if (phase == VORL_LEARN_IDLE) return Test::quiet;
    return Test::none;  // the drive's opening blocks are over; measuring starts
}

void LearningTally::count(Test test, const st_vorl_ws &ws, bool learned, bool wind) {
    if (test == Test::quiet) {
        ++quiet_periods;
        quiet_passed += ws.fit_ok_nz != 0 ? 1u : 0u;
        return;
    }
    if (test != Test::drive) return;
    ++drive_periods;
    if (wind) ++drive_in_wind;
    if (ws.fit_ok_z != 0) {
        ++drive_passed;
        if (ws.fit_ok_nz != 0 && !learned) ++zero_rate;
        return;
    }
    if (wind) return;
    float ratio;
    __atomic_load(&dval, &ratio, __ATOMIC_RELAXED);  // the failed test's error ratio
    if (!(ratio == ratio)) return;                   // NaN: a silent period
    const bool first = drive_periods - drive_passed - drive_in_wind == 1;
    if (first || ratio < failed_low) failed_low = ratio;
    if (first || ratio > failed_high) failed_high = ratio;
}

std::string LearningTally::why_nothing(const st_vorl &p) const {
    const double block_ms = 256.0 / 48.0;
    if (drive_periods == 0)
        return format("no zoom drive lasted long enough to learn from: learning skips a drive's first %.0f ms "
                      "(i_block_counter) and then measures it in periods of %.0f ms (z_block_counter)",
                      p.i_block_counter * block_ms, p.z_block_counter * block_ms);
    if (quiet_passed == 0)
        return format("none of the %.0f quiet periods outside drives passed the reference test "
                      "(zspec_comp_case0_th): learning needs %.0f ms of quiet room before a drive",
                      quiet_periods, p.nz_block_counter * block_ms);
    if (drive_passed == 0 && drive_in_wind == drive_periods)
        return format("all %.0f zoom-drive periods had the wind word set, and the table's test fails in wind "
                      "(zspec_comp_case1_th_wind %g)",
                      drive_periods, p.zspec_comp_case1_th_wind);
    if (drive_passed == 0)
        return format("none of the %.0f zoom-drive periods passed the motor-noise test: their error ratios "
                      "%.4g-%.4g",
                      drive_periods - drive_in_wind, failed_low, failed_high) +
               format(" lie above the table's limit %g (zspec_comp_case1_th): the drive noise does not fit "
                      "the table's model, or a scene sounded over the drives",
                      p.zspec_comp_case1_th);
    if (zero_rate > 0)
        return format("%.0f zoom-drive periods passed after a passing reference, but the table's learning rate "
                      "was 0 for them (val_x at the reference level, zspec_comp_sm_coef, "
                      "zspec_comp_mod_time_coef_a and _b)",
                      zero_rate);
    return format("%.0f of %.0f zoom-drive periods passed the motor-noise test, but none came after a quiet "
                  "period that passed the reference test",
                  drive_passed, drive_periods);
}

}  // namespace vorl
