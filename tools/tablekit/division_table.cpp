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

void fill_division_table_for_range(st_vorl &p, float low, float high) {
    // Octave exponents keep every threshold a power of two or its product
    // with sqrt 2, so tables are reproducible from the range alone.
    const int hi = std::clamp(static_cast<int>(std::ceil(std::log2(std::max(high, 1e-30f)))), -40, 17);
    int lo = std::clamp(static_cast<int>(std::floor(std::log2(std::max(low, 1e-30f)))), -60, hi - 1);
    // Above `high`: steps of at most 2^6 (a seed error that only lets loud
    // bins keep slightly more than the formula says).
    const int above = (17 - hi + 5) / 6;
    // Whole octaves of sqrt 2 steps, leaving at least two steps of 2^2 below.
    const int accurate = std::min(2 * (hi - lo), (27 - above - 2) & ~1);
    lo = hi - accurate / 2;
    int j = 0;
    for (int k = 0; k < above; ++k)  // from 2^17 down to 2^hi in equal steps
        p.div_search_tbl_f[j++] = std::ldexp(1.0f, 17 - (k * (17 - hi)) / above);
    for (int k = 0; k < accurate; ++k)
        p.div_search_tbl_f[j++] = std::ldexp(k % 2 == 0 ? 1.0f : std::sqrt(0.5f), hi - k / 2);
    for (int k = 0; j < 28; ++k) p.div_search_tbl_f[j++] = std::ldexp(1.0f, lo - 2 * k);
    fill_seeds(p);
}

}  // namespace vorl::tablekit
