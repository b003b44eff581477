#include "table_fields.h"

#include <cstddef>

namespace vorl::tablekit {

std::size_t Field::count() const {
    std::size_t n = 1;
    for (int d : shape) n *= static_cast<std::size_t>(d);
    return n;
}

std::size_t Field::element_size() const {
    switch (type) {
    case FieldType::U8: return 1;
    case FieldType::I16: return 2;
    default: return 4;
    }
}

namespace {

constexpr std::size_t kMain = offsetof(st_vorl_tbl, st_vorl);
constexpr std::size_t kCtrl = offsetof(st_vorl_tbl, st_vorlc);

#define MAIN(name, type, ...) Field{#name, kMain + offsetof(st_vorl, name), FieldType::type, {__VA_ARGS__}}
#define CTRL(name, type, ...) Field{#name, kCtrl + offsetof(st_vorlc, name), FieldType::type, {__VA_ARGS__}}

std::vector<Section> build_sections() {
    Section top{"", {
        Field{"tbl_version", offsetof(st_vorl_tbl, tbl_version), FieldType::U32, {}},
        Field{"tbl_cnt", offsetof(st_vorl_tbl, tbl_cnt), FieldType::U32, {}},
    }};
    Section main{"st_vorl", {
        MAIN(eq_gain, F32, 65),
        MAIN(zspec_comp_coef_f_LR_d, F32, 2, 72),
        MAIN(zspec_comp_coef_f_LR_d_max, F32, 2, 72),
        MAIN(zspec_comp_inter_hop, F32, 72),
        MAIN(zspec_comp_base_bin, U8, 72),
        MAIN(back_ground_noise, F32, 3, 2, 65),
        MAIN(zspec_freq_weight_f_z, F32, 48),
        MAIN(zspec_freq_weight_f_nz, F32, 48),
        MAIN(div_search_tbl_f, F32, 28),
        MAIN(div_init_value_tbl_f, F32, 28),
        MAIN(over_est, F32), MAIN(over_est_af, F32),
        MAIN(est_noise_bias_z_max, F32), MAIN(est_noise_bias_z_nor, F32), MAIN(est_noise_bias_z_min, F32),
        MAIN(est_noise_bias_nz_max, F32), MAIN(est_noise_bias_nz_nor, F32), MAIN(est_noise_bias_nz_min, F32),
        MAIN(nr_floor_coef, F32), MAIN(nr_gain_sm_coef, F32), MAIN(wind_nr_proc_bias, F32),
        MAIN(af_gain_bias_sm_coef, F32), MAIN(over_est_af_sm_coef, F32),
        MAIN(eq_sm_coef_in, F32), MAIN(eq_sm_coef_out, F32),
        MAIN(tolerance_range_zspec_max, F32), MAIN(tolerance_range_zspec_min, F32),
        MAIN(nr_proc_min_freq_bin, U8), MAIN(nr_proc_max_freq_bin, U8),
        MAIN(zspec_comp_max_freq, U8), MAIN(train_mode, U8),
        MAIN(zspec_ss_a_coef, F32), MAIN(zspec_ss_b_coef, F32), MAIN(zspec_comp_sm_coef, F32),
        MAIN(zspec_comp_mod_time_coef_a, F32), MAIN(zspec_comp_mod_time_coef_b, F32),
        MAIN(zspec_comp_replace_value, F32), MAIN(zspec_comp_max_floor_value, F32),
        MAIN(zspec_comp_min_floor_value, F32),
        MAIN(zspec_comp_case0_th, F32), MAIN(zspec_comp_case0_th_wind, F32),
        MAIN(nz_block_ave_coef, F32), MAIN(nz_block_counter, I16),
        MAIN(zspec_comp_case0_sp, U8), MAIN(zspec_comp_case0_ep, U8),
        MAIN(z_block_ave_coef, F32), MAIN(i_block_counter, I16), MAIN(z_block_counter, I16),
        MAIN(zspec_comp_case1_th, F32), MAIN(zspec_comp_case1_th_wind, F32),
        MAIN(zspec_comp_case1_sp, U8), MAIN(zspec_comp_case1_ep, U8),
        MAIN(wind_nr_proc_freq, U8), MAIN(eq_proc_flag, U8), MAIN(bn_proc_flag, U8), MAIN(zn_proc_flag, U8),
        MAIN(spare, U8, 2),
    }};
    Section ctrl{"st_vorlc", {
        CTRL(tbl_x, F32, 8), CTRL(val_x, F32, 8),
        CTRL(over_est_sm_coef, F32), CTRL(nr_ctrl_pow_th_u, F32), CTRL(nr_ctrl_pow_th_d, F32),
        CTRL(nr_ctrl_t_ave_coef, F32), CTRL(nr_ctrl_f_ave_coef, F32),
        CTRL(nr_ctrl_counter, I16), CTRL(nr_ctrl_freq_sp, U8), CTRL(nr_ctrl_freq_ep, U8),
    }};
    return {top, main, ctrl};
}

#undef MAIN
#undef CTRL

}  // namespace

const std::vector<Section> &table_sections() {
    static const std::vector<Section> sections = build_sections();
    return sections;
}

const Field *find_field(const std::string &name) {
    for (const Section &s : table_sections())
        for (const Field &f : s.fields)
            if (name == f.name) return &f;
    return nullptr;
}

std::string element_name(const Field &f, std::size_t flat) {
    std::string out = f.name;
    if (f.shape.empty()) return out;
    std::vector<std::size_t> idx(f.shape.size());
    for (std::size_t d = f.shape.size(); d-- > 0;) {
        idx[d] = flat % static_cast<std::size_t>(f.shape[d]);
        flat /= static_cast<std::size_t>(f.shape[d]);
    }
    for (std::size_t i : idx) out += "[" + std::to_string(i) + "]";
    return out;
}

}  // namespace vorl::tablekit
