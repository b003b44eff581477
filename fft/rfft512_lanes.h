// The 512-point real transforms on lane types (nr/lanes.h): the butterflies
// of rfft_forward.cpp and rfft_inverse.cpp written once over a value type,
// so a lane does exactly the scalar operations in the same order.
//  - Short stages (Q = 2, 8) run one block per lane. The bit reversal and
//    the radix-2 pass are folded into the Q = 2 stage: a lane gathers its
//    block's inputs from the reversed positions, which for W blocks with
//    consecutive reversed numbers are W consecutive floats. The lanes come
//    out of Q = 2 already laid out for Q = 8; rows are transposed only on
//    the way to memory.
//  - Long stages (Q = 32, 128) run consecutive k per lane, with the mirrored
//    elements loaded and stored in reversed lane order, and twiddles read
//    from the recurrence's table.
// Included by one file per instruction set; everything has internal linkage.
#pragma once

#include "fft/butterflies.h"
#include "fft/twiddle_table.h"
#include "nr/lanes.h"

namespace {

constexpr int kFftLength = 512;

// v with its lowest `bits` bits in reverse order.
constexpr int reverse_bits(int v, int bits) {
    int r = 0;
    for (int b = 0; b < bits; ++b) r |= ((v >> b) & 1) << (bits - 1 - b);
    return r;
}

// Where element i (0..7) of butterfly step k .. k+W-1 of a block with
// quarter length q starts: x[m+k ..] for even i, for odd i the mirrored run
// x[m-k-W+1 .. m-k] (m = q (i+1)/2), which lanes take in reversed order.
template <class V>
constexpr int run_at(int i, int q, int k) {
    return i % 2 ? (i + 1) / 2 * q - k + 1 - V::kWidth : i / 2 * q + k;
}

// One general butterfly step: k .. k+W-1 of the block at x into e, and back.
template <class V, bool kForward>
inline void butterflies_k(V *e, const float *x, int q, int k, const float (*w)[64]) {
    V t[6];
    for (int i = 0; i < 8; ++i) {
        const V v = V::load(x + run_at<V>(i, q, k));
        e[i] = i % 2 ? V::reverse(v) : v;
    }
    for (int i = 0; i < 6; ++i) t[i] = V::load(w[i] + k);
    if (kForward)
        forward_k(e, t);
    else
        inverse_k(e, t);
}

template <class V>
inline void store_k(float *x, int q, int k, const V *e) {
    for (int i = 0; i < 8; ++i) V::store(x + run_at<V>(i, q, k), i % 2 ? V::reverse(e[i]) : e[i]);
}

// One long stage (Q = 32 or 128) over the whole frame. The general
// butterflies k = 1 .. Q/2-1 go W per step; where W does not divide Q/2-1
// the last step starts at Q/2-W and overlaps the one before. It is computed
// first, from untouched inputs, and stored last, so the shared lanes are
// written twice with the same values and no narrower lanes are needed.
template <class V, bool kForward>
void long_stage(float *x, int q, const float (*w)[64], float r) {
    constexpr int kW = V::kWidth;
    const int h = q / 2;
    const bool overlap = (h - 1) % kW != 0;
    for (int b = 0; b < kFftLength; b += 4 * q) {
        float *blk = x + b;
        V last[8];
        if (overlap) butterflies_k<V, kForward>(last, blk, q, h - kW, w);
        F1 z[4] = {{blk[0]}, {blk[q]}, {blk[2 * q]}, {blk[3 * q]}};
        F1 m[4] = {{blk[h]}, {blk[q + h]}, {blk[2 * q + h]}, {blk[3 * q + h]}};
        if (kForward) {
            forward_zero(z[0], z[1], z[2], z[3]);
            forward_middle(m[0], m[1], m[2], m[3], F1{r});
        } else {
            inverse_zero(z[0], z[1], z[2], z[3]);
            inverse_middle(m[0], m[1], m[2], m[3], F1{r});
        }
        for (int i = 0; i < 4; ++i) {
            blk[i * q] = z[i].v;
            blk[i * q + h] = m[i].v;
        }
        for (int k = 1; k + kW <= h; k += kW) {
            V e[8];
            butterflies_k<V, kForward>(e, blk, q, k, w);
            store_k(blk, q, k, e);
        }
        if (overlap) store_k(blk, q, h - kW, last);
    }
}

// The Q = 8 butterflies of one block of 32 per lane, e[i] its element i.
template <class V, bool kForward>
inline void q8_butterflies(V *e, const float (*w)[64], V r) {
    if (kForward)
        forward_zero(e[0], e[8], e[16], e[24]);
    else
        inverse_zero(e[0], e[8], e[16], e[24]);
    for (int k = 1; k < 4; ++k) {
        V v[8] = {e[k], e[8 - k], e[8 + k], e[16 - k], e[16 + k], e[24 - k], e[24 + k], e[32 - k]};
        V t[6];
        for (int i = 0; i < 6; ++i) t[i] = V::set1(w[i][k]);
        if (kForward)
            forward_k(v, t);
        else
            inverse_k(v, t);
        e[k] = v[0], e[8 - k] = v[1], e[8 + k] = v[2], e[16 - k] = v[3];
        e[16 + k] = v[4], e[24 - k] = v[5], e[24 + k] = v[6], e[32 - k] = v[7];
    }
    if (kForward)
        forward_middle(e[4], e[12], e[20], e[28], r);
    else
        inverse_middle(e[4], e[12], e[20], e[28], r);
}

// The short stages, one block per lane, with no transposes between them.
// Lane j of step a holds the block of 8 whose reversed number is W a + j
// (its inputs, after bit reversal, are W consecutive floats); that block is
// block 4u + s + (64/W) rev(j), i.e. part s of the block of 32 numbered
// u + (16/W) rev(j). So the four steps a = rev(4u + s), s = 0..3, fill
// group u: W blocks of 32, one per lane, ready for the Q = 8 stage.
template <class V>
struct ShortLayout {
    static constexpr int kLaneBits = V::kWidth == 8 ? 3 : 2;
    static constexpr int kGroups = 16 / V::kWidth;
    // First float of the inputs of step s of group u (after bit reversal).
    static constexpr int step_start(int u, int s) { return V::kWidth * reverse_bits(4 * u + s, 6 - kLaneBits); }
    // First float of lane j's block of 32 in group u.
    static constexpr int block32(int u, int j) { return 32 * (u + kGroups * reverse_bits(j, kLaneBits)); }
};

// Forward: bit reversal, radix-2 pass, Q = 2 and Q = 8 stages. Every input
// is read before the first output is written (the frame is in place).
template <class V>
void forward_short_stages(float *x, const float (*w)[64], float r) {
    using L = ShortLayout<V>;
    constexpr int kW = V::kWidth;
    const V rr = V::set1(r);
    V e[L::kGroups][32];
    for (int u = 0; u < L::kGroups; ++u)
        for (int s = 0; s < 4; ++s) {
            V *y = e[u] + 8 * s;
            for (int i = 0; i < 8; i += 2) {
                const V a0 = V::load(x + 64 * reverse_bits(i, 3) + L::step_start(u, s));
                const V a1 = V::load(x + 64 * reverse_bits(i + 1, 3) + L::step_start(u, s));
                y[i] = a0 + a1;
                y[i + 1] = a0 - a1;
            }
            forward_zero(y[0], y[2], y[4], y[6]);
            forward_middle(y[1], y[3], y[5], y[7], rr);
        }
    for (int u = 0; u < L::kGroups; ++u) {
        q8_butterflies<V, true>(e[u], w, rr);
        for (int g = 0; g < 32; g += kW) {
            V::transpose(e[u] + g);
            for (int j = 0; j < kW; ++j) V::store(x + L::block32(u, j) + g, e[u][g + j]);
        }
    }
}

// Inverse: Q = 8 and Q = 2 stages, radix-2 pass and bit reversal.
template <class V>
void inverse_short_stages(float *x, const float (*w)[64], float r) {
    using L = ShortLayout<V>;
    constexpr int kW = V::kWidth;
    const V rr = V::set1(r);
    V e[L::kGroups][32];
    for (int u = 0; u < L::kGroups; ++u) {
        for (int g = 0; g < 32; g += kW) {
            for (int j = 0; j < kW; ++j) e[u][g + j] = V::load(x + L::block32(u, j) + g);
            V::transpose(e[u] + g);
        }
        q8_butterflies<V, false>(e[u], w, rr);
    }
    for (int u = 0; u < L::kGroups; ++u)
        for (int s = 0; s < 4; ++s) {
            V *y = e[u] + 8 * s;
            inverse_zero(y[0], y[2], y[4], y[6]);
            inverse_middle(y[1], y[3], y[5], y[7], rr);
            for (int i = 0; i < 8; i += 2) {
                V::store(x + 64 * reverse_bits(i, 3) + L::step_start(u, s), y[i] + y[i + 1]);
                V::store(x + 64 * reverse_bits(i + 1, 3) + L::step_start(u, s), y[i] - y[i + 1]);
            }
        }
}

template <class Wide>
void rfft512_lanes(float *x, const vorl::fft::TwiddleTable &t) {
    forward_short_stages<Wide>(x, t.w[0], t.middle);
    long_stage<Wide, true>(x, 32, t.w[1], t.middle);
    long_stage<Wide, true>(x, 128, t.w[2], t.middle);
}

template <class Wide>
void irfft512_lanes(float *x, const vorl::fft::TwiddleTable &t) {
    long_stage<Wide, false>(x, 128, t.w[2], t.middle);
    long_stage<Wide, false>(x, 32, t.w[1], t.middle);
    inverse_short_stages<Wide>(x, t.w[0], t.middle);
}

}  // namespace
