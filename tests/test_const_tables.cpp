// Every exported constant table rebuilt from its rule and compared entry by
// entry (long double references; the window's one-ulp entries listed).
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "vorl.h"

namespace {

const long double kPi = 3.141592653589793238462643383279502884L;

TEST(ConstTables, AnalysisWindowIsTheRoundedSineWithItsOneUlpEntries) {
    const std::set<int> one_ulp_up = {
        14,  15,  17,  18,  19,  22,  24,  31,  34,  35,  36,  38,  42,  43,  47,  48,  61,
        64,  65,  69,  70,  71,  72,  75,  77,  81,  85,  90,  93,  95,  97,  100, 105, 108,
        121, 133, 137, 140, 142, 144, 147, 148, 151, 152, 154, 155, 157, 160, 172, 181, 183,
        192, 193, 195, 199, 202, 204, 206, 215, 220, 224, 233, 243, 247, 250};
    ASSERT_EQ(one_ulp_up.size(), 65u);
    for (int i = 0; i <= 256; ++i) {
        float expect = static_cast<float>(std::sin(kPi * i / 512) / 32768);
        if (one_ulp_up.count(i)) expect = std::nextafter(expect, 1.0f);
        EXPECT_EQ(sin_win_tbl[i], expect) << i;
    }
    EXPECT_EQ(sin_win_tbl[0], 0.0f);
    EXPECT_EQ(sin_win_tbl[256], 3.0517578125e-05f);
}

TEST(ConstTables, SynthesisWindowIsExactlyTwoToTheTwentyOneTimesTheAnalysisWindow) {
    for (int i = 0; i <= 256; ++i) EXPECT_EQ(scale_sin_win_tbl[i], sin_win_tbl[i] * 2097152.0f) << i;
    EXPECT_EQ(scale_sin_win_tbl[256], 64.0f);
}

TEST(ConstTables, HammingIsTheTruncatedQ14Window) {
    for (int n = 0; n < 512; ++n) {
        const long double v = 16384 * (0.54L - 0.46L * std::cos(2 * kPi * n / 511));
        EXPECT_EQ(tblHamming[n], static_cast<uint16_t>(v)) << n;
    }
    EXPECT_EQ(tblHamming[0], 1310);
    EXPECT_EQ(tblHamming[255], 16383);
    EXPECT_EQ(tblHamming[256], 16383);
    EXPECT_EQ(tblHamming[511], 1310);
}

TEST(ConstTables, SeedsAreRoundedUnitRootsOfBothLengthSeries) {
    for (int p = 0; p < 5; ++p) {
        const long double l2048 = 8 << (2 * p), l4096 = 16 << (2 * p);
        EXPECT_EQ(IFFT_radix4_time_addition_theorem_wr_wi_2048[2 * p], static_cast<float>(std::cos(2 * kPi / l2048)));
        EXPECT_EQ(IFFT_radix4_time_addition_theorem_wr_wi_2048[2 * p + 1], static_cast<float>(std::sin(2 * kPi / l2048)));
        EXPECT_EQ(IFFT_radix4_time_addition_theorem_wr_wi_4096[2 * p], static_cast<float>(std::cos(2 * kPi / l4096)));
        EXPECT_EQ(IFFT_radix4_time_addition_theorem_wr_wi_4096[2 * p + 1], static_cast<float>(std::sin(2 * kPi / l4096)));
    }
    EXPECT_EQ(IFFT_radix4_time_addition_theorem_wr_wi_2048[0], 0.70710677f);
    EXPECT_EQ(IFFT_radix4_time_addition_theorem_wr_wi_2048[9], 0.0030679568f);
}

int reverse_bits(int i, int bits) {
    int r = 0;
    for (int b = 0; b < bits; ++b) r |= ((i >> b) & 1) << (bits - 1 - b);
    return r;
}

void expect_scramble(const uint16_t (*table)[2], int pairs, int bits) {
    int k = 0;
    for (int i = 0; i < (1 << bits); ++i) {
        const int r = reverse_bits(i, bits);
        if (i >= r) continue;
        ASSERT_LT(k, pairs);
        EXPECT_EQ(table[k][0], 4 * i);
        EXPECT_EQ(table[k][1], 4 * r);
        ++k;
    }
    EXPECT_EQ(k, pairs);
}

TEST(ConstTables, ScrambleTablesListTheBitReversalSwapsAsByteOffsets) {
    expect_scramble(scramble_tbl_512, 240, 9);
    expect_scramble(scramble_tbl_1024, 496, 10);
    EXPECT_EQ(scramble_tbl_512[2][0], 12);
    EXPECT_EQ(scramble_tbl_512[2][1], 1536);
}

}  // namespace
