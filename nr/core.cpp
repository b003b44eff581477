// Suppression core: per-bin noise estimate (zoom-motor part from the
// channel-difference power plus a background template), spectral-subtraction
// gain with over-estimation, floor and time smoothing, equaliser, and the
// accumulators the learning step refits the zoom-noise model from.
#include <algorithm>
#include <cstring>

#include "core_lanes.h"
#include "core_paths.h"
#include "engine_constants.h"
#include "vorl.h"

namespace {

using vorl::kBands;
using vorl::kBins;
using vorl::kOneThird;
using vorl::kTwoThirds;

constexpr float kFrameScale = 0.001953125f;  // 1/512: total power to a per-frame level

// Three-tap smoothing, neighbours outside 0..255 left out (no renormalisation).
// Bins below i come from done, bin i and above from ahead: a channel's
// power spectrum is clamped bin by bin as the loop passes, so a bin's
// smoothers see clamped powers below it and unclamped ones from it on.
inline float smooth3(const float *done, const float *ahead, int i) {
    float v = ahead[i];
    if (i >= 1) v = v + kTwoThirds * done[i - 1];
    if (i + 1 < kBins) v = v + kTwoThirds * ahead[i + 1];
    return v;
}

// Five-tap smoothing from the three-tap value.
inline float smooth5(const float *done, const float *ahead, int i, float three) {
    float v = three;
    if (i >= 2) v = v + kOneThird * done[i - 2];
    if (i + 2 < kBins) v = v + kOneThird * ahead[i + 2];
    return v;
}

// Clamps the powers of the first `channels` channels in place (the caller
// keeps the unclamped ones) with each bin's reciprocal, and returns the
// total power: the sum over bins of both channels' powers as given.
float clamp_and_invert(st_vorl_ws *ws, float (*recip)[kBins], int channels, const st_vorl &p,
                       const vorl::simd::Kernels *k) {
    float *const pow[2] = {ws->pow_spec[0], ws->pow_spec[1]};
    float *const out[2] = {recip[0], recip[1]};
    if (k != nullptr)
        return k->clamp_invert(pow, out, channels, kBins, 2, p.div_search_tbl_f, p.div_init_value_tbl_f);
    float total = 0.0f;
    for (int i = 0; i < kBins; ++i) total = (total + pow[0][i]) + pow[1][i];
    for (int ch = 0; ch < channels; ++ch)
        for (int i = 0; i < kBins; ++i) recip[ch][i] = sound_vorl_recip(&pow[ch][i], 2, &p);
    return total;
}

// The running values over bins, formed in bin order: the control-band
// power, the equaliser, each channel's zoom-motor coefficient
// (the running sum of its bands' increments, or the replacement value above
// zspec_comp_max_freq) and background (the template's running sum), the
// band counter (a malformed band list holds it at the last band) and the
// bin ranges of over-estimation and processing. The lanes take equaliser
// and background as max(., 0).
struct BinRuns {
    float control_pow;
    float eq[kBins];
    float over_est[kBins];       // with wind below wind_nr_proc_freq
    float processed[kBins];      // 1 inside nr_proc_min_freq_bin..max, else 0
    float zoom_coef[2][kBins];
    float background[2][kBins];
    uint8_t band[kBins + 15];    // band counter at the bin (then room for whole 16-byte runs)
    uint8_t band_ends[kBands];   // bins that end their band, increasing
    int band_end_count;
};

void form_runs(BinRuns &r, const st_vorl_ws *ws, float oe, float oe_wind, int sel) {
    const st_vorl &p = ws->st_vorl_work;
    const st_vorlc &pc = ws->st_vorlc_work;
    // The bin limits are bytes, so every range ends inside the 256 bins.
    const int wind_end = p.wind_nr_proc_freq;
    std::fill(r.over_est, r.over_est + wind_end, oe_wind);
    std::fill(r.over_est + wind_end, r.over_est + kBins, oe);
    std::fill(r.processed, r.processed + kBins, 0.0f);
    const int proc_end = p.nr_proc_max_freq_bin + 1;
    if (p.nr_proc_min_freq_bin < proc_end)
        std::fill(r.processed + p.nr_proc_min_freq_bin, r.processed + proc_end, 1.0f);
    // Band by band: the counter moves on after the bin that equals its
    // band's end; an end below the current bin is never met, so the counter
    // keeps that band to the last bin.
    r.band_end_count = 0;
    for (int i = 0, band = 0; i < kBins;) {
        const int end = p.zspec_comp_base_bin[band];
        const int last = end >= i ? end : kBins - 1;
        for (int b = i; b <= last; b += 16) std::memset(r.band + b, band, 16);  // bands are short
        if (end >= i) r.band_ends[r.band_end_count++] = static_cast<uint8_t>(end);
        i = last + 1;
        if (band < kBands - 1) ++band;
    }

    // The serial sums side by side, so that their latencies overlap.
    const float *increments[2] = {ws->p_zcomp, ws->p_zcomp + kBands};
    const float(*templates)[vorl::kBinGroups] = p.back_ground_noise[sel];
    // Group by group, each group's steps read once (bin 0 takes no
    // equaliser step).
    const float slope = ws->eq_slope_scale;
    float eq = ws->eq_start;
    float coef_sum[2] = {0.0f, 0.0f}, bg_sum[2] = {0.0f, 0.0f};
    for (int group = 0; group < vorl::kBinGroups; ++group) {
        const float eq_step = p.eq_gain[group] * slope;
        const float bg_step[2] = {templates[0][group], templates[1][group]};
        const int first = group == 0 ? 0 : 4 * group - 3, last = std::min(4 * group, kBins - 1);
        for (int i = first; i <= last; ++i) {
            if (i >= 1) eq = eq + eq_step;
            r.eq[i] = eq;
            for (int ch = 0; ch < 2; ++ch) {
                coef_sum[ch] += increments[ch][r.band[i]];
                bg_sum[ch] += bg_step[ch];
                r.zoom_coef[ch][i] = coef_sum[ch];
                r.background[ch][i] = bg_sum[ch];
            }
        }
    }
    for (int i = p.zspec_comp_max_freq + 1; i < kBins; ++i)
        r.zoom_coef[0][i] = r.zoom_coef[1][i] = p.zspec_comp_replace_value;
    float control = 0.0f;
    for (int i = pc.nr_ctrl_freq_sp; i <= pc.nr_ctrl_freq_ep; ++i) control = control + ws->diff_pow[i];
    r.control_pow = control;
}

// One spectrum's smoothed powers that the learning step samples.
struct Smoothed {
    float three[kBins];
    float five[kFiveTapEnd];  // odd bins 1..95 used
};

void smooth(const float *done, const float *ahead, Smoothed &s, const vorl::simd::Kernels *k) {
    (k != nullptr ? k->smooth : smooth_lanes<F1>)(done, ahead, s.three, s.five);
    s.three[0] = smooth3(done, ahead, 0);  // the ends, with neighbours left out
    s.three[kBins - 1] = smooth3(done, ahead, kBins - 1);
    s.five[1] = smooth5(done, ahead, 1, s.three[1]);
}

// Fit points (odd bins 1..95) and band ends feed the learning step: the
// 5-tap powers at fit points, the 3-tap powers at band ends.
void accumulate(st_vorl_ws *ws, const BinRuns &r, const float (*raw_pow)[kBins], int channels,
                const vorl::simd::Kernels *k) {
    Smoothed pow[2], diff;
    for (int ch = 0; ch < channels; ++ch) smooth(ws->pow_spec[ch], raw_pow[ch], pow[ch], k);
    smooth(ws->diff_pow, ws->diff_pow, diff, k);
    for (int point = 0; point < vorl::kFitPoints; ++point) {
        const int i = 2 * point + 1;
        float p5_sum = 0.0f;
        for (int ch = 0; ch < channels; ++ch) p5_sum += pow[ch].five[i];
        ws->zspec_acc[2][point] += p5_sum;
        ws->zspec_acc[ws->zspec_slot][point] += diff.five[i];
    }
    for (int e = 0; e < r.band_end_count; ++e) {
        const int i = r.band_ends[e];
        const int band = r.band[i];
        float p3[2] = {0.0f, 0.0f};
        for (int ch = 0; ch < channels; ++ch) p3[ch] = pow[ch].three[i];
        ws->band_acc[1][band] += p3[0];
        ws->band_acc[2][band] += p3[1];
        ws->band_acc[0][band] += diff.three[i];
    }
}

}  // namespace

