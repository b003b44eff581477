#include "table_rules.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "table_checksum.h"
#include "table_curves.h"
#include "table_fields.h"

namespace vorl::tablekit {

namespace {

constexpr int kFitPoints = 48;

std::string num(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.9g", v);
    return buf;
}

std::string at(const char *field, int i) { return std::string(field) + "[" + std::to_string(i) + "]"; }

class Checker {
public:
    explicit Checker(std::vector<Violation> &out) : out_(out) {}
    void add(std::string where, std::string problem) { out_.push_back({std::move(where), std::move(problem)}); }

private:
    std::vector<Violation> &out_;
};

void check_finite(const st_vorl_tbl &t, Checker &c) {
    const auto *base = reinterpret_cast<const unsigned char *>(&t);
    for (const Section &s : table_sections())
        for (const Field &f : s.fields) {
            if (f.type != FieldType::F32) continue;
            for (std::size_t i = 0; i < f.count(); ++i) {
                float v;
                std::memcpy(&v, base + f.offset + 4 * i, 4);
                if (!std::isfinite(v)) c.add(element_name(f, i), "not a finite number");
            }
        }
}

void check_band_nodes(const st_vorl &p, Checker &c) {
    for (int b = 1; b < 72; ++b)
        if (p.zspec_comp_base_bin[b] <= p.zspec_comp_base_bin[b - 1])
            c.add(at("zspec_comp_base_bin", b), "band nodes must increase strictly (" +
                                                    std::to_string(p.zspec_comp_base_bin[b - 1]) + " then " +
                                                    std::to_string(p.zspec_comp_base_bin[b]) + ")");
    if (p.zspec_comp_base_bin[71] != 255)
        c.add(at("zspec_comp_base_bin", 71),
              "the last band node must be bin 255, found " + std::to_string(p.zspec_comp_base_bin[71]));
}

void check_ranges(const st_vorl &p, const st_vorlc &pc, Checker &c) {
    auto fit_range = [&](const char *sp_name, int sp, const char *ep_name, int ep) {
        if (ep > kFitPoints)
            c.add(ep_name, "fit-point range ends at " + std::to_string(ep) + ", past the 48 fit points");
        if (sp >= ep)
            c.add(sp_name, "empty fit-point range: start " + std::to_string(sp) + " is not below end " +
                               std::to_string(ep) + " (" + ep_name + ")");
    };
    fit_range("zspec_comp_case0_sp", p.zspec_comp_case0_sp, "zspec_comp_case0_ep", p.zspec_comp_case0_ep);
    fit_range("zspec_comp_case1_sp", p.zspec_comp_case1_sp, "zspec_comp_case1_ep", p.zspec_comp_case1_ep);
    if (p.nr_proc_min_freq_bin > p.nr_proc_max_freq_bin)
        c.add("nr_proc_min_freq_bin", "processing range is empty: " + std::to_string(p.nr_proc_min_freq_bin) +
                                          " > nr_proc_max_freq_bin " + std::to_string(p.nr_proc_max_freq_bin));
    if (pc.nr_ctrl_freq_sp > pc.nr_ctrl_freq_ep)
        c.add("nr_ctrl_freq_sp", "control band is empty: " + std::to_string(pc.nr_ctrl_freq_sp) +
                                     " > nr_ctrl_freq_ep " + std::to_string(pc.nr_ctrl_freq_ep));
}

// Newton's step y' = y(2 - xy) converges to 1/x exactly when 0 < y < 2/x.
// Seed D[j] serves S[j+1] < x <= S[j] (j = 27: x = S[27], the floor), so the
// binding end is x = S[j].
void check_division_table(const st_vorl &p, Checker &c) {
    const float *s = p.div_search_tbl_f;
    const float *d = p.div_init_value_tbl_f;
    if (!(s[27] > 0.0f)) c.add(at("div_search_tbl_f", 27), "thresholds must be positive, found " + num(s[27]));
    for (int j = 1; j < 28; ++j)
        if (!(s[j] < s[j - 1]))
            c.add(at("div_search_tbl_f", j),
                  "thresholds must decrease strictly (" + num(s[j - 1]) + " then " + num(s[j]) + ")");
    for (int j = 0; j < 28; ++j) {
        const double product = static_cast<double>(d[j]) * static_cast<double>(s[j]);
        if (!(d[j] > 0.0f))
            c.add(at("div_init_value_tbl_f", j), "starting value must be positive, found " + num(d[j]));
        else if (!(product < 2.0))
            c.add(at("div_init_value_tbl_f", j), "Newton step diverges: " + num(d[j]) + " is not below 2/x = " +
                                                     num(2.0 / static_cast<double>(s[j])) + " at x = " + num(s[j]));
    }
}

void check_counters(const st_vorl &p, const st_vorlc &pc, Checker &c) {
    auto positive = [&](const char *name, int v) {
        if (v <= 0) c.add(name, "block counter must be positive, found " + std::to_string(v));
    };
    positive("nz_block_counter", p.nz_block_counter);
    positive("i_block_counter", p.i_block_counter);
    positive("z_block_counter", p.z_block_counter);
    positive("nr_ctrl_counter", pc.nr_ctrl_counter);
}

// Weights of a previous value in a smoothing or blend must lie in 0..1;
// outside it the recursion grows instead of settling.
void check_weights(const st_vorl &p, const st_vorlc &pc, Checker &c) {
    auto unit = [&](const char *name, float v) {
        if (std::isfinite(v) && (v < 0.0f || v > 1.0f)) c.add(name, "weight must lie in 0..1, found " + num(v));
    };
    unit("nr_floor_coef", p.nr_floor_coef);
    unit("nr_gain_sm_coef", p.nr_gain_sm_coef);
    unit("af_gain_bias_sm_coef", p.af_gain_bias_sm_coef);
    unit("over_est_af_sm_coef", p.over_est_af_sm_coef);
    unit("eq_sm_coef_in", p.eq_sm_coef_in);
    unit("eq_sm_coef_out", p.eq_sm_coef_out);
    unit("over_est_sm_coef", pc.over_est_sm_coef);
    for (int m = 1; m < 7; ++m)
        if (pc.tbl_x[m] > pc.tbl_x[m - 1])
            c.add(at("tbl_x", m), "level thresholds must not increase (" + num(pc.tbl_x[m - 1]) + " then " +
                                      num(pc.tbl_x[m]) + ")");
}

constexpr float kMaxGain = 16.0f;  // +24 dB: beyond it a table is a typo, not a tuning

// The equaliser's gain over frequency stays within 0..16 (below 0 the core
// mutes the bin); each background template stays between 0 and the largest
// power the division table serves, S[0] (its reciprocal is meaningless
// above); gains and over-estimation factors lie in 0..16; the coefficient
// floors are ordered and positive.
void check_bounds(const st_vorl &p, const st_vorlc &pc, Checker &c) {
    auto first_bad = [&](const std::string &where, const float *groups, float lo, float hi, const char *what) {
        bool reported = false;
        const BinCurve curve = group_curve(groups);  // as the core rebuilds it
        for (int bin = 0; bin < kCurveBins; ++bin) {
            const float v = curve[bin];
            if (reported || !std::isfinite(v) || (v >= lo && v <= hi)) continue;
            reported = true;
            c.add(where, std::string(what) + " " + num(v) + " at bin " + std::to_string(bin) + " outside " + num(lo) +
                             ".." + num(hi));
        }
    };
    first_bad("eq_gain", p.eq_gain, 0.0f, kMaxGain, "equaliser gain");
    static const char *const kTemplate[3] = {"AF", "WT", "TW"};
    for (int t = 0; t < 3; ++t)
        for (int ch = 0; ch < 2; ++ch)
            first_bad("back_ground_noise[" + std::to_string(t) + "][" + std::to_string(ch) + "]",
                      p.back_ground_noise[t][ch], 0.0f, p.div_search_tbl_f[0],
                      (std::string("background template ") + kTemplate[t]).c_str());
    auto gain = [&](const std::string &name, float v) {
        if (std::isfinite(v) && (v < 0.0f || v > kMaxGain)) c.add(name, "must lie in 0..16, found " + num(v));
    };
    gain("over_est", p.over_est);
    gain("over_est_af", p.over_est_af);
    gain("est_noise_bias_z_max", p.est_noise_bias_z_max);
    gain("est_noise_bias_z_nor", p.est_noise_bias_z_nor);
    gain("est_noise_bias_z_min", p.est_noise_bias_z_min);
    gain("est_noise_bias_nz_max", p.est_noise_bias_nz_max);
    gain("est_noise_bias_nz_nor", p.est_noise_bias_nz_nor);
    gain("est_noise_bias_nz_min", p.est_noise_bias_nz_min);
    gain("wind_nr_proc_bias", p.wind_nr_proc_bias);
    for (int m = 0; m < 8; ++m) gain(at("val_x", m), pc.val_x[m]);
    if (!(p.zspec_comp_min_floor_value > 0.0f))
        c.add("zspec_comp_min_floor_value", "coefficient floor must be positive, found " + num(p.zspec_comp_min_floor_value));
    else if (p.zspec_comp_min_floor_value > p.zspec_comp_max_floor_value)
        c.add("zspec_comp_min_floor_value", "lower coefficient floor " + num(p.zspec_comp_min_floor_value) +
                                                " above zspec_comp_max_floor_value " + num(p.zspec_comp_max_floor_value));
}

}  // namespace

std::vector<CurveFault> learned_curve_faults(const st_vorl &p) {
    std::vector<CurveFault> out;
    const float lower = p.zspec_comp_min_floor_value * p.tolerance_range_zspec_min;
    const float tol = p.tolerance_range_zspec_max;
    for (int ch = 0; ch < 2; ++ch) {
        float v = p.zspec_comp_coef_f_LR_d[ch][0];
        for (int j = 0; j < 72; ++j) {
            if (j > 0) {
                const int bins = static_cast<int>(p.zspec_comp_base_bin[j]) -
                                 static_cast<int>(p.zspec_comp_base_bin[j - 1]);
                v = v + p.zspec_comp_coef_f_LR_d[ch][j] * static_cast<float>(bins);
            }
            const float upper = p.zspec_comp_coef_f_LR_d_max[ch][j] * tol;
            if (v < lower) out.push_back({ch, j, v, lower, false});
            if (v > upper) out.push_back({ch, j, v, upper, true});
        }
    }
    return out;
}

std::vector<Violation> check_learned_curve(const st_vorl &p) {
    std::vector<Violation> out;
    const CurveFault *previous = nullptr;
    for (const CurveFault &f : learned_curve_faults(p)) {
        // An infinite node makes every later node of its channel infinite:
        // one fault, not one per band.
        const bool inherited = previous != nullptr && previous->channel == f.channel &&
                               previous->band == f.band - 1 && std::isinf(previous->value) && std::isinf(f.value);
        previous = &f;
        if (inherited) continue;
        out.push_back({"zspec_comp_coef_f_LR_d[" + std::to_string(f.channel) + "][" + std::to_string(f.band) + "]",
                       "learned curve " + num(f.value) + (f.above ? " above its limit " : " below its lower limit ") +
                           num(f.limit)});
    }
    return out;
}

std::string describe(const CurveFault &f, const st_vorl &p) {
    constexpr double kBinHz = 48000.0 / 512.0;
    const int first = band_first_bin(p, f.band);
    const int last = p.zspec_comp_base_bin[f.band];
    const double lo = first * kBinHz, hi = std::max(first, last) * kBinHz;
    char range[64];
    if (first >= last)
        std::snprintf(range, sizeof range, hi < 1000.0 ? "%.0f Hz" : "%.2f kHz", hi < 1000.0 ? hi : hi / 1000.0);
    else if (hi < 1000.0)
        std::snprintf(range, sizeof range, "%.0f\u2013%.0f Hz", lo, hi);
    else
        std::snprintf(range, sizeof range, "%.2f\u2013%.2f kHz", lo / 1000.0, hi / 1000.0);
    char values[96];
    std::snprintf(values, sizeof values, "%.3g %s %.3g", static_cast<double>(f.value),
                  f.above ? "above its limit" : "below its lower limit", static_cast<double>(f.limit));
    return "band " + std::to_string(f.band) + ", " + range + ", " + (f.channel == 0 ? "left" : "right") + ": " + values;
}

std::vector<Violation> check_table_rules(const st_vorl_tbl &t) {
    std::vector<Violation> out;
    Checker c(out);
    char buf[64];
    if (t.tbl_version != VORL_TBL_VERSION) {
        std::snprintf(buf, sizeof buf, "0x%08" PRIx32 ", expected 0x%08x", t.tbl_version, VORL_TBL_VERSION);
        c.add("tbl_version", std::string("unsupported version ") + buf);
    }
    const uint32_t sum = checksum(t);
    if (sum != t.check_sum) {
        std::snprintf(buf, sizeof buf, "0x%08" PRIx32 " but the words sum to 0x%08" PRIx32, t.check_sum, sum);
        c.add("check_sum", buf);
    }
    check_finite(t, c);
    check_band_nodes(t.st_vorl, c);
    check_ranges(t.st_vorl, t.st_vorlc, c);
    check_division_table(t.st_vorl, c);
    check_counters(t.st_vorl, t.st_vorlc, c);
    check_weights(t.st_vorl, t.st_vorlc, c);
    check_bounds(t.st_vorl, t.st_vorlc, c);
    for (Violation &v : check_learned_curve(t.st_vorl)) out.push_back(std::move(v));
    return out;
}

std::string summarise(const std::vector<Violation> &broken) {
    return "breaks " + std::to_string(broken.size()) + " table rule" + (broken.size() == 1 ? "" : "s") + ", first " +
           broken.front().where + ": " + broken.front().problem;
}

}  // namespace vorl::tablekit
