#include "division_table.h"

namespace vorl::tablekit {

void fill_division_table(st_vorl &p, float top, float ratio) {
    float s = top;
    for (float &threshold : p.div_search_tbl_f) {
        threshold = s;
        s /= ratio;
    }
    for (int j = 0; j < 27; ++j)
        p.div_init_value_tbl_f[j] = 2.0f / (p.div_search_tbl_f[j] + p.div_search_tbl_f[j + 1]);
    p.div_init_value_tbl_f[27] = 1.0f / p.div_search_tbl_f[27];  // the floor itself
}

}  // namespace vorl::tablekit
