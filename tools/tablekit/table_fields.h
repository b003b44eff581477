// Catalogue of every field of the tuning table by name, place and shape, so
// that conversions and checks walk the table instead of listing it again.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "vorl.h"

namespace vorl::tablekit {

enum class FieldType { F32, U8, I16, U32 };

struct Field {
    const char *name;
    std::size_t offset;  // bytes from the start of the table file
    FieldType type;
    std::vector<int> shape;  // empty for a single value; row-major

    std::size_t count() const;
    std::size_t element_size() const;
};

// The three parts of the table file, each an ordered list of fields.
struct Section {
    const char *name;  // "" for the top level
    std::vector<Field> fields;
};

// Top level (tbl_version, tbl_cnt), st_vorl and st_vorlc, in file order.
// The checksum word is not listed: it is derived from the other words.
const std::vector<Section> &table_sections();

// Finds a field by name in any section; nullptr if there is none.
const Field *find_field(const std::string &name);

// "name" or "name[i][j]" for element `flat` of a field.
std::string element_name(const Field &f, std::size_t flat);

}  // namespace vorl::tablekit
