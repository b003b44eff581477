// The rules a tuning table must keep to be usable, beyond what the library
// itself verifies (checksum and version): orderings, ranges, the Newton
// convergence of the division table, counters, finite values, and the
// learned curve inside the bounds that the save-time plausibility check uses.
#pragma once

#include <string>
#include <vector>

#include "vorl.h"

namespace vorl::tablekit {

struct Violation {
    std::string where;    // field and index, e.g. "div_init_value_tbl_f[3]"
    std::string problem;  // what is wrong, with the values involved
};

std::vector<Violation> check_table_rules(const st_vorl_tbl &t);

// The library's plausibility check of the learned curve, computed the same
// way (single precision, same order): one violation per failing node.
std::vector<Violation> check_learned_curve(const st_vorl &p);

}  // namespace vorl::tablekit
