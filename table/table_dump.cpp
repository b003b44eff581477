// Text dump of the working parameter blocks on stdout, in the fixed form
// tuning engineers compare between runs.
#include <cstdio>

#include "../nr/engine_constants.h"
#include "vorl.h"

namespace {

// printf's variadic arguments: floats as doubles, bytes as ints.
double printable(float v) { return v; }
int printable(uint8_t v) { return v; }

// Array rule: four values a line separated by commas; a short last line
// keeps the comma after its last value. `extra` adds one more line end.
template <typename T>
void print_array(const char *title, const T *values, int count, const char *format, bool extra) {
    std::puts(title);
    for (int i = 0; i < count; ++i) {
        std::printf(format, printable(values[i]));
        std::putchar(i % 4 == 3 ? '\n' : ',');
    }
    if (extra) std::putchar('\n');
}

void print_main_arrays(const st_vorl &p) {
    const char *f10 = "%6.10f";
    print_array("p_st_vorl->eq_gain :", p.eq_gain, vorl::kBinGroups, "%2.7f", true);
    print_array("p_st_vorl->zspec_comp_coef_f_LR_d Lch :", p.zspec_comp_coef_f_LR_d[0], vorl::kBands, f10, true);
    print_array("p_st_vorl->zspec_comp_coef_f_LR_d Rch :", p.zspec_comp_coef_f_LR_d[1], vorl::kBands, f10, true);
    print_array("p_st_vorl->zspec_comp_coef_f_LR_d_max Lch :", p.zspec_comp_coef_f_LR_d_max[0], vorl::kBands, f10,
                 true);
    print_array("p_st_vorl->zspec_comp_coef_f_LR_d_max Rch :", p.zspec_comp_coef_f_LR_d_max[1], vorl::kBands, f10,
                 true);
    print_array("p_st_vorl->zspec_comp_inter_hop :", p.zspec_comp_inter_hop, vorl::kBands, f10, true);
    print_array("p_st_vorl->zspec_comp_base_bin :", p.zspec_comp_base_bin, vorl::kBands, "%d", true);
    static const char *const kTemplateTitles[3][2] = {
        {"p_st_vorl->back_ground_noise AF Lch :", "p_st_vorl->back_ground_noise AF Rch :"},
        {"p_st_vorl->back_ground_noise WT Lch :", "p_st_vorl->back_ground_noise WT Rch :"},
        {"p_st_vorl->back_ground_noise TW Lch :", "p_st_vorl->back_ground_noise TW Rch :"},
    };
    for (int t = 0; t < 3; ++t)
        for (int ch = 0; ch < 2; ++ch)
            print_array(kTemplateTitles[t][ch], p.back_ground_noise[t][ch], vorl::kBinGroups, f10, true);
    print_array("p_st_vorl->zspec_freq_weight_f_z :", p.zspec_freq_weight_f_z, vorl::kFitPoints, f10, false);
    print_array("p_st_vorl->zspec_freq_weight_f_nz :", p.zspec_freq_weight_f_nz, vorl::kFitPoints, f10, false);
    print_array("p_st_vorl->div_search_tbl_f :", p.div_search_tbl_f, 28, f10, false);
    print_array("p_st_vorl->div_init_value_tbl_f :", p.div_init_value_tbl_f, 28, f10, false);
}

void print_main_values(const st_vorl &p) {
    auto f = [](const char *fmt, float v) { std::printf(fmt, static_cast<double>(v)); };
    auto d = [](const char *fmt, int v) { std::printf(fmt, v); };
    f("p_st_vorl->over_est      = %2.7f\n", p.over_est);
    f("p_st_vorl->over_est_af   = %2.7f\n", p.over_est_af);
    f("p_st_vorl->est_noise_bias_z_max      = %2.7f\n", p.est_noise_bias_z_max);
    f("p_st_vorl->est_noise_bias_z_nor      = %2.7f\n", p.est_noise_bias_z_nor);
    f("p_st_vorl->est_noise_bias_z_min      = %2.7f\n", p.est_noise_bias_z_min);
    f("p_st_vorl->est_noise_bias_nz_max     = %2.7f\n", p.est_noise_bias_nz_max);
    f("p_st_vorl->est_noise_bias_nz_nor     = %2.7f\n", p.est_noise_bias_nz_nor);
    f("p_st_vorl->est_noise_bias_nz_min     = %2.7f\n", p.est_noise_bias_nz_min);
    f("p_st_vorl->nr_floor_coef     = %2.7f\n", p.nr_floor_coef);
    f("p_st_vorl->nr_gain_sm_coef   = %2.7f\n", p.nr_gain_sm_coef);
    f("p_st_vorl->wind_nr_proc_bias = %2.7f\n", p.wind_nr_proc_bias);
    f("p_st_vorl->af_gain_bias_sm_coef = %2.7f\n", p.af_gain_bias_sm_coef);
    f("p_st_vorl->over_est_af_sm_coef  = %2.7f\n", p.over_est_af_sm_coef);
    f("p_st_vorl->eq_sm_coef_in  = %2.7f\n", p.eq_sm_coef_in);
    f("p_st_vorl->eq_sm_coef_out = %2.7f\n", p.eq_sm_coef_out);
    f("p_st_vorl->tolerance_range_zspec_max = %2.7f\n", p.tolerance_range_zspec_max);
    f("p_st_vorl->tolerance_range_zspec_min = %2.7f\n", p.tolerance_range_zspec_min);
    d("p_st_vorl->nr_proc_min_freq_bin = %d\n", p.nr_proc_min_freq_bin);
    d("p_st_vorl->nr_proc_max_freq_bin = %d\n", p.nr_proc_max_freq_bin);
    d("p_st_vorl->zspec_comp_max_freq  = %d\n", p.zspec_comp_max_freq);
    d("p_st_vorl->train_mode           = %d\n", p.train_mode);
    f("p_st_vorl->zspec_ss_a_coef            = %2.7f\n", p.zspec_ss_a_coef);
    f("p_st_vorl->zspec_ss_b_coef            = %2.7f\n", p.zspec_ss_b_coef);
    f("p_st_vorl->zspec_comp_sm_coef         = %2.7f\n", p.zspec_comp_sm_coef);
    f("p_st_vorl->zspec_comp_mod_time_coef_a = %2.7f\n", p.zspec_comp_mod_time_coef_a);
    f("p_st_vorl->zspec_comp_mod_time_coef_b = %2.7f\n", p.zspec_comp_mod_time_coef_b);
    f("p_st_vorl->zspec_comp_replace_value   = %2.7f\n", p.zspec_comp_replace_value);
    f("p_st_vorl->zspec_comp_max_floor_value = %2.7f\n", p.zspec_comp_max_floor_value);
    f("p_st_vorl->zspec_comp_min_floor_value = %2.7f\n", p.zspec_comp_min_floor_value);
    f("p_st_vorl->zspec_comp_case0_th      = %2.7f\n", p.zspec_comp_case0_th);
    f("p_st_vorl->zspec_comp_case0_th_wind = %2.7f\n", p.zspec_comp_case0_th_wind);
    f("p_st_vorl->nz_block_ave_coef = %2.7f\n", p.nz_block_ave_coef);
    d("p_st_vorl->nz_block_counter  = %d\n", p.nz_block_counter);
    d("p_st_vorl->zspec_comp_case0_sp = %d\n", p.zspec_comp_case0_sp);
    d("p_st_vorl->zspec_comp_case0_ep = %d\n", p.zspec_comp_case0_ep);
    f("p_st_vorl->z_block_ave_coef = %2.7f\n", p.z_block_ave_coef);
    d("p_st_vorl->i_block_counter  = %d\n", p.i_block_counter);
    d("p_st_vorl->z_block_counter  = %d\n", p.z_block_counter);
    f("p_st_vorl->zspec_comp_case1_th      = %2.7f\n", p.zspec_comp_case1_th);
    f("p_st_vorl->zspec_comp_case1_th_wind = %2.7f\n", p.zspec_comp_case1_th_wind);
    d("p_st_vorl->zspec_comp_case1_sp = %d\n", p.zspec_comp_case1_sp);
    d("p_st_vorl->zspec_comp_case1_ep = %d\n", p.zspec_comp_case1_ep);
    d("p_st_vorl->wind_nr_proc_freq = %d\n", p.wind_nr_proc_freq);
    d("p_st_vorl->eq_proc_flag      = 0x%x\n", p.eq_proc_flag);
    d("p_st_vorl->bn_proc_flag      = 0x%x\n", p.bn_proc_flag);
    d("p_st_vorl->zn_proc_flag      = 0x%x\n", p.zn_proc_flag);
}

void print_control(const st_vorlc &c) {
    print_array("p_st_vorlc->tbl_x :", c.tbl_x, 8, "%2.7f", true);
    print_array("p_st_vorlc->val_x :", c.val_x, 8, "%2.7f", true);
    auto f = [](const char *fmt, float v) { std::printf(fmt, static_cast<double>(v)); };
    f("p_st_vorlc->over_est_sm_coef   = %2.7f\n", c.over_est_sm_coef);
    f("p_st_vorlc->nr_ctrl_pow_th_u   = %2.7f\n", c.nr_ctrl_pow_th_u);
    f("p_st_vorlc->nr_ctrl_pow_th_d   = %2.7f\n", c.nr_ctrl_pow_th_d);
    f("p_st_vorlc->nr_ctrl_t_ave_coef = %2.7f\n", c.nr_ctrl_t_ave_coef);
    f("p_st_vorlc->nr_ctrl_f_ave_coef = %2.7f\n", c.nr_ctrl_f_ave_coef);
    std::printf("p_st_vorlc->nr_ctrl_counter = %d\n", c.nr_ctrl_counter);
    std::printf("p_st_vorlc->nr_ctrl_freq_sp = %d\n", c.nr_ctrl_freq_sp);
    std::printf("p_st_vorlc->nr_ctrl_freq_ep = %d\n", c.nr_ctrl_freq_ep);
}

}  // namespace

extern "C" int32_t sound_vorl_print_tbl(const st_vorl_inst *inst) {
    const st_vorl_ws *ws = inst->p_ws;
    std::puts("************* VORL *****************");
    print_main_arrays(ws->st_vorl_work);
    print_main_values(ws->st_vorl_work);
    std::puts("************ VORLC *****************");
    print_control(ws->st_vorlc_work);
    return 0;
}
