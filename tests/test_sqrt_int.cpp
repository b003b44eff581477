// Integer square root: the documented values and the accuracy bounds over a
// large sample of positive 32-bit inputs.
#include <gtest/gtest.h>

#include <cmath>

#include "testkit.h"
#include "vorl.h"

namespace {

TEST(SqrtInt, KnownValues) {
    const struct {
        int32_t x, root;
    } cases[] = {{-5, 0},          {0, 0},           {1, 259},          {2, 361},           {3, 444},
                 {4, 518},         {16, 1037},       {100, 2547},       {256, 4146},        {65535, 65273},
                 {65536, 66336},   {439807, 168792}, {4194304, 530688}, {8388607, 738118},  {8388608, 738304},
                 {16777216, 1061376}, {2147483647, 11809888}};
    for (const auto &c : cases) EXPECT_EQ(SqrtInt(c.x), c.root) << c.x;
    EXPECT_EQ(SqrtInt(INT32_MIN), 0);
}

// Relative error of SqrtInt against 256 sqrt(x).
double error_at(int32_t x) { return SqrtInt(x) / (256.0 * std::sqrt(static_cast<double>(x))) - 1.0; }

TEST(SqrtInt, StaysWithinItsErrorBoundsEverywhere) {
    double lowest = 0, highest = 0;
    auto visit = [&](int32_t x) {
        const double e = error_at(x);
        lowest = std::min(lowest, e);
        highest = std::max(highest, e);
    };
    for (int32_t x = 1; x <= 1 << 20; ++x) visit(x);  // every small input
    vorl::testkit::Noise noise(7);
    for (int i = 0; i < 2000000; ++i) visit(static_cast<int32_t>(noise.next() >> 1) | 1);
    for (int b = 0; b < 31; ++b) visit(int32_t{1} << b);
    EXPECT_GE(lowest, -0.0058);
    EXPECT_LE(highest, 0.0127);
    EXPECT_NEAR(error_at(439807), -0.0058, 0.0001);  // where the lowest lies
    EXPECT_NEAR(error_at(16), 0.0127, 0.0001);       // and the highest
}

}  // namespace
