// The division table of the table-seeded reciprocal: thresholds and the
// Newton seeds that go with them.
#pragma once

#include "vorl.h"

namespace vorl::tablekit {

// Fills div_search_tbl_f with 28 thresholds falling geometrically from
// `top` by `ratio` per entry and div_init_value_tbl_f with the seed that
// minimises the worst relative error on each interval (2 / (S[j] + S[j+1]);
// the last one is the floor's own reciprocal).
void fill_division_table(st_vorl &p, float top, float ratio);

}  // namespace vorl::tablekit
