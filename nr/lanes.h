// Lane types of the vector paths: a handful of float operations, each one
// instruction, so a kernel written once on a lane type does in every lane
// exactly what the scalar code does. The file that includes this header is
// compiled for one instruction set (SSE2, AVX2 or NEON); everything here has
// internal linkage so no copy built for one set can stand in for another.
#pragma once

#include <cstdint>

#if defined(__SSE2__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace {

// One float: the scalar lane, for the leftovers of a vector loop.
struct F1 {
    static constexpr int kWidth = 1;
    static constexpr bool kPicks = false;  // pick4 / pick32 (small-table lookups)
    float v;
    static F1 load(const float *p) { return {*p}; }
    static void store(float *p, F1 a) { *p = a.v; }
    static F1 set1(float x) { return {x}; }
    static F1 reverse(F1 a) { return a; }
    static F1 greater(F1 a, F1 b) { return {a.v > b.v ? 1.0f : 0.0f}; }
    static F1 less_equal(F1 a, F1 b) { return {a.v <= b.v ? 1.0f : 0.0f}; }
    static F1 select(F1 mask, F1 a, F1 b) { return mask.v != 0.0f ? a : b; }
    static F1 from_int16(const int16_t *p) { return {static_cast<float>(*p)}; }
    // Truncation toward zero of values inside the 32-bit range.
    static void truncate_to(int32_t *p, F1 a) { *p = static_cast<int32_t>(a.v); }
    // table[index], index a whole number inside the table.
    static F1 lookup(const float *table, F1 index) { return {table[static_cast<int>(index.v)]}; }
    // Stereo frames t = 0 .. kWidth-1 of out (interleaved) become the 16-bit
    // saturated sums of r0[t], r1[t] and, with pending, out's values.
    static void overlap_add(int16_t *out, const int32_t *r0, const int32_t *r1, bool pending) {
        const int32_t r[2] = {*r0, *r1};
        for (int c = 0; c < 2; ++c) {
            const int32_t s = (pending ? out[c] : 0) + r[c];
            out[c] = static_cast<int16_t>(s > 32767 ? 32767 : s < -32768 ? -32768 : s);
        }
    }
};
inline F1 operator+(F1 a, F1 b) { return {a.v + b.v}; }
inline F1 operator-(F1 a, F1 b) { return {a.v - b.v}; }
inline F1 operator*(F1 a, F1 b) { return {a.v * b.v}; }

