// Analysis windowing and synthesis on a chosen path, shared by the block
// driver and the exported stages (which take the active path).
#pragma once

#include <cstdint>

#include "simd_path.h"

namespace vorl {

// frame_c[t] = ring_c[t] * w[t] for t = 0..511, ring_1 = ring + ch_offset,
// with w the symmetric window built from its 257-entry rising half.
void analyse(float *frame0, float *frame1, const int16_t *ring, uint32_t ch_offset, const float *window,
             simd::Path path);

// sound_vorl_post_sac with the synthesis window's rising half.
void synthesise(const float *frame0, const float *frame1, int16_t *out, const float *window,
                simd::Path path);

}  // namespace vorl
