// Suppression core: per-bin noise estimate (zoom-motor part from the
// channel-difference power plus a background template), spectral-subtraction
// gain with over-estimation, floor and time smoothing, equaliser, and the
// accumulators the learning step refits the zoom-noise model from.
#include "vorl.h"

namespace {

constexpr int kBins = 256;
constexpr int kBands = 72;
constexpr int kOddBinLimit = 95;            // odd bins 1..95: the 48 fit points
constexpr float kOneThird = 0.33333334f;    // outer taps of the 5-tap smoother
constexpr float kTwoThirds = 0.6666667f;    // inner taps of the 3- and 5-tap smoothers
constexpr float kFrameScale = 0.001953125f; // 1/512: total power to a per-frame level

// Three-tap smoothing, neighbours outside 0..255 left out (no renormalisation).
inline float smooth3(const float *q, int i) {
    float v = q[i];
    if (i >= 1) v = v + kTwoThirds * q[i - 1];
    if (i + 1 < kBins) v = v + kTwoThirds * q[i + 1];
    return v;
}

// Five-tap smoothing from the three-tap value.
inline float smooth5(const float *q, int i, float three) {
    float v = three;
    if (i >= 2) v = v + kOneThird * q[i - 2];
    if (i + 2 < kBins) v = v + kOneThird * q[i + 2];
    return v;
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

}  // namespace

extern "C" int32_t sound_vorl_core_sac(float *const *spec, st_vorl_inst *inst) {
    st_vorl_ws *ws = inst->p_ws;
    const st_vorl &p = ws->st_vorl_work;
    const int channels = inst->ch_num_proc > 2 ? 2 : inst->ch_num_proc;

    float control_pow;
    const float total_pow = measure_powers(spec[0], spec[1], ws, &control_pow);

    const float oe = ws->over_est_cur;
    const float oe_wind = inst->wind_state == 1 ? p.wind_nr_proc_bias * oe : oe;
    // Templates 0..2 exist; an out-of-range drive code falls back to "AF".
    const int sel = ws->bgn_sel >= 0 && ws->bgn_sel <= 2 ? ws->bgn_sel : 0;
    const float(*background)[65] = p.back_ground_noise[sel];
    const float *zcomp = ws->p_zcomp;
    const float keep = 1.0f - p.nr_gain_sm_coef;
    const uint8_t slot = ws->zspec_slot;

    float eq = ws->eq_start;
    float bg_sum[2] = {0.0f, 0.0f};
    float coef_sum[2] = {0.0f, 0.0f};
    int band = 0;
    int odd = 0;

    for (int i = 0; i < kBins; ++i) {
        const int group = (i + 3) / 4;
        if (i >= 1) eq = eq + p.eq_gain[group] * ws->eq_slope_scale;
        const float eq_applied = eq > 0.0f ? eq : 0.0f;

        const float d3 = smooth3(ws->diff_pow, i);
        const float d5 = smooth5(ws->diff_pow, i, d3);

        float p5_sum = 0.0f;
        float p3[2] = {0.0f, 0.0f};
        for (int ch = 0; ch < channels; ++ch) {
            float *pow = ws->pow_spec[ch];
            p3[ch] = smooth3(pow, i);
            p5_sum += smooth5(pow, i, p3[ch]);
            // The clamp is written back, so later bins smooth clamped powers.
            const float recip = sound_vorl_recip(&pow[i], 2, &p);

            coef_sum[ch] += zcomp[ch * kBands + band];
            const float z = i > p.zspec_comp_max_freq ? p.zspec_comp_replace_value : coef_sum[ch];
            const float zoom_noise_raw = z * (ws->diff_pow[i] * ws->bias_cur);
            const float zoom_noise = ws->zn_on == 1 && zoom_noise_raw > 0.0f ? zoom_noise_raw : 0.0f;

            bg_sum[ch] += background[ch][group];
            const float bg = bg_sum[ch] > 0.0f ? bg_sum[ch] : 0.0f;
            const float noise = ws->bgn_on == 1 ? zoom_noise + bg : zoom_noise;

            float ratio = recip * noise;
            ratio = ratio * (i < p.wind_nr_proc_freq ? oe_wind : oe);
            const bool outside = i < p.nr_proc_min_freq_bin || i > p.nr_proc_max_freq_bin;
            const float raw_gain = outside ? 1.0f : 1.0f - ratio;
            const float gain = p.nr_floor_coef >= raw_gain ? p.nr_floor_coef : raw_gain;
            const float smoothed = p.nr_gain_sm_coef * ws->gain_prev[ch][i] + keep * gain;
            ws->gain_prev[ch][i] = smoothed;

            float *x = spec[ch];
            const int im = i == 0 ? 256 : 512 - i;  // bin 0 pairs DC with Nyquist
            x[i] = (x[i] * eq_applied) * smoothed;
            x[im] = (x[im] * eq_applied) * smoothed;
        }

        if ((i & 1) != 0 && i <= kOddBinLimit) {
            ws->zspec_acc[2][odd] += p5_sum;
            ws->zspec_acc[slot][odd] += d5;
            ++odd;
        }
        if (i == p.zspec_comp_base_bin[band]) {
            ws->band_acc[1][band] += p3[0];
            ws->band_acc[2][band] += p3[1];
            ws->band_acc[0][band] += d3;
            if (band < kBands - 1) ++band;  // a malformed node list holds the last band
        }
    }

    ws->level_acc += total_pow * kFrameScale;
    ws->ctrl_pow_acc += control_pow * ws->st_vorlc_work.nr_ctrl_f_ave_coef;
    return 0;
}
