// The real transforms on a chosen path (the exported functions take the
// active one); tests compare every path with the scalar one.
#pragma once

#include <cstdint>

#include "nr/simd_path.h"
#include "vorl.h"

namespace vorl::fft {

float *rfft(float *buf, int32_t n, const st_vorl_inst *inst, simd::Path path);
float *irfft(float *buf, int32_t n, const st_vorl_inst *inst, simd::Path path);

// The vector kernels of path when they apply: 512 points, the library's seeds.
inline const simd::Kernels *kernels_512(int32_t n, const st_vorl_inst *inst, simd::Path path) {
    return n == 512 && has_table_seeds(inst->p_ifft_tbl) ? simd::kernels(path) : nullptr;
}

}  // namespace vorl::fft
