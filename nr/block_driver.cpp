// Block driver: one block of 256 stereo frames. Derives the block's control
// values from the drive state (switches, template, over-estimation, noise
// bias, equaliser fade), runs analysis, transforms, core, learning and
// synthesis, and adapts the noise bias to the measured control-band power.
#include <cstring>

#include "core_paths.h"
#include "engine_constants.h"
#include "fft/rfft_paths.h"
#include "stages.h"
#include "vorl.h"

namespace {

// Zoom start or end: a new learning period begins.
void reset_learning_period(st_vorl_ws *ws) {
    std::memset(ws->band_acc, 0, sizeof ws->band_acc);
    std::memset(ws->zspec_acc[ws->zspec_slot], 0, sizeof ws->zspec_acc[0]);
    std::memset(ws->zspec_acc[2], 0, sizeof ws->zspec_acc[2]);
    ws->fit_ok_z = 0;
    ws->z_frame_cnt = 0;
    ws->level_acc = 0.0f;
}

void handle_drive_edges(st_vorl_ws *ws, uint32_t zoom, uint32_t prev) {
    const st_vorl &p = ws->st_vorl_work;
    if (zoom != 0 && prev == 0) {
        ws->blk_cnt = p.i_block_counter;
        ws->learn_phase = VORL_LEARN_DRIVE_STARTED;
        reset_learning_period(ws);
    } else if (zoom == 0 && prev != 0) {
        ws->blk_cnt = p.nz_block_counter;
        ws->learn_phase = VORL_LEARN_IDLE;
        reset_learning_period(ws);
        ws->fit_ok_nz = 0;
    }
}

void set_block_switches(st_vorl_ws *ws, uint32_t zoom) {
    const st_vorl &p = ws->st_vorl_work;
    ws->bgn_sel = (p.bn_proc_flag & 4) != 0 ? 0 : static_cast<int32_t>(zoom);
    if (zoom != 0) {
        ws->eq_on = (p.eq_proc_flag >> 1) & 1u;
        ws->bias_cur = ws->bias_z;
        ws->z_frame_cnt = static_cast<int32_t>(static_cast<uint32_t>(ws->z_frame_cnt) + 1u);
        ws->over_est_cur = p.over_est;
        ws->bgn_on = (p.bn_proc_flag >> 1) & 1u;
        ws->zn_on = (p.zn_proc_flag >> 1) & 1u;
    } else {
        const float a = p.af_gain_bias_sm_coef;
        const float b = p.over_est_af_sm_coef;
        ws->eq_on = p.eq_proc_flag & 1u;
        ws->bias_cur = a * ws->bias_cur + (1.0f - a) * ws->bias_nz;  // glide after a drive
        ws->over_est_cur = b * p.over_est + (1.0f - b) * p.over_est_af;
        ws->z_frame_cnt = 0;
        ws->bgn_on = p.bn_proc_flag & 1u;
        ws->zn_on = p.zn_proc_flag & 1u;
    }
}

// Fades the equaliser out towards flat, or back in, when it is switched.
void run_equaliser_fade(st_vorl_ws *ws) {
    const st_vorl &p = ws->st_vorl_work;
    if (ws->eq_on_prev == 1 && ws->eq_on == 0) {
        ws->eq_fade_state = VORL_EQ_FADING_OUT;
        ws->eq_start = ws->eq_base;
        ws->eq_fade = 1.0f;
    } else if (ws->eq_on_prev == 0 && ws->eq_on != 0) {
        ws->eq_fade_state = VORL_EQ_FADING_IN;
        ws->eq_start = 1.0f;
        ws->eq_fade = 1.0f;
    }
    if (ws->eq_fade_state == VORL_EQ_FADING_OUT) {
        const float c = p.eq_sm_coef_out;
        ws->eq_start = c + (1.0f - c) * ws->eq_start;
        ws->eq_fade = ws->eq_fade * (1.0f - c);
        ws->eq_slope_scale = ws->eq_fade;
    } else if (ws->eq_fade_state == VORL_EQ_FADING_IN) {
        const float c = p.eq_sm_coef_in;
        ws->eq_start = c * ws->eq_base + (1.0f - c) * ws->eq_start;
        ws->eq_fade = ws->eq_fade * (1.0f - c);
        ws->eq_slope_scale = 1.0f - ws->eq_fade;
    } else {
        ws->eq_slope_scale = 1.0f;
        ws->eq_start = ws->eq_base;
    }
}

// Counts down in 32 bits with wrap-around; a step fires at exactly 0.
void count_down(int32_t &counter) {
    counter = static_cast<int32_t>(static_cast<uint32_t>(counter) - 1u);
}

enum Level { kLow, kMiddle, kHigh };

Level classify(float h, const st_vorlc &pc) {
    if (h > pc.nr_ctrl_pow_th_u) return kHigh;
    if (h > pc.nr_ctrl_pow_th_d) return kMiddle;
    return kLow;
}

// End of a control period: record its power and, after four drive-free
// periods that agree on the level, move both biases towards that level's targets.
void control_step(st_vorl_ws *ws) {
    const st_vorl &p = ws->st_vorl_work;
    const st_vorlc &pc = ws->st_vorlc_work;
    if (ws->ctrl_hist_idx >= 4) ws->ctrl_hist_idx = 0;
    ws->ctrl_pow_hist[ws->ctrl_hist_idx] = ws->ctrl_pow_acc * pc.nr_ctrl_t_ave_coef;
    ws->ctrl_flags = (ws->zoom_blk_sum != 0 ? 1u : 0u) + 2u * (ws->ctrl_flags & 7u);
    ws->ctrl_hist_idx = static_cast<uint8_t>(ws->ctrl_hist_idx + 1);
    if (ws->ctrl_flags == 0) {
        const Level first = classify(ws->ctrl_pow_hist[0], pc);
        bool agree = true;
        for (int i = 1; i < 4; ++i) agree = agree && classify(ws->ctrl_pow_hist[i], pc) == first;
        float target_z = ws->bias_z;
        float target_nz = ws->bias_nz;
        if (agree) {
            if (first == kHigh) {
                target_z = p.est_noise_bias_z_min;
                target_nz = p.est_noise_bias_nz_min;
            } else if (first == kMiddle) {
                target_z = p.est_noise_bias_z_nor;
                target_nz = p.est_noise_bias_nz_nor;
            } else {
                target_z = p.est_noise_bias_z_max;
                target_nz = p.est_noise_bias_nz_max;
            }
        }
        const float s = pc.over_est_sm_coef;
        ws->bias_z = s * target_z + (1.0f - s) * ws->bias_z;
        ws->bias_nz = s * target_nz + (1.0f - s) * ws->bias_nz;
    }
    ws->ctrl_cnt = pc.nr_ctrl_counter;
    ws->zoom_blk_sum = 0;
    ws->ctrl_pow_acc = 0.0f;
}

}  // namespace

