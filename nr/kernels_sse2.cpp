// The SSE2 path's kernels (compiled with the instruction set's flags only).
#if defined(__x86_64__)
#include "nr/kernels_lanes.h"

namespace vorl::simd {
extern const Kernels kSse2Kernels = lane_kernels<F4>();
}
#endif
