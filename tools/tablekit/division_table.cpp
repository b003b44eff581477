#include "division_table.h"

#include <algorithm>
#include <cmath>

namespace vorl::tablekit {

namespace {

// Seeds 2/(S[j] + S[j+1]) (the interval's best); the floor interval gets 1/S[27].
void fill_seeds(st_vorl &p) {
    for (int j = 0; j < 27; ++j)
        p.div_init_value_tbl_f[j] = 2.0f / (p.div_search_tbl_f[j] + p.div_search_tbl_f[j + 1]);
    p.div_init_value_tbl_f[27] = 1.0f / p.div_search_tbl_f[27];
}

}  // namespace

void fill_division_table(st_vorl &p, float top, float ratio) {
    float s = top;
    for (float &threshold : p.div_search_tbl_f) {
        threshold = s;
        s /= ratio;
    }
    fill_seeds(p);
}

float fill_division_table_down_to(st_vorl &p, float low) {
    constexpr float kTop = 131072.0f;  // 2^17
    const float ratio = std::max(2.0f, std::pow(kTop / std::max(low, 1e-30f), 1.0f / 27.0f));
    fill_division_table(p, kTop, ratio);
    return ratio;
}

}  // namespace vorl::tablekit
