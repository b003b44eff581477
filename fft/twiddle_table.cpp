// Twiddle table of the 512-point transforms, built by the recurrence.
#include "twiddle_table.h"

#include <cstring>

#include "fft_common.h"
#include "vorl.h"

namespace vorl::fft {

namespace {

// Seed pairs 1..3 (L = 32, 128, 512) of IFFT_radix4_time_addition_theorem_wr_wi_2048,
// as constants so that the table is built while compiling: no first-use
// initialisation, no state. has_table_seeds() and a test tie them to the
// exported table.
constexpr float kSeeds[3][2] = {
    {0.98078525f, 0.19509032f}, {0.99879545f, 0.049067676f}, {0.99992472f, 0.012271538f}};

constexpr TwiddleTable build() {
    TwiddleTable t{};
    int q = 8;
    for (int stage = 0; stage < 3; ++stage, q *= 4) {  // Q = 8 takes the L = 32 seed
        Twiddles w(kSeeds[stage][0], kSeeds[stage][1]);
        for (int k = 1; k < q / 2; ++k, w.next()) {
            const float row[6] = {w.c1, w.s1, w.c2, w.s2, w.c3, w.s3};
            for (int r = 0; r < 6; ++r) t.w[stage][r][k] = row[r];
        }
    }
    t.middle = middle_constant();
    return t;
}

constexpr TwiddleTable kTable = build();

}  // namespace

const TwiddleTable &twiddles_512() { return kTable; }

bool has_table_seeds(const float *seeds) { return std::memcmp(seeds + 2, kSeeds, sizeof kSeeds) == 0; }

}  // namespace vorl::fft
