// Building valid tuning tables in code: a plausible reference table that
// tests and tools start from, and the checksum seal every edited table needs.
#pragma once

#include <cstdint>
#include <string>

#include "vorl.h"

namespace vorl::tablekit {

// Additive checksum of words 0..1044, modulo 2^32.
uint32_t checksum(const st_vorl_tbl &t);

// Stores the checksum so that the table passes the library's test.
void seal(st_vorl_tbl &t);

// A valid, plausible table (sealed): version 0x01030000, flat equaliser,
// band nodes 0, 2, .., 94 then spread to 255, a geometric division table
// with Newton-safe seeds, moderate suppression and learning settings.
st_vorl_tbl reference_table();

// Band node b of the reference layout (strictly increasing, last 255).
uint8_t reference_band_node(int b);

// Fills div_search_tbl_f with 28 thresholds falling geometrically from
// `top` by `ratio` per entry and div_init_value_tbl_f with the seed that
// minimises the worst relative error on each interval.
void fill_division_table(st_vorl &p, float top, float ratio);

// Sets both channels' coefficient increments so that the curve the core
// rebuilds equals `value` at every band end.
void set_flat_coefficients(st_vorl &p, float value);

}  // namespace vorl::tablekit
