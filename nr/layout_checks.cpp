// Layout checks of the engine records: the instance record and the
// workspace fit their work-area regions, and the workspace's working
// parameter copies keep the table's word layout.
#include <cstddef>

#include "vorl.h"

// Engine records within their regions.
static_assert(sizeof(st_vorl_inst) <= 128, "");
static_assert(sizeof(st_vorl_ws) <= 12120, "");

// Working copies keep the word layout so they copy to and from the image.
static_assert(offsetof(st_vorl_ws, st_vorl_work) % 4 == 0, "");
static_assert(offsetof(st_vorl_ws, st_vorlc_work) == offsetof(st_vorl_ws, st_vorl_work) + 4084, "");
