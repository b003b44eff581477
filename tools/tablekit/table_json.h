// Lossless conversion between the binary tuning table and a readable JSON
// document that names every field.
//
// Layout: {"tbl_version": "0x01030000", "st_vorl": {...}, "st_vorlc": {...},
// "tbl_cnt": N}. Arrays are JSON arrays, nested for the 2-D and 3-D fields
// (last index innermost). The checksum is not part of the document: it is
// derived from the other words when the binary table is built.
//
// Floats are written with the fewest significant digits (at most 9) that
// give back the same bits; -0.0 is written as -0.0. Values JSON cannot
// express are strings: "inf", "-inf", "nan" (the quiet NaN 0x7fc00000) and
// "nan:0xXXXXXXXX" for any other NaN, giving its bit pattern.
#pragma once

#include <stdexcept>
#include <string>

#include "vorl.h"

namespace vorl::tablekit {

struct JsonError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// With `curves`, a top-level "curves" object follows st_vorlc: each curve
// over frequency as the values the engine rebuilds at its nodes,
//   "zspec_comp_coef_f_LR_d": [left, right], each 72 of
//       {"band": b, "bin": zspec_comp_base_bin[b], "hz": ..., "value": ...},
//   "back_ground_noise": [AF, WT, TW] of [left, right], each 65 of
//       {"group": g, "bin": 4g (255 for g 64), "hz": ..., "value": ...},
//   "eq_gain": 65 of the same,
// frequencies for 48 kHz.
std::string table_to_json(const st_vorl_tbl &t, bool curves = false);

// Parses a document; every field must be present exactly once with its
// shape and range, and no other key may appear, except that the optional
// "curves" object (above, any of its three curves) may stand for the
// increments of its fields: a curve whose values are those the increments
// rebuild leaves the increments' bits as they are (so to-json --curves and
// from-json are exact inverses); a curve with other values, or without its
// increments field, is stored as the increments that rebuild those values.
// "bin" must match the table's nodes; "hz" is ignored. The result is
// sealed. Throws JsonError naming the offending field.
st_vorl_tbl table_from_json(const std::string &text);

// The float encoding used above, exposed for tests.
std::string format_f32(float v);

}  // namespace vorl::tablekit
