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

// "breaks N table rule(s), first WHERE: PROBLEM", for a list that is not
// empty; each caller names the table and says what follows.
std::string summarise(const std::vector<Violation> &broken);

// One node of the zoom-noise curve outside the bounds of the library's
// save-time plausibility check.
struct CurveFault {
    int channel;  // 0 left, 1 right
    int band;     // 0..71, ending at bin zspec_comp_base_bin[band]
    float value, limit;
    bool above;   // above the upper limit, else below the lower one
};

// The library's plausibility check of the learned curve, computed the same
// way (single precision, same order): one fault per failing node.
std::vector<CurveFault> learned_curve_faults(const st_vorl &p);

// The same check as rule violations naming the field and index.
std::vector<Violation> check_learned_curve(const st_vorl &p);

// A fault in words, e.g. "band 12, 1.03-1.13 kHz, left: 9.3 above its limit
// 8.4" (with an en dash); a band spans the bins after the previous band's
// end node up to its own, bin k being k * 48000 / 512 Hz.
std::string describe(const CurveFault &f, const st_vorl &p);

}  // namespace vorl::tablekit
