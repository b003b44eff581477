// The division table behind the engine's reciprocal (div_search_tbl_f,
// div_init_value_tbl_f): 28 decreasing thresholds S and one Newton seed D[j]
// per interval S[j+1] < x <= S[j].
#pragma once

#include "vorl.h"

namespace vorl::tablekit {

// Thresholds falling geometrically from `top` by `ratio` per entry, each
// seed the one that minimises the worst relative error on its interval.
void fill_division_table(st_vorl &p, float top, float ratio);

// Thresholds from 2^17 (beyond any 16-bit frame's bin power, so loud bins
// never clamp) down to `low` in equal steps of at least 2: two Newton steps
// then leave a relative error of at most 1.2 % anywhere in between, however
// loud the recording is against the powers `low` came from. Returns the
// step ratio.
float fill_division_table_down_to(st_vorl &p, float low);

}  // namespace vorl::tablekit
