// DC-cut filter: its defining numbers, start-up, pass band and that runs of
// any length give the output of one run.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "vorl.h"

namespace {

std::vector<int16_t> stereo(size_t frames, int16_t (*left)(size_t), int16_t (*right)(size_t)) {
    std::vector<int16_t> v(2 * frames);
    for (size_t k = 0; k < frames; ++k) {
        v[2 * k] = left(k);
        v[2 * k + 1] = right(k);
    }
    return v;
}

TEST(DcCut, FirstFrameIsTheInputTimesTheNetGain) {
    VORLDcCutState s;
    ASSERT_EQ(VORLDcCutInit(&s), 0);
    int16_t frame[2] = {32767, -32768};
    ASSERT_EQ(VORLDcCutProc(frame, &s, 1), 0);
    EXPECT_EQ(frame[0], 32659);
    EXPECT_EQ(frame[1], -32660);
}

TEST(DcCut, BlocksDcAndSettlesAtASixteenth) {
    VORLDcCutState s;
    VORLDcCutInit(&s);
    auto v = stereo(48000, [](size_t) -> int16_t { return 1000; }, [](size_t) -> int16_t { return 1000; });
    VORLDcCutProc(v.data(), &s, 48000);
    EXPECT_EQ(v[2 * 47999], 0);
    EXPECT_EQ(v[2 * 47999 + 1], 0);
    EXPECT_NEAR(s.w1_l, 62.5, 1e-6);
    EXPECT_NEAR(s.w1_r, 62.5, 1e-6);
    EXPECT_EQ(s.w0_l, s.w1_l);  // the newest value is mirrored in w0
}

TEST(DcCut, PassesTheHalfRateToneWithItsAmplitude) {
    VORLDcCutState s;
    VORLDcCutInit(&s);
    auto alt = [](size_t k) -> int16_t { return k % 2 ? -1000 : 1000; };
    auto v = stereo(4800, alt, alt);
    VORLDcCutProc(v.data(), &s, 4800);
    for (size_t k = 2400; k < 4800; ++k) EXPECT_LE(std::abs(std::abs(v[2 * k]) - 1000), 1) << k;
}

TEST(DcCut, SplitRunsEqualOneRunAndClampFullScaleSteps) {
    // A full-scale square wave drives the output past 16 bits, so the clamp
    // and the unclamped state are exercised across the split points.
    auto square = [](size_t k) -> int16_t { return (k / 37) % 2 ? -32768 : 32767; };
    auto ramp = [](size_t k) -> int16_t { return static_cast<int16_t>(k * 97 % 65536 - 32768); };
    const auto input = stereo(1000, square, ramp);
    VORLDcCutState whole, split;
    VORLDcCutInit(&whole);
    VORLDcCutInit(&split);
    auto a = input, b = input;
    VORLDcCutProc(a.data(), &whole, 1000);
    VORLDcCutProc(b.data(), &split, 1);
    VORLDcCutProc(b.data() + 2, &split, 255);
    VORLDcCutProc(b.data() + 2 * 256, &split, 744);
    EXPECT_EQ(a, b);
    EXPECT_EQ(whole.w1_l, split.w1_l);
    EXPECT_EQ(whole.w2_r, split.w2_r);
    bool clamped = false;
    for (int16_t x : a) clamped = clamped || x == 32767 || x == -32768;
    EXPECT_TRUE(clamped);
}

}  // namespace