void vorl::run_block(const int16_t *ring, int16_t *out, st_vorl_inst *inst, simd::Path path) {
    st_vorl_ws *ws = inst->p_ws;
    const uint32_t zoom = inst->zoom_state & 0xFFu;

    handle_drive_edges(ws, zoom, ws->zoom_prev & 0xFFu);
    set_block_switches(ws, zoom);
    run_equaliser_fade(ws);
    count_down(ws->blk_cnt);
    count_down(ws->ctrl_cnt);

    float *const frames[2] = {inst->p_frame[0], inst->p_frame[1]};
    analyse(frames[0], frames[1], ring, inst->ch_offset, inst->p_sin_win_tbl, path);
    const int channels = stage_channels(static_cast<int32_t>(inst->ch_num));
    const auto n = static_cast<int32_t>(inst->frame_size);
    for (int c = 0; c < channels; ++c) fft::rfft(frames[c], n, inst, path);
    core(frames, inst, path);
    sound_vorl_core_post_sac(inst);
    for (int c = 0; c < channels; ++c) fft::irfft(frames[c], n, inst, path);
    synthesise(frames[0], frames[1], out, inst->p_scale_sin_win_tbl, path);

    ws->zoom_blk_sum += zoom;
    if (ws->ctrl_cnt == 0) control_step(ws);
    ws->zoom_prev = inst->zoom_state;
    ws->eq_on_prev = ws->eq_on;
}

extern "C" void sound_vorl(const int16_t *ring, int16_t *out, st_vorl_inst *inst) {
    vorl::run_block(ring, out, inst, vorl::simd::active_path());
}
