// The AVX2 path's kernels (compiled with the instruction set's flags only).
#if defined(__x86_64__)
#include "nr/kernels_lanes.h"

namespace vorl::simd {
extern const Kernels kAvx2Kernels = lane_kernels<F8>();
}
#endif
