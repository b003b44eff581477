#include "learning_tally.h"

#include <algorithm>

#include "appendf.h"

namespace vorl {

namespace {

enum class Test { none, drive, quiet };

// The test the block's post stage will run, from the workspace before the
// block and `zoom`, the drive word handed in with it. Mirrors the block
// driver: a drive edge restarts the period count (the opening blocks of a
// drive, or a reference period), then the count goes down by one, and the
// post stage acts when it reaches 0.
Test upcoming(const st_vorl_ws &ws, uint32_t zoom) {
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

}  // namespace

void LearningTally::enter(VORLResource *res) {
    const VORLWorkArea &w = *static_cast<const VORLWorkArea *>(res->p_work);
    const Test test = upcoming(w.ws, w.hdr.zoom_state);
    const uint32_t updates = sound_vorl_info_get(&w.inst);
    VORLEnterLibrary(res);
    if (test == Test::quiet) {
        ++quiet_periods;
        quiet_passed += w.ws.fit_ok_nz != 0 ? 1u : 0u;
    }
    if (test != Test::drive) return;
    ++drive_periods;
    const bool wind = w.inst.wind_state != 0;
    if (wind) ++drive_in_wind;
    if (w.ws.fit_ok_z != 0) {
        ++drive_passed;
        if (w.ws.fit_ok_nz != 0 && sound_vorl_info_get(&w.inst) == updates) ++zero_rate;
    } else if (!wind) {
        float ratio;
        __atomic_load(&dval, &ratio, __ATOMIC_RELAXED);  // the failed test's error ratio (NaN: silence)
        if (ratio == ratio) {
            failed_low = std::min(failed_low, ratio);
            failed_high = std::max(failed_high, ratio);
        }
    }
}

std::string LearningTally::why_nothing(const st_vorl &p) const {
    const double block_ms = 256.0 / 48.0;
    std::string s;
    if (drive_periods == 0) {
        appendf(s, "no zoom drive lasted long enough to learn from: learning skips a drive's first %.0f ms "
                   "(i_block_counter) and then measures it in periods of %.0f ms (z_block_counter)",
                p.i_block_counter * block_ms, p.z_block_counter * block_ms);
    } else if (quiet_passed == 0) {
        appendf(s, "none of the %u quiet periods outside drives passed the reference test "
                   "(zspec_comp_case0_th): learning needs %.0f ms of quiet room before a drive",
                quiet_periods, p.nz_block_counter * block_ms);
    } else if (drive_passed == 0 && drive_in_wind == drive_periods) {
        appendf(s, "all %u zoom-drive periods had the wind word set, and the table's test fails in wind "
                   "(zspec_comp_case1_th_wind %g)",
                drive_periods, p.zspec_comp_case1_th_wind);
    } else if (motor_test_failed()) {
        appendf(s, "none of the %u zoom-drive periods passed the motor-noise test", drive_periods - drive_in_wind);
        if (failed_low <= failed_high) appendf(s, ": their error ratios %.4g-%.4g", failed_low, failed_high);
        appendf(s, " lie above the table's limit %g (zspec_comp_case1_th): the drive noise does not fit the "
                   "table's model, or a scene sounded over the drives",
                p.zspec_comp_case1_th);
    } else if (zero_rate > 0) {
        appendf(s, "%u zoom-drive periods passed after a passing reference, but the table's learning rate was 0 "
                   "for them (val_x at the reference level, zspec_comp_sm_coef, zspec_comp_mod_time_coef_a and _b)",
                zero_rate);
    } else {
        appendf(s, "%u of %u zoom-drive periods passed the motor-noise test, but none came after a quiet period "
                   "that passed the reference test",
                drive_passed, drive_periods);
    }
    return s;
}

}  // namespace vorl
