// The table-seeded reciprocal (recip.cpp) on lane types, without branches:
// the coarse group and the first matching threshold are found by selects,
// so each lane takes exactly the scalar path's seed, clamp and Newton steps.
// Included by one file per instruction set; internal linkage only.
#pragma once

#include <cstdint>

#include "nr/lanes.h"

namespace {

// The reciprocal of W values at a time for one table (s thresholds, d seeds).
template <class V>
class RecipLanes {
  public:
    RecipLanes(int32_t steps, const float *s, const float *d) : steps_(steps), s_(s), d_(d) {
        // For lanes that pick from small tables: the fine search's thresholds
        // by group c = (27 - k) / 7 (s[22 + e - 7c] for the e-th) and the seeds.
        if constexpr (V::kPicks) {
            for (int e = 0; e < 6; ++e)
                for (int c = 0; c < 4; ++c) group_thresholds_[e][c] = s[22 + e - 7 * c];
            for (int n = 0; n < 28; ++n) seeds_[n] = d[n];
        }
    }

    // x[0..W-1] clamped in place; out[0..W-1] the reciprocals of the clamped x.
    void operator()(float *x, float *out) const {
        const float *s = s_;
        const V zero = V::set1(0.0f), one = V::set1(1.0f);
        V v = V::load(x);
        // Coarse group c: how many of the thresholds s[21], s[14], s[7] v
        // exceeds; k = 27 - 7c (index arithmetic on small whole numbers is exact).
        V c = V::select(V::greater(v, V::set1(s[21])), one, zero);
        c = c + V::select(V::greater(v, V::set1(s[14])), one, zero);
        c = c + V::select(V::greater(v, V::set1(s[7])), one, zero);
        const V k = V::set1(27.0f) - V::set1(7.0f) * c;
        v = V::select(V::greater(v, V::set1(s[0])), V::set1(s[0]), v);
        v = V::select(V::less_equal(v, V::set1(s[27])), V::set1(s[27]), v);
        V::store(x, v);
        // First j = k - back in k-6 .. k-1 with v > s[j+1], else k (back 0):
        // the last hit of a downward scan. The group's thresholds by k = 6,
        // 13, 20 or 27.
        V back = zero;
        const V in6 = V::greater(V::set1(9.5f), k), in13 = V::greater(V::set1(16.5f), k);
        const V in20 = V::greater(V::set1(23.5f), k);
        for (int e = 5; e >= 0; --e) {  // threshold s[k - 5 + e]
            V t;
            if constexpr (V::kPicks) {
                t = V::pick4(group_thresholds_[e], c);
            } else {
                t = V::set1(s[22 + e]);
                t = V::select(in20, V::set1(s[15 + e]), t);
                t = V::select(in13, V::set1(s[8 + e]), t);
                t = V::select(in6, V::set1(s[1 + e]), t);
            }
            back = V::select(V::greater(v, t), V::set1(static_cast<float>(6 - e)), back);
        }
        const V j = k - back;
        V y;
        if constexpr (V::kPicks)
            y = V::pick32(seeds_, j);
        else
            y = V::lookup(d_, j);
        if (steps_ == 2) {  // the engine's count, unrolled
            y = (y + y) - y * (v * y);
            y = (y + y) - y * (v * y);
        } else {
            for (int32_t n = 0; n < steps_; ++n) y = (y + y) - y * (v * y);
        }
        V::store(out, y);
    }

  private:
    int32_t steps_;
    const float *s_, *d_;
    float group_thresholds_[6][4] = {};
    float seeds_[32] = {};
};

// Clamps and reciprocals of rows 0..rows-1 (pow[r][i] clamped in place,
// reciprocal to recip[r][i]) for bins i.., W at a time, with the running sum
// total = (total + pow[0][i]) + pow[1][i] over the powers as given, in bin
// order. The sum is a serial chain; the reciprocals fill its latency.
template <class V>
int recip_and_total(float *const *pow, float *const *recip, int rows, int i, int count, const RecipLanes<V> &r,
                    float &total) {
    for (; i + V::kWidth <= count; i += V::kWidth) {
        for (int b = i; b < i + V::kWidth; ++b) total = (total + pow[0][b]) + pow[1][b];
        for (int row = 0; row < rows; ++row) r(pow[row] + i, recip[row] + i);
    }
    return i;
}

}  // namespace
