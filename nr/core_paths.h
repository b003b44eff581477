// The suppression core on a chosen path (sound_vorl_core_sac takes the
// active one); tests compare every path with the scalar one.
#pragma once

#include <cstdint>

#include "simd_path.h"
#include "vorl.h"

namespace vorl {

int32_t core(float *const *spec, st_vorl_inst *inst, simd::Path path);

}  // namespace vorl
