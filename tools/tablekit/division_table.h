// The division table behind the engine's reciprocal (div_search_tbl_f,
// div_init_value_tbl_f): 28 decreasing thresholds S and one Newton seed D[j]
// per interval S[j+1] < x <= S[j].
#pragma once

#include "vorl.h"

namespace vorl::tablekit {

// Thresholds falling geometrically from `top` by `ratio` per entry, each
// seed the one that minimises the worst relative error on its interval.
void fill_division_table(st_vorl &p, float top, float ratio);

// A table accurate to 1e-3 after two Newton steps (intervals of ratio
// sqrt 2) from `low` up to `high`, with coarser intervals above, up to 2^17
// (beyond any 16-bit frame's bin power, so loud bins never clamp), and
// below. When 27 intervals cannot cover the range at sqrt 2, the accurate
// part keeps its top at `high` and ends above `low`.
void fill_division_table_for_range(st_vorl &p, float low, float high);

}  // namespace vorl::tablekit