#if defined(__SSE2__)
struct F4 {
    static constexpr int kWidth = 4;
    static constexpr bool kPicks = false;
    __m128 v;
    static F4 load(const float *p) { return {_mm_loadu_ps(p)}; }
    static void store(float *p, F4 a) { _mm_storeu_ps(p, a.v); }
    static F4 set1(float x) { return {_mm_set1_ps(x)}; }
    static F4 reverse(F4 a) { return {_mm_shuffle_ps(a.v, a.v, _MM_SHUFFLE(0, 1, 2, 3))}; }
    static F4 greater(F4 a, F4 b) { return {_mm_cmpgt_ps(a.v, b.v)}; }
    static F4 less_equal(F4 a, F4 b) { return {_mm_cmple_ps(a.v, b.v)}; }
    static F4 select(F4 m, F4 a, F4 b) {
        return {_mm_or_ps(_mm_and_ps(m.v, a.v), _mm_andnot_ps(m.v, b.v))};
    }
    static F4 from_int16(const int16_t *p) {
        const __m128i h = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p));
        return {_mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(h, h), 16))};
    }
    static void truncate_to(int32_t *p, F4 a) {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm_cvttps_epi32(a.v));
    }
    static void overlap_add(int16_t *out, const int32_t *r0, const int32_t *r1, bool pending) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(r0));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(r1));
        __m128i lo = _mm_unpacklo_epi32(a, b), hi = _mm_unpackhi_epi32(a, b);
        auto *o = reinterpret_cast<__m128i *>(out);
        if (pending) {
            const __m128i p = _mm_loadu_si128(o);
            lo = _mm_add_epi32(lo, _mm_srai_epi32(_mm_unpacklo_epi16(p, p), 16));
            hi = _mm_add_epi32(hi, _mm_srai_epi32(_mm_unpackhi_epi16(p, p), 16));
        }
        _mm_storeu_si128(o, _mm_packs_epi32(lo, hi));
    }
    static F4 lookup(const float *table, F4 index) {
        alignas(16) int32_t i[4];
        truncate_to(i, index);
        return {_mm_setr_ps(table[i[0]], table[i[1]], table[i[2]], table[i[3]])};
    }
    // Rows r[0..3] become columns.
    static void transpose(F4 *r) { _MM_TRANSPOSE4_PS(r[0].v, r[1].v, r[2].v, r[3].v); }
};
inline F4 operator+(F4 a, F4 b) { return {_mm_add_ps(a.v, b.v)}; }
inline F4 operator-(F4 a, F4 b) { return {_mm_sub_ps(a.v, b.v)}; }
inline F4 operator*(F4 a, F4 b) { return {_mm_mul_ps(a.v, b.v)}; }
#elif defined(__ARM_NEON)
struct F4 {
    static constexpr int kWidth = 4;
    static constexpr bool kPicks = false;
    float32x4_t v;
    static F4 load(const float *p) { return {vld1q_f32(p)}; }
    static void store(float *p, F4 a) { vst1q_f32(p, a.v); }
    static F4 set1(float x) { return {vdupq_n_f32(x)}; }
    static F4 reverse(F4 a) {
        const float32x4_t r = vrev64q_f32(a.v);
        return {vextq_f32(r, r, 2)};
    }
    static F4 greater(F4 a, F4 b) { return {vreinterpretq_f32_u32(vcgtq_f32(a.v, b.v))}; }
    static F4 less_equal(F4 a, F4 b) { return {vreinterpretq_f32_u32(vcleq_f32(a.v, b.v))}; }
    static F4 select(F4 m, F4 a, F4 b) { return {vbslq_f32(vreinterpretq_u32_f32(m.v), a.v, b.v)}; }
    static F4 from_int16(const int16_t *p) { return {vcvtq_f32_s32(vmovl_s16(vld1_s16(p)))}; }
    static void truncate_to(int32_t *p, F4 a) { vst1q_s32(p, vcvtq_s32_f32(a.v)); }
    static void overlap_add(int16_t *out, const int32_t *r0, const int32_t *r1, bool pending) {
        int32x4x2_t z = vzipq_s32(vld1q_s32(r0), vld1q_s32(r1));
        if (pending) {
            const int16x8_t p = vld1q_s16(out);
            z.val[0] = vaddq_s32(z.val[0], vmovl_s16(vget_low_s16(p)));
            z.val[1] = vaddq_s32(z.val[1], vmovl_s16(vget_high_s16(p)));
        }
        vst1q_s16(out, vcombine_s16(vqmovn_s32(z.val[0]), vqmovn_s32(z.val[1])));
    }
    static F4 lookup(const float *table, F4 index) {
        int32_t i[4];
        truncate_to(i, index);
        const float g[4] = {table[i[0]], table[i[1]], table[i[2]], table[i[3]]};
        return load(g);
    }
    static void transpose(F4 *r) {
        const float32x4x2_t t01 = vtrnq_f32(r[0].v, r[1].v);
        const float32x4x2_t t23 = vtrnq_f32(r[2].v, r[3].v);
        r[0].v = vcombine_f32(vget_low_f32(t01.val[0]), vget_low_f32(t23.val[0]));
        r[1].v = vcombine_f32(vget_low_f32(t01.val[1]), vget_low_f32(t23.val[1]));
        r[2].v = vcombine_f32(vget_high_f32(t01.val[0]), vget_high_f32(t23.val[0]));
        r[3].v = vcombine_f32(vget_high_f32(t01.val[1]), vget_high_f32(t23.val[1]));
    }
};
inline F4 operator+(F4 a, F4 b) { return {vaddq_f32(a.v, b.v)}; }
inline F4 operator-(F4 a, F4 b) { return {vsubq_f32(a.v, b.v)}; }
inline F4 operator*(F4 a, F4 b) { return {vmulq_f32(a.v, b.v)}; }
#endif

