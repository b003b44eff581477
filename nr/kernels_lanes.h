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
float clamp_invert_all(float *const *pow, float *const *recip, int rows, int count, int32_t steps, const float *s,
                       const float *d) {
    float total = 0.0f;
    int i = recip_and_total(pow, recip, rows, 0, count, RecipLanes<Wide>(steps, s, d), total);
    if constexpr (Wide::kWidth > 4) i = recip_and_total(pow, recip, rows, i, count, RecipLanes<F4>(steps, s, d), total);
    recip_and_total(pow, recip, rows, i, count, RecipLanes<F1>(steps, s, d), total);
    return total;
}

template <class Wide>
constexpr vorl::simd::Kernels lane_kernels() {
    return {rfft512_lanes<Wide>, irfft512_lanes<Wide>, clamp_invert_all<Wide>,
            powers_all<Wide>,   gains_all<Wide>,      apply_all<Wide>,       smooth_lanes<Wide>,
            analyse_lanes<Wide>, synthesise_lanes<Wide>};
}

}  // namespace
