// Post stage: at the end of each measuring period, fit tests of the
// accumulated spectra against the drive-noise model and, after a passing
// no-zoom period and a passing zoom period, a refit of the per-band
// zoom-noise coefficients blended into the working parameter copy.
#include <cstring>

#include "engine_constants.h"
#include "vorl.h"

extern "C" {
float dval = 0.0f;
}

namespace {

using vorl::kBands;
using vorl::kFitPoints;
using vorl::kThreeTapNorm;

// dval is shared by all instances; a relaxed store keeps threads race-free.
void publish_error_ratio(float v) { __atomic_store(&dval, &v, __ATOMIC_RELAXED); }

// Fit-point range [sp, ep) clamped to the 48 accumulator slots.
struct FitRange {
    int begin, end;
};
FitRange fit_range(uint8_t sp, uint8_t ep) {
    return {sp < kFitPoints ? sp : kFitPoints, ep < kFitPoints ? ep : kFitPoints};
}

// Learning rate from the reference level and the drive's age in blocks.
float learning_rate(const st_vorl_ws *ws) {
    const st_vorl &p = ws->st_vorl_work;
    const st_vorlc &pc = ws->st_vorlc_work;
    int step = 7;  // tbl_x[7] takes part in no comparison
    for (int m = 0; m < 7; ++m) {
        if (ws->level_ref > pc.tbl_x[m]) {
            step = m;
            break;
        }
    }
    const float ramp =
        p.zspec_comp_mod_time_coef_b + p.zspec_comp_mod_time_coef_a * static_cast<float>(ws->z_frame_cnt);
    const float ramp_pos = ramp > 0.0f ? ramp : 0.0f;
    return ramp_pos * (pc.val_x[step] * p.zspec_comp_sm_coef);
}

// Zoom period: weighted channel power against the slot's difference power.
void zoom_fit_and_update(st_vorl_inst *inst) {
    st_vorl_ws *ws = inst->p_ws;
    const st_vorl &p = ws->st_vorl_work;
    const float *diff = ws->zspec_acc[ws->zspec_slot];
    const FitRange r = fit_range(p.zspec_comp_case1_sp, p.zspec_comp_case1_ep);
    float err = 0.0f, sum_w = 0.0f, sum_d = 0.0f;
    for (int m = r.begin; m < r.end; ++m) {
        const float w = ws->zspec_acc[2][m] * p.zspec_freq_weight_f_z[m];
        const float d = diff[m];
        const float e = w - d;
        err += e * e;
        sum_w += w;
        sum_d += d;
    }
    const float total = sum_w + sum_d;
    const float th = inst->wind_state != 0 ? p.zspec_comp_case1_th_wind : p.zspec_comp_case1_th;
    ws->fit_ok_z = total * th > err ? 1 : 0;
    publish_error_ratio(err / total);

    const bool both_fit = ws->fit_ok_z == 1 && ws->fit_ok_nz == 1;
    sound_vorl_learn_coef(inst, p.nz_block_ave_coef, p.z_block_ave_coef, both_fit ? ws->zcomp_rate : 0.0f);
    if (ws->fit_ok_z * ws->fit_ok_nz != 0 && ws->zcomp_rate > 0.0f) inst->learn_cnt += 1;
}

// No-zoom period: weighted channel power against both difference rows (this
// period's and the previous one's); the band powers become the reference.
void no_zoom_fit(st_vorl_inst *inst) {
    st_vorl_ws *ws = inst->p_ws;
    const st_vorl &p = ws->st_vorl_work;
    std::memcpy(ws->band_ref[0], ws->band_acc[1], sizeof ws->band_ref[0]);
    std::memcpy(ws->band_ref[1], ws->band_acc[2], sizeof ws->band_ref[1]);
    const FitRange r = fit_range(p.zspec_comp_case0_sp, p.zspec_comp_case0_ep);
    const float *weight = p.zspec_freq_weight_f_nz;
    float err = 0.0f, sum_0 = 0.0f, sum_1 = 0.0f, sum_w = 0.0f;
    for (int m = r.begin; m < r.end; ++m) {
        const float e = ws->zspec_acc[2][m] * weight[m] - ws->zspec_acc[0][m];
        err += e * e;
        sum_0 += ws->zspec_acc[0][m];
    }
    for (int m = r.begin; m < r.end; ++m) {
        const float w = ws->zspec_acc[2][m] * weight[m];
        const float e = w - ws->zspec_acc[1][m];
        err += e * e;
        sum_1 += ws->zspec_acc[1][m];
        sum_w += w;
    }
    const float total = sum_w + (sum_0 + sum_1);
    const float th = inst->wind_state != 0 ? p.zspec_comp_case0_th_wind : p.zspec_comp_case0_th;
    ws->fit_ok_nz = total * th > err ? 1 : 0;
    publish_error_ratio(err / total);
    ws->zspec_slot = static_cast<uint8_t>(1 - ws->zspec_slot);
    ws->level_ref = ws->level_acc;
}

// One channel's band-end coefficient, clamped; the floor wins over the maximum.
float band_coefficient(float recip, float zoom_pow, float ref_pow, float max, const st_vorl &p) {
    const float kept = zoom_pow * p.zspec_ss_b_coef;
    const float subtracted = zoom_pow - ref_pow * p.zspec_ss_a_coef;
    const float target = kept >= subtracted ? kept : subtracted;
    float c = recip * (target * kThreeTapNorm);
    if (c >= max) c = max;
    if (p.zspec_comp_min_floor_value >= c) c = p.zspec_comp_min_floor_value;
    return c;
}

}  // namespace

