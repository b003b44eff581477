// Analysis windowing shared by the block driver and the exported stage.
#pragma once

#include <cstdint>

namespace vorl {

// frame_c[t] = ring_c[t] * w[t] for t = 0..511, ring_1 = ring + ch_offset,
// with w the symmetric window built from its 257-entry rising half.
void analyse(float *frame0, float *frame1, const int16_t *ring, uint32_t ch_offset,
             const float *window);

}  // namespace vorl
