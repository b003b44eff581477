// The 512-point real transforms on lane types (nr/lanes.h): the butterflies
// of rfft_forward.cpp and rfft_inverse.cpp written once over a value type,
// so a lane does exactly the scalar operations in the same order.
//  - Short stages (Q = 2, 8) run one block per lane: rows of four blocks are
//    transposed into lanes. The bit reversal and the radix-2 pass are folded
//    into the Q = 2 stage: a lane gathers its block's inputs from the
//    reversed positions, which for four blocks with consecutive reversed
//    numbers are four consecutive floats.
//  - Long stages (Q = 32, 128) run consecutive k per lane, with the mirrored
//    elements loaded and stored in reversed lane order, and twiddles read
//    from the recurrence's table.
// Included by one file per instruction set; everything has internal linkage.
#pragma once

#include <cstring>

#include "fft/butterflies.h"
#include "fft/twiddle_table.h"
#include "nr/lanes.h"

namespace {

constexpr int kFftLength = 512;

// Bit reversal of the 6-bit block number and of the 3-bit index in a block.
constexpr int reverse_bits(int v, int bits) {
    int r = 0;
    for (int b = 0; b < bits; ++b) r |= ((v >> b) & 1) << (bits - 1 - b);
    return r;
}

// General butterflies of k = k .. end-1 of the block at x, V::kWidth k per
// step while whole steps fit; returns the first k left over.
template <class V, bool kForward>
int butterflies_k(float *x, int q, int k, int end, const float (*w)[64]) {
    constexpr int kW = V::kWidth;
    for (; k + kW <= end; k += kW) {
        const int back = 1 - kW;  // a mirrored run x[m-k-W+1 .. m-k], reversed
        float *at[8] = {x + k, x + q - k + back, x + q + k, x + 2 * q - k + back,
                        x + 2 * q + k, x + 3 * q - k + back, x + 3 * q + k, x + 4 * q - k + back};
        V e[8], t[6];
        for (int i = 0; i < 8; ++i) e[i] = i % 2 ? V::reverse(V::load(at[i])) : V::load(at[i]);
        for (int i = 0; i < 6; ++i) t[i] = V::load(w[i] + k);
        if (kForward)
            forward_k(e, t);
        else
            inverse_k(e, t);
        for (int i = 0; i < 8; ++i) V::store(at[i], i % 2 ? V::reverse(e[i]) : e[i]);
    }
    return k;
}

// One long stage (Q = 32 or 128) over the whole frame.
template <class Wide, bool kForward>
void long_stage(float *x, int q, const float (*w)[64], float r) {
    for (int b = 0; b < kFftLength; b += 4 * q) {
        float *blk = x + b;
        const int h = q / 2;
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
        int k = butterflies_k<Wide, kForward>(blk, q, 1, h, w);
        if constexpr (Wide::kWidth > 4) k = butterflies_k<F4, kForward>(blk, q, k, h, w);
        butterflies_k<F1, kForward>(blk, q, k, h, w);
    }
}

// The Q = 8 stage, four blocks of 32 per step, one block per lane.
template <bool kForward>
void stage_q8(float *x, const float (*w)[64], float r) {
    for (int b = 0; b < kFftLength; b += 4 * 32) {
        F4 e[32];
        for (int g = 0; g < 8; ++g) {
            F4 *rows = e + 4 * g;
            for (int j = 0; j < 4; ++j) rows[j] = F4::load(x + b + 32 * j + 4 * g);
            F4::transpose(rows);
        }
        const F4 rr = F4::set1(r);
        if (kForward)
            forward_zero(e[0], e[8], e[16], e[24]);
        else
            inverse_zero(e[0], e[8], e[16], e[24]);
        for (int k = 1; k < 4; ++k) {
            F4 v[8] = {e[k], e[8 - k], e[8 + k], e[16 - k], e[16 + k], e[24 - k], e[24 + k], e[32 - k]};
            F4 t[6];
            for (int i = 0; i < 6; ++i) t[i] = F4::set1(w[i][k]);
            if (kForward)
                forward_k(v, t);
            else
                inverse_k(v, t);
            e[k] = v[0], e[8 - k] = v[1], e[8 + k] = v[2], e[16 - k] = v[3];
            e[16 + k] = v[4], e[24 - k] = v[5], e[24 + k] = v[6], e[32 - k] = v[7];
        }
        if (kForward)
            forward_middle(e[4], e[12], e[20], e[28], rr);
        else
            inverse_middle(e[4], e[12], e[20], e[28], rr);
        for (int g = 0; g < 8; ++g) {
            F4 *rows = e + 4 * g;
            F4::transpose(rows);
            for (int j = 0; j < 4; ++j) F4::store(x + b + 32 * j + 4 * g, rows[j]);
        }
    }
}

// Forward: bit reversal, radix-2 pass and the Q = 2 stage in one pass.
// Lanes j = 0..3 are the blocks whose reversed numbers are m + j.
void forward_first_pass(float *x, float r) {
    float in[kFftLength];
    std::memcpy(in, x, sizeof in);
    const F4 rr = F4::set1(r);
    for (int m = 0; m < 64; m += 4) {
        F4 a[8];
        for (int i = 0; i < 8; ++i) a[i] = F4::load(in + 64 * reverse_bits(i, 3) + m);
        F4 y[8];
        for (int i = 0; i < 8; i += 2) {
            y[i] = a[i] + a[i + 1];
            y[i + 1] = a[i] - a[i + 1];
        }
        forward_zero(y[0], y[2], y[4], y[6]);
        forward_middle(y[1], y[3], y[5], y[7], rr);
        F4::transpose(y);
        F4::transpose(y + 4);
        for (int j = 0; j < 4; ++j) {
            float *blk = x + 8 * reverse_bits(m + j, 6);
            F4::store(blk, y[j]);
            F4::store(blk + 4, y[4 + j]);
        }
    }
}

// Inverse: the Q = 2 stage, radix-2 pass and bit reversal in one pass.
void inverse_last_pass(float *x, float r) {
    float in[kFftLength];
    std::memcpy(in, x, sizeof in);
    const F4 rr = F4::set1(r);
    for (int m = 0; m < 64; m += 4) {
        F4 e[8];
        for (int j = 0; j < 4; ++j) {
            const float *blk = in + 8 * reverse_bits(m + j, 6);
            e[j] = F4::load(blk);
            e[4 + j] = F4::load(blk + 4);
        }
        F4::transpose(e);
        F4::transpose(e + 4);
        inverse_zero(e[0], e[2], e[4], e[6]);
        inverse_middle(e[1], e[3], e[5], e[7], rr);
        for (int i = 0; i < 8; i += 2) {
            const F4 a0 = e[i], a1 = e[i + 1];
            F4::store(x + 64 * reverse_bits(i, 3) + m, a0 + a1);
            F4::store(x + 64 * reverse_bits(i + 1, 3) + m, a0 - a1);
        }
    }
}

template <class Wide>
void rfft512_lanes(float *x, const vorl::fft::TwiddleTable &t) {
    forward_first_pass(x, t.middle);
    stage_q8<true>(x, t.w[0], t.middle);
    long_stage<Wide, true>(x, 32, t.w[1], t.middle);
    long_stage<Wide, true>(x, 128, t.w[2], t.middle);
}

template <class Wide>
void irfft512_lanes(float *x, const vorl::fft::TwiddleTable &t) {
    long_stage<Wide, false>(x, 128, t.w[2], t.middle);
    long_stage<Wide, false>(x, 32, t.w[1], t.middle);
    stage_q8<false>(x, t.w[0], t.middle);
    inverse_last_pass(x, t.middle);
}

}  // namespace
