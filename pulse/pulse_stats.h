// Long-term detection threshold of the pulse filter, from its 16-block
// statistics (shared with the tests, which check it call by call).
#pragma once

#include <cstdint>

#include "vorl.h"

namespace vorl::pulse {

// Mean absolute difference plus eight standard deviations over the 16
// blocks of channel ch, in integers: (8 SqrtInt(V) + T1/16) / 256.
int32_t long_term_threshold(const CPulseFilter &pf, int ch);

}  // namespace vorl::pulse
