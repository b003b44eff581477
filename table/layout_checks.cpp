// Compile-time checks of every layout that crosses the exported interface,
// the work area or the tuning-table file. A failing check means a field was
// moved, resized or padded: the file format and hosts depend on these.
#include <cstddef>

#include "vorl.h"

static_assert(sizeof(void *) == 8, "the work area holds 64-bit pointers");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the table file is little-endian");
static_assert(sizeof(float) == 4 && sizeof(double) == 8, "IEEE single and double");

// Host record.
static_assert(offsetof(VORLResource, build_date) == 48, "");
static_assert(offsetof(VORLResource, build_time) == 56, "");
static_assert(offsetof(VORLResource, resource_size) == 64, "");
static_assert(offsetof(VORLResource, p_in_ch0) == 72, "");
static_assert(offsetof(VORLResource, p_in_ch1) == 80, "");
static_assert(offsetof(VORLResource, p_out) == 88, "");
static_assert(offsetof(VORLResource, frame_num) == 96, "");
static_assert(offsetof(VORLResource, p_work) == 104, "");
static_assert(offsetof(VORLResource, p_tbl_path) == 112, "");
static_assert(sizeof(VORLResource) == 120, "");

// Work-area map.
static_assert(offsetof(VORLWorkArea, out) == VORL_OFS_OUT, "");
static_assert(offsetof(VORLWorkArea, ring) == VORL_OFS_RING_CH0, "");
static_assert(offsetof(VORLWorkArea, ring[1]) == VORL_OFS_RING_CH1, "");
static_assert(offsetof(VORLWorkArea, ring[0][768]) == VORL_OFS_IN_CH0, "");
static_assert(offsetof(VORLWorkArea, ring[1][768]) == VORL_OFS_IN_CH1, "");
static_assert(offsetof(VORLWorkArea, tbl) == VORL_OFS_TBL, "");
static_assert(offsetof(VORLWorkArea, frame[0]) == VORL_OFS_FRAME_CH0, "");
static_assert(offsetof(VORLWorkArea, frame[1]) == VORL_OFS_FRAME_CH1, "");
static_assert(offsetof(VORLWorkArea, ws) == VORL_OFS_WS, "");
static_assert(offsetof(VORLWorkArea, pulse) == VORL_OFS_PULSE, "");
static_assert(offsetof(VORLWorkArea, pulse_proc_flag) == VORL_OFS_PULSE_FLAG, "");
static_assert(offsetof(VORLWorkArea, hdr) == VORL_OFS_HDR, "");
static_assert(offsetof(VORLWorkArea, inst) == VORL_OFS_INST, "");
static_assert(sizeof(VORLWorkArea) == VORL_WORK_SIZE, "");

// Block settings record.
static_assert(offsetof(st_vorl_hdr, zoom_state) == 8, "");
static_assert(offsetof(st_vorl_hdr, af_state) == 12, "");
static_assert(offsetof(st_vorl_hdr, wind_state) == 16, "");
static_assert(offsetof(st_vorl_hdr, ch_offset) == 20, "");
static_assert(offsetof(st_vorl_hdr, p_tbl) == 24, "");
static_assert(sizeof(st_vorl_hdr) == 32, "");

// Engine records within their regions.
static_assert(sizeof(st_vorl_inst) <= 128, "");
static_assert(sizeof(st_vorl_ws) <= 12120, "");
static_assert(sizeof(CPulseFilter) <= 3536, "");
static_assert(offsetof(CPulseFilter, diff_hist) == 8, "diff_hist follows p_diff_hist");

// Tuning-table file.
static_assert(offsetof(st_vorl_tbl, st_vorl) == 4, "");
static_assert(offsetof(st_vorl_tbl, st_vorlc) == 4088, "");
static_assert(offsetof(st_vorl_tbl, tbl_cnt) == 4176, "");
static_assert(offsetof(st_vorl_tbl, check_sum) == 4180, "");
static_assert(sizeof(st_vorl_tbl) == VORL_TBL_SIZE, "");
static_assert(VORL_TBL_SIZE == 4 * VORL_TBL_WORDS, "");

