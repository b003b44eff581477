// Analysis windowing and the float half of synthesis on lane types. The
// window over a frame is its rising half read forward for t = 0..255 and
// backward from t = 256 on (w[t] = half[512 - t], which at t = 256 is
// half[256] either way). Included by stages.cpp (the scalar lane) and by
// one file per instruction set; internal linkage only.
#pragma once

#include <cstdint>

#include "nr/lanes.h"

namespace {

constexpr int kFrameLength = 512;

template <class V>
inline V window_lanes(const float *half, int t) {
    return t < 256 ? V::load(half + t) : V::reverse(V::load(half + kFrameLength - t - V::kWidth + 1));
}

// frame[t] = ring[t] * w[t] for one channel.
template <class V>
void analyse_lanes(const int16_t *ring, const float *half, float *frame) {
    for (int t = 0; t < kFrameLength; t += V::kWidth)
        V::store(frame + t, V::from_int16(ring + t) * window_lanes<V>(half, t));
}

// rounded[t]: frame[t] * w[t] rounded half away from zero (by adding or
// subtracting 0.5 in single precision, then truncating), limited to
// +-65536 (beyond which any 16-bit overlap sum saturates alike); 0 for NaN.
template <class V>
void round_lanes(const float *frame, const float *half, int32_t *rounded) {
    const V zero = V::set1(0.0f), point5 = V::set1(0.5f);
    const V top = V::set1(65536.0f), bottom = V::set1(-65536.0f);
    for (int t = 0; t < kFrameLength; t += V::kWidth) {
        const V y = V::load(frame + t) * window_lanes<V>(half, t);
        V r = V::select(V::less_equal(zero, y), y + point5, y - point5);
        r = V::select(V::greater(r, top), top, r);
        r = V::select(V::greater(bottom, r), bottom, r);
        r = V::select(V::less_equal(y, y), r, zero);
        V::truncate_to(rounded + t, r);
    }
}

// Synthesis: both frames rounded, added to the pending half of out (frames
// 0..255) and written fresh to frames 256..511, saturated to 16 bits. The
// sum is formed wider, so a rounded value beyond the 32-bit range
// saturates like one just beyond 16 bits.
template <class V>
void synthesise_lanes(const float *frame0, const float *frame1, const float *half, int16_t *out) {
    int32_t r0[kFrameLength], r1[kFrameLength];
    round_lanes<V>(frame0, half, r0);
    round_lanes<V>(frame1, half, r1);
    for (int t = 0; t < kFrameLength; t += V::kWidth)
        V::overlap_add(out + 2 * t, r0 + t, r1 + t, t < 256);  // 256..511 start the next block's half
}

}  // namespace
