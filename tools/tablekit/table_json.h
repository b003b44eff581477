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

std::string table_to_json(const st_vorl_tbl &t);

// Parses a document; every field must be present exactly once with its
// shape and range, and no other key may appear. The result is sealed.
// Throws JsonError naming the offending field.
st_vorl_tbl table_from_json(const std::string &text);

// The float encoding used above, exposed for tests.
std::string format_f32(float v);

}  // namespace vorl::tablekit