// Main parameter block.
#define AT(field, ofs) static_assert(offsetof(st_vorl, field) == (ofs), #field)
AT(eq_gain, 0);
AT(zspec_comp_coef_f_LR_d, 260);
AT(zspec_comp_coef_f_LR_d_max, 836);
AT(zspec_comp_inter_hop, 1412);
AT(zspec_comp_base_bin, 1700);
AT(back_ground_noise, 1772);
AT(zspec_freq_weight_f_z, 3332);
AT(zspec_freq_weight_f_nz, 3524);
AT(div_search_tbl_f, 3716);
AT(div_init_value_tbl_f, 3828);
AT(over_est, 3940);
AT(over_est_af, 3944);
AT(est_noise_bias_z_max, 3948);
AT(est_noise_bias_z_nor, 3952);
AT(est_noise_bias_z_min, 3956);
AT(est_noise_bias_nz_max, 3960);
AT(est_noise_bias_nz_nor, 3964);
AT(est_noise_bias_nz_min, 3968);
AT(nr_floor_coef, 3972);
AT(nr_gain_sm_coef, 3976);
AT(wind_nr_proc_bias, 3980);
AT(af_gain_bias_sm_coef, 3984);
AT(over_est_af_sm_coef, 3988);
AT(eq_sm_coef_in, 3992);
AT(eq_sm_coef_out, 3996);
AT(tolerance_range_zspec_max, 4000);
AT(tolerance_range_zspec_min, 4004);
AT(nr_proc_min_freq_bin, 4008);
AT(nr_proc_max_freq_bin, 4009);
AT(zspec_comp_max_freq, 4010);
AT(train_mode, 4011);
AT(zspec_ss_a_coef, 4012);
AT(zspec_ss_b_coef, 4016);
AT(zspec_comp_sm_coef, 4020);
AT(zspec_comp_mod_time_coef_a, 4024);
AT(zspec_comp_mod_time_coef_b, 4028);
AT(zspec_comp_replace_value, 4032);
AT(zspec_comp_max_floor_value, 4036);
AT(zspec_comp_min_floor_value, 4040);
AT(zspec_comp_case0_th, 4044);
AT(zspec_comp_case0_th_wind, 4048);
AT(nz_block_ave_coef, 4052);
AT(nz_block_counter, 4056);
AT(zspec_comp_case0_sp, 4058);
AT(zspec_comp_case0_ep, 4059);
AT(z_block_ave_coef, 4060);
AT(i_block_counter, 4064);
AT(z_block_counter, 4066);
AT(zspec_comp_case1_th, 4068);
AT(zspec_comp_case1_th_wind, 4072);
AT(zspec_comp_case1_sp, 4076);
AT(zspec_comp_case1_ep, 4077);
AT(wind_nr_proc_freq, 4078);
AT(eq_proc_flag, 4079);
AT(bn_proc_flag, 4080);
AT(zn_proc_flag, 4081);
AT(spare, 4082);
#undef AT
static_assert(sizeof(st_vorl) == 4084, "");

// Control parameter block.
#define AT(field, ofs) static_assert(offsetof(st_vorlc, field) == (ofs), #field)
AT(tbl_x, 0);
AT(val_x, 32);
AT(over_est_sm_coef, 64);
AT(nr_ctrl_pow_th_u, 68);
AT(nr_ctrl_pow_th_d, 72);
AT(nr_ctrl_t_ave_coef, 76);
AT(nr_ctrl_f_ave_coef, 80);
AT(nr_ctrl_counter, 84);
AT(nr_ctrl_freq_sp, 86);
AT(nr_ctrl_freq_ep, 87);
#undef AT
static_assert(sizeof(st_vorlc) == 88, "");

// Working copies keep the word layout so they copy to and from the image.
static_assert(offsetof(st_vorl_ws, st_vorl) % 4 == 0, "");
static_assert(offsetof(st_vorl_ws, st_vorlc) == offsetof(st_vorl_ws, st_vorl) + 4084, "");
