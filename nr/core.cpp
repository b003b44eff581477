// Suppression core: per-bin noise estimate (zoom-motor part from the
// channel-difference power plus a background template), spectral-subtraction
// gain with over-estimation, floor and time smoothing, equaliser, and the
// accumulators the learning step refits the zoom-noise model from.
#include <cstring>

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

// Clamps a channel's powers in place (the caller keeps the unclamped ones)
// and returns each bin's reciprocal.
void clamp_and_invert(float *pow, float *recip, const st_vorl &p, vorl::simd::Path path) {
    if (const vorl::simd::Kernels *k = vorl::simd::kernels(path)) {
        k->recip(pow, recip, kBins, 2, p.div_search_tbl_f, p.div_init_value_tbl_f);
        return;
    }
    for (int i = 0; i < kBins; ++i) recip[i] = sound_vorl_recip(&pow[i], 2, &p);
}

// Power spectra of both channels and of their difference; returns the total
// power of both channels and stores the control-band difference power.
float measure_powers(const float *l, const float *r, st_vorl_ws *ws, float *control_pow) {
    const st_vorlc &pc = ws->st_vorlc_work;
    float total = 0.0f;
    float control = 0.0f;
    for (int i = 0; i < kBins; ++i) {
        float pl = l[i] * l[i];
        float pr = r[i] * r[i];
        const float dre = l[i] - r[i];
        float pd = dre * dre;
        if (i > 0) {  // bin 0 is real; the Nyquist element does not enter
            const int im = 512 - i;
            pl = pl + l[im] * l[im];
            pr = pr + r[im] * r[im];
            const float dim = l[im] - r[im];
            pd = pd + dim * dim;
        }
        ws->pow_spec[0][i] = pl;
        ws->pow_spec[1][i] = pr;
        ws->diff_pow[i] = pd;
        total = (total + pl) + pr;
        if (pc.nr_ctrl_freq_sp <= i && i <= pc.nr_ctrl_freq_ep) control = control + pd;
    }
    *control_pow = control;
    return total;
}

// The block's values every bin reads.
struct BlockValues {
    const st_vorl *p;
    const float (*background)[vorl::kBinGroups];  // the selected template
    float oe, oe_wind;  // over-estimation without and with wind
    float bias;         // noise bias of the zoom-noise estimate
    float keep;         // 1 - nr_gain_sm_coef
    uint32_t zn_on, bgn_on;
};

// Noise power of one channel at bin i: the zoom-motor part, from the running
// coefficient sum and the difference power, plus the background template's
// running sum.
inline float noise_estimate(const BlockValues &b, int i, float coef_sum, float bg_sum, float diff_pow) {
    const st_vorl &p = *b.p;
    const float z = i > p.zspec_comp_max_freq ? p.zspec_comp_replace_value : coef_sum;
    const float zoom_noise_raw = z * (diff_pow * b.bias);
    const float zoom_noise = b.zn_on == 1 && zoom_noise_raw > 0.0f ? zoom_noise_raw : 0.0f;
    const float bg = bg_sum > 0.0f ? bg_sum : 0.0f;
    return b.bgn_on == 1 ? zoom_noise + bg : zoom_noise;
}

// Spectral-subtraction gain from the noise-to-power ratio, floored, outside
// the processed bins 1, smoothed over time in gain_prev.
inline float smoothed_gain(const BlockValues &b, int i, float ratio, float &gain_prev) {
    const st_vorl &p = *b.p;
    ratio = ratio * (i < p.wind_nr_proc_freq ? b.oe_wind : b.oe);
    const bool outside = i < p.nr_proc_min_freq_bin || i > p.nr_proc_max_freq_bin;
    const float raw_gain = outside ? 1.0f : 1.0f - ratio;
    const float gain = p.nr_floor_coef >= raw_gain ? p.nr_floor_coef : raw_gain;
    const float smoothed = p.nr_gain_sm_coef * gain_prev + b.keep * gain;
    gain_prev = smoothed;
    return smoothed;
}

// Both parts of bin i scaled by equaliser and gain; bin 0 pairs DC with Nyquist.
inline void apply_gain(float *x, int i, float eq, float gain) {
    const int im = i == 0 ? 256 : 512 - i;
    x[i] = (x[i] * eq) * gain;
    x[im] = (x[im] * eq) * gain;
}

