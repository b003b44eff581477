// Layout checks of the pulse-filter state in its work-area region.
#include <cstddef>

#include "vorl.h"

static_assert(sizeof(CPulseFilter) <= 3536, "");
static_assert(offsetof(CPulseFilter, diff_hist) == 8, "diff_hist follows p_diff_hist");
