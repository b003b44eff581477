#include "table_builder.h"

#include <cstring>

namespace vorl::tablekit {

// The library's own checksum, reached through a block settings record.
uint32_t checksum(const st_vorl_tbl &t) {
    st_vorl_tbl copy = t;
    seal(copy);
    return copy.check_sum;
}

void seal(st_vorl_tbl &t) {
    st_vorl_hdr hdr{};
    hdr.p_tbl = &t;
    sound_vorl_calc_check_sum(&hdr);
}

uint8_t reference_band_node(int b) {
    if (b < 48) return static_cast<uint8_t>(2 * b);  // 0, 2, .., 94
    return static_cast<uint8_t>(94 + ((b - 47) * 161 + 12) / 24);  // .., 255
}

void fill_division_table(st_vorl &p, float top, float ratio) {
    float s = top;
    for (float &threshold : p.div_search_tbl_f) {
        threshold = s;
        s /= ratio;
    }
    for (int j = 0; j < 27; ++j)
        p.div_init_value_tbl_f[j] = 2.0f / (p.div_search_tbl_f[j] + p.div_search_tbl_f[j + 1]);
    p.div_init_value_tbl_f[27] = 1.0f / p.div_search_tbl_f[27];  // the floor itself
}

void set_flat_coefficients(st_vorl &p, float value) {
    for (int ch = 0; ch < 2; ++ch) {
        float *inc = p.zspec_comp_coef_f_LR_d[ch];
        inc[0] = value / static_cast<float>(p.zspec_comp_base_bin[0] + 1);
        for (int b = 1; b < 72; ++b) inc[b] = 0.0f;
    }
}

st_vorl_tbl reference_table() {
    st_vorl_tbl t;
    std::memset(&t, 0, sizeof t);
    t.tbl_version = VORL_TBL_VERSION;
    st_vorl &p = t.st_vorl;

    p.eq_gain[0] = 1.0f;  // flat: gain 1 at bin 0, no slope
    for (int b = 0; b < 72; ++b) {
        p.zspec_comp_base_bin[b] = reference_band_node(b);
        const int first = b == 0 ? 0 : p.zspec_comp_base_bin[b - 1] + 1;
        p.zspec_comp_inter_hop[b] = 1.0f / static_cast<float>(p.zspec_comp_base_bin[b] - first + 1);
        p.zspec_comp_coef_f_LR_d_max[0][b] = 4.0f;
        p.zspec_comp_coef_f_LR_d_max[1][b] = 4.0f;
    }
    set_flat_coefficients(p, 0.5f);
    // Background templates: a low hiss level at bin 0 and no slope.
    for (auto &tmpl : p.back_ground_noise)
        for (auto &row : tmpl) row[0] = 1e-6f;
    for (int m = 0; m < 48; ++m) {
        p.zspec_freq_weight_f_z[m] = 0.5f;
        p.zspec_freq_weight_f_nz[m] = 0.5f;
    }
    fill_division_table(p, 131072.0f, 2.0f);

    p.over_est = 1.5f;
    p.over_est_af = 1.0f;
    p.est_noise_bias_z_max = 1.5f;
    p.est_noise_bias_z_nor = 1.0f;
    p.est_noise_bias_z_min = 0.7f;
    p.est_noise_bias_nz_max = 1.2f;
    p.est_noise_bias_nz_nor = 0.8f;
    p.est_noise_bias_nz_min = 0.5f;
    p.nr_floor_coef = 0.1f;
    p.nr_gain_sm_coef = 0.5f;
    p.wind_nr_proc_bias = 1.5f;
    p.af_gain_bias_sm_coef = 0.9f;
    p.over_est_af_sm_coef = 0.5f;
    p.eq_sm_coef_in = 0.1f;
    p.eq_sm_coef_out = 0.1f;
    p.tolerance_range_zspec_max = 1.0f;
    p.tolerance_range_zspec_min = 1.0f;
    p.nr_proc_min_freq_bin = 1;
    p.nr_proc_max_freq_bin = 250;
    p.zspec_comp_max_freq = 200;
    p.train_mode = 0;
    p.zspec_ss_a_coef = 1.0f;
    p.zspec_ss_b_coef = 0.1f;
    p.zspec_comp_sm_coef = 0.1f;
    p.zspec_comp_mod_time_coef_a = 0.0f;
    p.zspec_comp_mod_time_coef_b = 1.0f;
    p.zspec_comp_replace_value = 0.2f;
    p.zspec_comp_max_floor_value = 4.0f;
    p.zspec_comp_min_floor_value = 0.01f;
    p.zspec_comp_case0_th = 0.5f;
    p.zspec_comp_case0_th_wind = 1.0f;
    p.nz_block_counter = 32;
    p.nz_block_ave_coef = 1.0f / 32.0f;
    p.zspec_comp_case0_sp = 0;
    p.zspec_comp_case0_ep = 48;
    p.i_block_counter = 8;
    p.z_block_counter = 16;
    p.z_block_ave_coef = 1.0f / 16.0f;
    p.zspec_comp_case1_th = 0.5f;
    p.zspec_comp_case1_th_wind = 1.0f;
    p.zspec_comp_case1_sp = 0;
    p.zspec_comp_case1_ep = 48;
    p.wind_nr_proc_freq = 8;
    p.eq_proc_flag = 3;
    p.bn_proc_flag = 3;
    p.zn_proc_flag = 2;

    st_vorlc &c = t.st_vorlc;
    const float levels[8] = {1000.0f, 100.0f, 10.0f, 1.0f, 0.1f, 0.01f, 0.001f, 0.0f};
    const float factors[8] = {0.25f, 0.5f, 1.0f, 1.0f, 1.0f, 1.0f, 0.5f, 0.25f};
    for (int i = 0; i < 8; ++i) {
        c.tbl_x[i] = levels[i];
        c.val_x[i] = factors[i];
    }
    c.over_est_sm_coef = 0.1f;
    c.nr_ctrl_pow_th_u = 1.0f;
    c.nr_ctrl_pow_th_d = 0.01f;
    c.nr_ctrl_counter = 32;
    c.nr_ctrl_t_ave_coef = 1.0f / 32.0f;
    c.nr_ctrl_f_ave_coef = 1.0f;
    c.nr_ctrl_freq_sp = 2;
    c.nr_ctrl_freq_ep = 40;

    seal(t);
    return t;
}

}  // namespace vorl::tablekit