#if defined(__AVX2__)
struct F8 {
    static constexpr int kWidth = 8;
    static constexpr bool kPicks = true;
    __m256 v;
    static F8 load(const float *p) { return {_mm256_loadu_ps(p)}; }
    static void store(float *p, F8 a) { _mm256_storeu_ps(p, a.v); }
    static F8 set1(float x) { return {_mm256_set1_ps(x)}; }
    static F8 reverse(F8 a) {
        return {_mm256_permutevar8x32_ps(a.v, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0))};
    }
    static F8 greater(F8 a, F8 b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_GT_OQ)}; }
    static F8 less_equal(F8 a, F8 b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_LE_OQ)}; }
    static F8 select(F8 m, F8 a, F8 b) { return {_mm256_blendv_ps(b.v, a.v, m.v)}; }
    static F8 from_int16(const int16_t *p) {
        const __m128i h = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        return {_mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(h))};
    }
    static void truncate_to(int32_t *p, F8 a) {
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), _mm256_cvttps_epi32(a.v));
    }
    static void overlap_add(int16_t *out, const int32_t *r0, const int32_t *r1, bool pending) {
        F4::overlap_add(out, r0, r1, pending);
        F4::overlap_add(out + 8, r0 + 4, r1 + 4, pending);
    }
    // t4[index] and t32[index], index a whole number 0..3 or 0..31: lane
    // permutes (cheaper here than the gather instruction).
    static F8 pick4(const float *t4, F8 index) {
        return {_mm256_permutevar_ps(_mm256_broadcast_ps(reinterpret_cast<const __m128 *>(t4)),
                                     _mm256_cvttps_epi32(index.v))};
    }
    static F8 pick32(const float *t32, F8 index) {
        const __m256i i = _mm256_cvttps_epi32(index.v);
        F8 r = {_mm256_permutevar8x32_ps(_mm256_loadu_ps(t32), i)};
        for (int part = 1; part < 4; ++part) {
            const F8 from = {_mm256_permutevar8x32_ps(_mm256_loadu_ps(t32 + 8 * part), i)};
            r = select(greater(index, set1(8.0f * static_cast<float>(part) - 0.5f)), from, r);
        }
        return r;
    }
    // Rows r[0..7] become columns.
    static void transpose(F8 *r) {
        __m256 t[8], s[8];
        for (int i = 0; i < 8; i += 2) {
            t[i] = _mm256_unpacklo_ps(r[i].v, r[i + 1].v);
            t[i + 1] = _mm256_unpackhi_ps(r[i].v, r[i + 1].v);
        }
        for (int i = 0; i < 8; i += 4) {
            s[i] = _mm256_shuffle_ps(t[i], t[i + 2], _MM_SHUFFLE(1, 0, 1, 0));
            s[i + 1] = _mm256_shuffle_ps(t[i], t[i + 2], _MM_SHUFFLE(3, 2, 3, 2));
            s[i + 2] = _mm256_shuffle_ps(t[i + 1], t[i + 3], _MM_SHUFFLE(1, 0, 1, 0));
            s[i + 3] = _mm256_shuffle_ps(t[i + 1], t[i + 3], _MM_SHUFFLE(3, 2, 3, 2));
        }
        for (int i = 0; i < 4; ++i) {
            r[i].v = _mm256_permute2f128_ps(s[i], s[i + 4], 0x20);
            r[i + 4].v = _mm256_permute2f128_ps(s[i], s[i + 4], 0x31);
        }
    }
    // Scalar loads (the gather instruction is slow where its microcode
    // carries the data-sampling mitigation).
    static F8 lookup(const float *table, F8 index) {
        alignas(32) int32_t i[8];
        truncate_to(i, index);
        return {_mm256_setr_ps(table[i[0]], table[i[1]], table[i[2]], table[i[3]], table[i[4]], table[i[5]],
                               table[i[6]], table[i[7]])};
    }
};
inline F8 operator+(F8 a, F8 b) { return {_mm256_add_ps(a.v, b.v)}; }
inline F8 operator-(F8 a, F8 b) { return {_mm256_sub_ps(a.v, b.v)}; }
inline F8 operator*(F8 a, F8 b) { return {_mm256_mul_ps(a.v, b.v)}; }
#endif

}  // namespace
