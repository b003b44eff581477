// The NEON path's kernels (compiled with the instruction set's flags only).
#if defined(__aarch64__)
#include "nr/kernels_lanes.h"

namespace vorl::simd {
extern const Kernels kNeonKernels = lane_kernels<F4>();
}
#endif
