// Layout checks of the tuning-table file: every field of both parameter
// blocks at its byte offset. A failing check means a field was moved,
// resized or padded, and old table files would be misread.
#include <cstddef>

#include "vorl_table.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the table file is little-endian");
static_assert(sizeof(float) == 4 && sizeof(double) == 8, "IEEE single and double");

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

