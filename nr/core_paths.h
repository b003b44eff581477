// The suppression core and the whole block on a chosen path
// (sound_vorl_core_sac and sound_vorl take the active one); tests compare
// every path with the scalar one.
#pragma once

#include <cstdint>

#include "simd_path.h"
#include "vorl.h"

namespace vorl {

int32_t core(float *const *spec, st_vorl_inst *inst, simd::Path path);
void run_block(const int16_t *ring, int16_t *out, st_vorl_inst *inst, simd::Path path);

}  // namespace vorl
