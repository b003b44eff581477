// The default tuning table, generated at build time from
// data/default_table.json (after the table rules have been checked).
#pragma once

#include "vorl.h"

namespace vorl {
extern const unsigned char kDefaultTable[VORL_TBL_SIZE];
}
