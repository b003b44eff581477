// One vector path's kernel set, built from the lane-type kernels by the file
// that includes this header for its instruction set (KernelsName names the
// set, Wide the widest lane type).
#pragma once

#include "fft/rfft512_lanes.h"
#include "nr/core_lanes.h"
#include "nr/recip_lanes.h"
#include "nr/simd_path.h"
#include "nr/stage_lanes.h"

namespace {

template <class Wide>
void recip_all(float *x, float *out, int count, int32_t steps, const float *s, const float *d) {
    int i = recip_lanes<Wide>(x, out, 0, count, steps, s, d);
    if constexpr (Wide::kWidth > 4) i = recip_lanes<F4>(x, out, i, count, steps, s, d);
    recip_lanes<F1>(x, out, i, count, steps, s, d);
}

template <class Wide>
constexpr vorl::simd::Kernels lane_kernels() {
    return {rfft512_lanes<Wide>, irfft512_lanes<Wide>, recip_all<Wide>,
            powers_all<Wide>,   gains_all<Wide>,      apply_all<Wide>,
            analyse_lanes<Wide>, synthesise_lanes<Wide>};
}

}  // namespace
