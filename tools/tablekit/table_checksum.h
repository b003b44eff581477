// The tuning table's checksum, computed by the library itself so that the
// tools never carry a second implementation of it.
#pragma once

#include <cstdint>

#include "vorl.h"

namespace vorl::tablekit {

// Additive checksum of words 0..1044, modulo 2^32.
uint32_t checksum(const st_vorl_tbl &t);

// Stores the checksum so that the table passes the library's test.
void seal(st_vorl_tbl &t);

}  // namespace vorl::tablekit