// Smoothed powers of one bin that the learning step accumulates.
struct BinPowers {
    float p3[2];   // 3-tap channel powers
    float p5_sum;  // 5-tap channel powers, summed over the channels
    float d3, d5;  // 3- and 5-tap difference power
};

// Fit points (odd bins 1..95) and band ends feed the learning step; a
// malformed band list holds the band counter at the last band.
inline void accumulate(st_vorl_ws *ws, const st_vorl &p, int i, const BinPowers &s, int &band) {
    if ((i & 1) != 0 && i <= vorl::kOddBinLimit) {
        const int point = i / 2;
        ws->zspec_acc[2][point] += s.p5_sum;
        ws->zspec_acc[ws->zspec_slot][point] += s.d5;
    }
    if (i == p.zspec_comp_base_bin[band]) {
        ws->band_acc[1][band] += s.p3[0];
        ws->band_acc[2][band] += s.p3[1];
        ws->band_acc[0][band] += s.d3;
        if (band < kBands - 1) ++band;
    }
}

}  // namespace

int32_t vorl::core(float *const *spec, st_vorl_inst *inst, simd::Path path) {
    st_vorl_ws *ws = inst->p_ws;
    const st_vorl &p = ws->st_vorl_work;
    const int channels = vorl::stage_channels(inst->ch_num_proc);

    float control_pow;
    const float total_pow = measure_powers(spec[0], spec[1], ws, &control_pow);

    const float oe = ws->over_est_cur;
    // Templates 0..2 exist; an out-of-range drive code falls back to "AF".
    const int sel = ws->bgn_sel >= 0 && ws->bgn_sel <= 2 ? ws->bgn_sel : 0;
    const BlockValues b{&p,
                        p.back_ground_noise[sel],
                        oe,
                        inst->wind_state == 1 ? p.wind_nr_proc_bias * oe : oe,
                        ws->bias_cur,
                        1.0f - p.nr_gain_sm_coef,
                        ws->zn_on,
                        ws->bgn_on};
    const float *zcomp = ws->p_zcomp;

    float raw_pow[2][kBins];
    float recips[2][kBins];
    for (int ch = 0; ch < channels; ++ch) {
        std::memcpy(raw_pow[ch], ws->pow_spec[ch], sizeof raw_pow[ch]);
        clamp_and_invert(ws->pow_spec[ch], recips[ch], p, path);
    }

    float eq = ws->eq_start;
    float bg_sum[2] = {0.0f, 0.0f};
    float coef_sum[2] = {0.0f, 0.0f};
    int band = 0;

    for (int i = 0; i < kBins; ++i) {
        const int group = vorl::bin_group(i);
        if (i >= 1) eq = eq + p.eq_gain[group] * ws->eq_slope_scale;
        const float eq_applied = eq > 0.0f ? eq : 0.0f;

        BinPowers s{{0.0f, 0.0f}, 0.0f, 0.0f, 0.0f};
        s.d3 = smooth3(ws->diff_pow, ws->diff_pow, i);
        s.d5 = smooth5(ws->diff_pow, ws->diff_pow, i, s.d3);
        for (int ch = 0; ch < channels; ++ch) {
            s.p3[ch] = smooth3(ws->pow_spec[ch], raw_pow[ch], i);
            s.p5_sum += smooth5(ws->pow_spec[ch], raw_pow[ch], i, s.p3[ch]);
            const float recip = recips[ch][i];
            coef_sum[ch] += zcomp[ch * kBands + band];
            bg_sum[ch] += b.background[ch][group];
            const float noise = noise_estimate(b, i, coef_sum[ch], bg_sum[ch], ws->diff_pow[i]);
            const float gain = smoothed_gain(b, i, recip * noise, ws->gain_prev[ch][i]);
            apply_gain(spec[ch], i, eq_applied, gain);
        }
        accumulate(ws, p, i, s, band);
    }

    ws->level_acc += total_pow * kFrameScale;
    ws->ctrl_pow_acc += control_pow * ws->st_vorlc_work.nr_ctrl_f_ave_coef;
    return 0;
}

extern "C" int32_t sound_vorl_core_sac(float *const *spec, st_vorl_inst *inst) {
    return vorl::core(spec, inst, vorl::simd::active_path());
}
