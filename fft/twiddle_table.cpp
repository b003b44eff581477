// Twiddle table of the 512-point transforms, built by the recurrence.
#include "twiddle_table.h"

#include <cstring>

#include "fft_common.h"
#include "vorl.h"

namespace vorl::fft {

namespace {

TwiddleTable build() {
    TwiddleTable t{};
    const float *seeds = IFFT_radix4_time_addition_theorem_wr_wi_2048;
    int q = 8;
    for (int stage = 0; stage < 3; ++stage, q *= 4) {
        const int pair = stage + 1;  // Q = 8 takes the L = 32 seed
        Twiddles w(seeds[2 * pair], seeds[2 * pair + 1]);
        for (int k = 1; k < q / 2; ++k, w.next()) {
            const float row[6] = {w.c1, w.s1, w.c2, w.s2, w.c3, w.s3};
            for (int r = 0; r < 6; ++r) t.w[stage][r][k] = row[r];
        }
    }
    t.middle = middle_constant();
    return t;
}

}  // namespace

const TwiddleTable &twiddles_512() {
    static const TwiddleTable table = build();
    return table;
}

bool has_table_seeds(const float *seeds) {
    return seeds == IFFT_radix4_time_addition_theorem_wr_wi_2048 ||
           std::memcmp(seeds + 2, IFFT_radix4_time_addition_theorem_wr_wi_2048 + 2, 6 * sizeof(float)) == 0;
}

}  // namespace vorl::fft