int32_t vorl::core(float *const *spec, st_vorl_inst *inst, simd::Path path) {
    const simd::Kernels *k = simd::kernels(path);
    st_vorl_ws *ws = inst->p_ws;
    const st_vorl &p = ws->st_vorl_work;
    const int channels = vorl::stage_channels(inst->ch_num_proc);

    (k != nullptr ? k->powers : powers_all<F1>)(spec[0], spec[1], ws->pow_spec[0], ws->pow_spec[1], ws->diff_pow);

    const float oe = ws->over_est_cur;
    // Templates 0..2 exist; an out-of-range drive code falls back to "AF".
    const int sel = ws->bgn_sel >= 0 && ws->bgn_sel <= 2 ? ws->bgn_sel : 0;
    BinRuns runs;
    form_runs(runs, ws, oe, inst->wind_state == 1 ? p.wind_nr_proc_bias * oe : oe, sel);

    float raw_pow[2][kBins], recip[2][kBins];
    for (int ch = 0; ch < channels; ++ch) std::memcpy(raw_pow[ch], ws->pow_spec[ch], sizeof raw_pow[ch]);
    const float total_pow = clamp_and_invert(ws, recip, channels, p, k);
    for (int ch = 0; ch < channels; ++ch) {
        const simd::GainInputs g{runs.zoom_coef[ch], runs.background[ch], ws->diff_pow,    recip[ch],
                                 runs.over_est,      runs.processed,      ws->bias_cur,    p.nr_floor_coef,
                                 p.nr_gain_sm_coef, 1.0f - p.nr_gain_sm_coef, ws->zn_on == 1, ws->bgn_on == 1};
        (k != nullptr ? k->gains : gains_all<F1>)(g, ws->gain_prev[ch]);
        (k != nullptr ? k->apply : apply_all<F1>)(spec[ch], runs.eq, ws->gain_prev[ch]);
    }
    accumulate(ws, runs, raw_pow, channels, k);

    ws->level_acc += total_pow * kFrameScale;
    ws->ctrl_pow_acc += runs.control_pow * ws->st_vorlc_work.nr_ctrl_f_ave_coef;
    return 0;
}

extern "C" int32_t sound_vorl_core_sac(float *const *spec, st_vorl_inst *inst) {
    return vorl::core(spec, inst, vorl::simd::active_path());
}