extern "C" {

int32_t sound_vorl_core_post_sac(st_vorl_inst *inst) {
    st_vorl_ws *ws = inst->p_ws;
    const st_vorl &p = ws->st_vorl_work;
    if (ws->blk_cnt != 0) return 0;

    ws->zcomp_rate = learning_rate(ws);
    switch (ws->learn_phase) {
        case VORL_LEARN_DRIVE_STARTED:  // opening blocks are over: start measuring
            ws->blk_cnt = p.z_block_counter;
            ws->learn_phase = VORL_LEARN_DRIVE_RUNNING;
            ws->z_frame_cnt = 0;
            break;
        case VORL_LEARN_DRIVE_RUNNING:
            ws->blk_cnt = p.z_block_counter;
            zoom_fit_and_update(inst);
            break;
        case VORL_LEARN_IDLE:
            ws->blk_cnt = p.nz_block_counter;
            no_zoom_fit(inst);
            break;
        default:
            break;
    }
    // Every test ends a measuring period.
    std::memset(ws->zspec_acc[ws->zspec_slot], 0, sizeof ws->zspec_acc[0]);
    std::memset(ws->zspec_acc[2], 0, sizeof ws->zspec_acc[2]);
    std::memset(ws->band_acc, 0, sizeof ws->band_acc);
    ws->level_acc = 0.0f;
    return 0;
}

void sound_vorl_learn_coef(st_vorl_inst *inst, float ref_scale, float zoom_scale, float rate) {
    st_vorl_ws *ws = inst->p_ws;
    st_vorl &p = ws->st_vorl_work;
    const float keep = 1.0f - rate;
    float prev[2] = {0.0f, 0.0f};
    for (int b = 0; b < kBands; ++b) {
        float diff = ws->band_acc[0][b] * kThreeTapNorm * zoom_scale;
        const float recip = sound_vorl_recip(&diff, 3, &p);
        for (int ch = 0; ch < 2; ++ch) {
            const float c = band_coefficient(recip, ws->band_acc[1 + ch][b] * zoom_scale,
                                             ws->band_ref[ch][b] * ref_scale,
                                             p.zspec_comp_coef_f_LR_d_max[ch][b], p);
            float &stored = p.zspec_comp_coef_f_LR_d[ch][b];
            stored = keep * stored + (p.zspec_comp_inter_hop[b] * rate) * (c - prev[ch]);
            prev[ch] = c;
        }
    }
}

}  // extern "C"
