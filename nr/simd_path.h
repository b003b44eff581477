// Vector paths: which instruction set the engine's hot kernels run on. Each
// path does in every lane exactly the scalar operations in the same order,
// so all paths give the same bits; the choice only changes the speed.
#pragma once

#include <cstdint>

#include "fft/twiddle_table.h"

namespace vorl::simd {

enum class Path : uint8_t { kScalar, kSse2, kAvx2, kNeon };

// Per-bin inputs of one channel's gains (arrays of 256), as the core
// prepares them: coefficient sum or its replacement, background sum (the
// kernel takes max(sum, 0)), difference power, reciprocal of the clamped power,
// over-estimation, 1 for processed bins (0 outside), and block values.
struct GainInputs {
    const float *zoom_coef, *background, *diff_pow, *recip, *over_est, *processed;
    float bias, floor, smooth, keep;
    bool zoom_on, background_on;
};

struct Kernels {
    // 512-point transforms as sound_vorl_rfft_sac / sound_vorl_irfft_sac
    // with the library's seeds.
    void (*rfft512)(float *x, const fft::TwiddleTable &t);
    void (*irfft512)(float *x, const fft::TwiddleTable &t);
    // sound_vorl_recip over pow[r][0..count-1] for rows r < rows (0..2):
    // clamps in place, reciprocals to recip[r]. Returns the sum over bins
    // of both rows as given, (total + pow[0][i]) + pow[1][i] in bin order.
    float (*clamp_invert)(float *const *pow, float *const *recip, int rows, int count, int32_t steps,
                          const float *search, const float *seed);
    // Core: powers of both channels and their difference; smoothed gains
    // into gain_prev; spectrum x scaled by max(eq, 0) and gain per bin.
    void (*powers)(const float *l, const float *r, float *pl, float *pr, float *pd);
    void (*gains)(const GainInputs &in, float *gain_prev);
    void (*apply)(float *x, const float *eq, const float *gain);
    // Learning sums: one spectrum's 3-tap smoothing of bins 1..254 into
    // three, 5-tap smoothing of bins 2..97 into five (bins below each from
    // done, the rest from ahead).
    void (*smooth)(const float *done, const float *ahead, float *three, float *five);
    // Stages: one channel's analysis frame from its ring and the window's
    // rising half; synthesis of both frames into out.
    void (*analyse)(const int16_t *ring, const float *half, float *frame);
    void (*synthesise)(const float *frame0, const float *frame1, const float *half, int16_t *out);
};

// The path in use: chosen once, the widest the processor has, unless the
// environment variable VORL_SIMD names another available one (scalar, sse2,
// avx2, neon).
Path active_path();
bool path_available(Path p);
// The kernels of a vector path; nullptr for the scalar path or one this
// build or processor lacks.
const Kernels *kernels(Path p);
const char *path_name(Path p);

}  // namespace vorl::simd
