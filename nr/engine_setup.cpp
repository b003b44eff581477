// Engine set-up: wires the instance to its buffers and constant tables,
// copies the parameter blocks out of the table image into the workspace and
// puts every accumulator and state word into its starting state.
#include <cstring>

#include "vorl.h"

namespace {
// Fill of the second difference-power row before the first no-zoom period,
// so that the first no-zoom fit test compares against a defined level.
constexpr float kInitialZoomAccFill = 4096.0f;
}  // namespace

extern "C" {

void sound_vorl_init(void *work) {
    auto *w = static_cast<VORLWorkArea *>(work);
    st_vorl_inst &inst = w->inst;
    inst.p_frame[0] = w->frame[0];
    inst.p_frame[1] = w->frame[1];
    inst.p_sin_win_tbl = sin_win_tbl;
    inst.p_scale_sin_win_tbl = scale_sin_win_tbl;
    inst.p_ifft_tbl = IFFT_radix4_time_addition_theorem_wr_wi_2048;
    inst.p_hamming_tbl = tblHamming;
    inst.p_ws = &w->ws;
    inst.p_pulse = &w->pulse;
    w->pulse.p_diff_hist = &w->pulse.diff_hist[0][0];
    w->pulse.blk_pos[0] = 0;
    w->pulse.blk_pos[1] = 0;
}

int32_t sound_vorl_set(const st_vorl_hdr *hdr, st_vorl_inst *inst) {
    inst->ch_offset = hdr->ch_offset;
    inst->ch_num = hdr->ch_num;
    inst->frame_size = hdr->frame_size;
    inst->p_tbl = hdr->p_tbl;
    inst->wind_state = hdr->wind_state;
    inst->ch_num_proc = static_cast<int32_t>(hdr->ch_num);
    inst->learn_cnt = 0;
    // A wrong version is reported, but the engine is set up regardless.
    const int32_t result = hdr->p_tbl->tbl_version == VORL_TBL_VERSION ? 0 : -1;

    st_vorl_ws *ws = inst->p_ws;
    ws->p_gain_prev = &ws->gain_prev[0][0];
    ws->p_zspec_acc = &ws->zspec_acc[0][0];
    ws->p_band_ref = &ws->band_ref[0][0];
    ws->p_band_acc = &ws->band_acc[0][0];
    ws->p_pow_spec = &ws->pow_spec[0][0];
    ws->p_diff_pow = ws->diff_pow;
    ws->p_zcomp = &ws->zcomp[0][0];
    std::memcpy(&ws->st_vorl_work, &hdr->p_tbl->st_vorl, sizeof(st_vorl));
    std::memcpy(&ws->st_vorlc_work, &hdr->p_tbl->st_vorlc, sizeof(st_vorlc));
    ws->p_st_vorl = &ws->st_vorl_work;
    ws->p_st_vorlc = &ws->st_vorlc_work;
    ws->p_zcomp_tbl = &ws->st_vorl_work.zspec_comp_coef_f_LR_d[0][0];
    ws->p_zcomp_max = &ws->st_vorl_work.zspec_comp_coef_f_LR_d_max[0][0];

    sound_vorl_init_vorl_data(inst);
    return result;
}

int32_t sound_vorl_init_vorl_data(st_vorl_inst *inst) {
    st_vorl_ws *ws = inst->p_ws;
    const st_vorl &p = ws->st_vorl_work;
    std::memset(inst->p_frame[0], 0, VORL_FRAME_SIZE * sizeof(float));
    std::memset(inst->p_frame[1], 0, VORL_FRAME_SIZE * sizeof(float));
    std::memset(ws->gain_prev, 0, sizeof ws->gain_prev);
    std::memset(ws->pow_spec, 0, sizeof ws->pow_spec);
    std::memset(ws->diff_pow, 0, sizeof ws->diff_pow);
    std::memset(ws->band_acc, 0, sizeof ws->band_acc);
    std::memset(ws->band_ref, 0, sizeof ws->band_ref);
    std::memset(ws->zspec_acc, 0, sizeof ws->zspec_acc);
    for (float &v : ws->zspec_acc[1]) v = kInitialZoomAccFill;

    if (p.train_mode == 1) {
        // Training: the core reads what the learning step writes.
        ws->p_zcomp = ws->p_zcomp_tbl;
    } else {
        std::memcpy(ws->zcomp, p.zspec_comp_coef_f_LR_d, sizeof ws->zcomp);
        ws->p_zcomp = &ws->zcomp[0][0];
    }

    ws->z_frame_cnt = 0;
    ws->blk_cnt = p.nz_block_counter;
    ws->ctrl_cnt = ws->st_vorlc_work.nr_ctrl_counter;
    ws->level_acc = 0.0f;
    ws->level_ref = 0.0f;
    ws->ctrl_pow_acc = 0.0f;
    for (float &h : ws->ctrl_pow_hist) h = -90.0f;
    ws->over_est_cur = p.over_est;
    ws->bias_z = p.est_noise_bias_z_nor;
    ws->bias_cur = p.est_noise_bias_z_nor;
    ws->bias_nz = p.est_noise_bias_nz_nor;
    ws->zcomp_rate = p.zspec_comp_sm_coef;
    ws->eq_base = p.eq_gain[0];
    ws->eq_start = p.eq_gain[0];
    ws->eq_fade = 1.0f;
    ws->eq_slope_scale = 1.0f;
    ws->eq_fade_state = VORL_EQ_STEADY;
    ws->eq_on = 0;
    ws->bgn_on = 0;
    ws->zn_on = 0;
    ws->bgn_sel = 0;
    ws->eq_on_prev = 1;
    ws->zoom_prev = 0;
    ws->ctrl_flags = 0;
    ws->zoom_blk_sum = 0;
    ws->learn_phase = VORL_LEARN_IDLE;
    ws->ctrl_hist_idx = 0;
    ws->zspec_slot = 0;
    ws->fit_ok_z = 0;
    ws->fit_ok_nz = 0;
    return 0;
}

}  // extern "C"
