// Reciprocal by table seed and Newton steps, the engine's only division.
// S = div_search_tbl_f holds 28 decreasing thresholds, D = div_init_value_tbl_f
// a first estimate of 1/x for S[j+1] < x <= S[j].
#include "vorl.h"

extern "C" float sound_vorl_recip(float *x, int32_t n, const st_vorl *p) {
    const float *s = p->div_search_tbl_f;
    float v = *x;
    // Coarse group of seven thresholds from the value as given.
    int k = v > s[21] ? 20 : 27;
    if (v > s[14]) k -= 7;
    if (v > s[7]) k -= 7;
    // Clamp into the table's range; the caller sees the clamped value.
    if (v > s[0]) v = s[0];
    if (v <= s[27]) v = s[27];
    *x = v;
    // Fine index within the group: exactly six comparisons.
    int j = k;
    for (int i = k - 6; i < k; ++i) {
        if (v > s[i + 1]) {
            j = i;
            break;
        }
    }
    float y = p->div_init_value_tbl_f[j];
    for (int32_t i = 0; i < n; ++i) y = (y + y) - y * (v * y);
    return y;
}
