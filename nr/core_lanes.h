// The core's per-bin work on lane types: power spectra, gains with their
// time smoothing, and the spectrum scaling. Each lane does exactly the
// scalar core's operations for its bin; the running sums over bins
// (equaliser, coefficient and background sums, band counter) are formed
// beforehand, in bin order, into per-bin arrays. Included by core.cpp (the
// scalar lane) and by one file per instruction set; internal linkage only.
#pragma once

#include "nr/engine_constants.h"
#include "nr/lanes.h"
#include "nr/simd_path.h"

namespace {

constexpr int kSpectrumBins = 256;

// Mirrored run x[512-i-W+1 .. 512-i] in lane order i .. i+W-1.
template <class V>
inline float *mirror(float *x, int i) {
    return x + 512 - i - V::kWidth + 1;
}
template <class V>
inline const float *mirror(const float *x, int i) {
    return x + 512 - i - V::kWidth + 1;
}

// Powers of bins i.. of both channels and of their difference (bins >= 1).
template <class V>
int power_lanes(const float *l, const float *r, float *pl, float *pr, float *pd, int i) {
    for (; i + V::kWidth <= kSpectrumBins; i += V::kWidth) {
        const V lre = V::load(l + i), rre = V::load(r + i);
        const V lim = V::reverse(V::load(mirror<V>(l, i))), rim = V::reverse(V::load(mirror<V>(r, i)));
        V a = lre * lre;
        V b = rre * rre;
        const V dre = lre - rre;
        V d = dre * dre;
        a = a + lim * lim;
        b = b + rim * rim;
        const V dim = lim - rim;
        d = d + dim * dim;
        V::store(pl + i, a);
        V::store(pr + i, b);
        V::store(pd + i, d);
    }
    return i;
}

// Smoothed gains of bins i.. of one channel, written to gain_prev; the
// background enters as max(background, 0).
template <class V>
int gain_lanes(const vorl::simd::GainInputs &g, float *gain_prev, int i) {
    const V zero = V::set1(0.0f), one = V::set1(1.0f), half = V::set1(0.5f);
    const V bias = V::set1(g.bias), floor = V::set1(g.floor);
    const V smooth = V::set1(g.smooth), keep = V::set1(g.keep);
    for (; i + V::kWidth <= kSpectrumBins; i += V::kWidth) {
        const V raw = V::load(g.zoom_coef + i) * (V::load(g.diff_pow + i) * bias);
        V noise = g.zoom_on ? V::select(V::greater(raw, zero), raw, zero) : zero;
        if (g.background_on) {
            const V bg = V::load(g.background + i);
            noise = noise + V::select(V::greater(bg, zero), bg, zero);
        }
        V ratio = V::load(g.recip + i) * noise;
        ratio = ratio * V::load(g.over_est + i);
        const V processed = V::greater(V::load(g.processed + i), half);
        const V raw_gain = V::select(processed, one - ratio, one);
        const V gain = V::select(V::less_equal(raw_gain, floor), floor, raw_gain);
        V::store(gain_prev + i, smooth * V::load(gain_prev + i) + keep * gain);
    }
    return i;
}

// Both parts of bins i.. (>= 1) scaled by equaliser (max(eq, 0)) and gain.
template <class V>
int apply_lanes(float *x, const float *eq, const float *gain, int i) {
    const V zero = V::set1(0.0f);
    for (; i + V::kWidth <= kSpectrumBins; i += V::kWidth) {
        const V e0 = V::load(eq + i), gn = V::load(gain + i);
        const V e = V::select(V::greater(e0, zero), e0, zero);
        V::store(x + i, (V::load(x + i) * e) * gn);
        float *im = mirror<V>(x, i);
        V::store(im, V::reverse((V::reverse(V::load(im)) * e) * gn));
    }
    return i;
}

// The learning step's smoothing (smooth3 and smooth5 in core.cpp) of one
// power spectrum away from its ends: bins below i from done, bin i and
// above from ahead.
constexpr int kFiveTapEnd = 98;  // 5-tap values up to bin 97 (fit points end at 95)

template <class V>
inline void smooth3_step(const float *done, const float *ahead, float *three, int i) {
    const V c = V::set1(vorl::kTwoThirds);
    const V v = V::load(ahead + i) + c * V::load(done + i - 1);
    V::store(three + i, v + c * V::load(ahead + i + 1));
}

template <class V>
inline void smooth5_step(const float *done, const float *ahead, const float *three, float *five, int i) {
    const V c = V::set1(vorl::kOneThird);
    const V v = V::load(three + i) + c * V::load(done + i - 2);
    V::store(five + i, v + c * V::load(ahead + i + 2));
}

// Steps over bins begin..end-1 (at least W of them); where W does not divide
// the count the last step overlaps the one before (it writes the same values).
template <class V, class Step>
inline void over_bins(int begin, int end, Step step) {
    for (int i = begin; i + V::kWidth <= end; i += V::kWidth) step(i);
    if ((end - begin) % V::kWidth != 0) step(end - V::kWidth);
}

// 3-tap values of bins 1..254, then 5-tap values of bins 2..97 from them.
template <class V>
void smooth_lanes(const float *done, const float *ahead, float *three, float *five) {
    over_bins<V>(1, kSpectrumBins - 1, [&](int i) { smooth3_step<V>(done, ahead, three, i); });
    over_bins<V>(2, kFiveTapEnd, [&](int i) { smooth5_step<V>(done, ahead, three, five, i); });
}

// Whole-spectrum kernels: the widest lanes, then four, then one.
template <class Wide>
void powers_all(const float *l, const float *r, float *pl, float *pr, float *pd) {
    pl[0] = l[0] * l[0];  // bin 0 is real; the Nyquist element does not enter
    pr[0] = r[0] * r[0];
    const float d0 = l[0] - r[0];
    pd[0] = d0 * d0;
    int i = power_lanes<Wide>(l, r, pl, pr, pd, 1);
    if constexpr (Wide::kWidth > 4) i = power_lanes<F4>(l, r, pl, pr, pd, i);
    power_lanes<F1>(l, r, pl, pr, pd, i);
}

template <class Wide>
void gains_all(const vorl::simd::GainInputs &g, float *gain_prev) {
    const int i = gain_lanes<Wide>(g, gain_prev, 0);  // 256 bins: whole steps
    gain_lanes<F1>(g, gain_prev, i);
}

template <class Wide>
void apply_all(float *x, const float *eq, const float *gain) {
    const float e = eq[0] > 0.0f ? eq[0] : 0.0f;
    x[0] = (x[0] * e) * gain[0];  // bin 0 pairs DC with Nyquist
    x[256] = (x[256] * e) * gain[0];
    int i = apply_lanes<Wide>(x, eq, gain, 1);
    if constexpr (Wide::kWidth > 4) i = apply_lanes<F4>(x, eq, gain, i);
    apply_lanes<F1>(x, eq, gain, i);
}

}  // namespace
