// Analysis and synthesis stages: level-preserving overlap-add, and the
// rounding and saturation of each half on its own.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "table_builder.h"
#include "testkit.h"
#include "vorl.h"

namespace {

class Stages : public ::testing::Test {
  protected:
    void SetUp() override { vorl::testkit::setup_engine(w, vorl::tablekit::reference_table()); }
    // Synthesises one frame whose window-weighted value at sample t is y.
    int16_t synthesize_at(int t, float y, int16_t pending) {
        std::vector<float> f(512, 0.0f);
        f[t] = y / w.inst.p_scale_sin_win_tbl[t <= 256 ? t : 512 - t];
        EXPECT_EQ(f[t] * w.inst.p_scale_sin_win_tbl[t <= 256 ? t : 512 - t], y);
        w.out[t][0] = pending;
        sound_vorl_post_sac(f.data(), f.data(), w.out[0], &w.inst);
        return w.out[t][0];
    }
    VORLWorkArea w{};
};

TEST_F(Stages, UnchangedSpectraReturnAConstantInputOnceFramesOverlap) {
    for (auto &ring : w.ring)
        for (int16_t &x : ring) x = 1000;
    int16_t *out = w.out[0];
    for (int block = 0; block < 3; ++block) {
        std::memcpy(out, out + 512, 1024);  // pending half moves forward
        sound_vorl_pre_sac(w.frame[0], w.frame[1], w.ring[0], &w.inst);
        sound_vorl_rfft_sac(w.frame[0], 512, &w.inst);
        sound_vorl_irfft_sac(w.frame[0], 512, &w.inst);
        sound_vorl_rfft_sac(w.frame[1], 512, &w.inst);
        sound_vorl_irfft_sac(w.frame[1], 512, &w.inst);
        sound_vorl_post_sac(w.frame[0], w.frame[1], out, &w.inst);
        if (block == 0) continue;
        for (int i = 0; i < 512; ++i) ASSERT_LE(std::abs(out[i] - 1000), 1) << block << ":" << i;
        EXPECT_EQ(out[2 * 128], 1000);  // two halves of 500 each
    }
}

TEST_F(Stages, AnalysisWindowsBothChannelsWithTheMirroredTable) {
    for (int t = 0; t < 1024; ++t) {
        w.ring[0][t] = static_cast<int16_t>(t * 37 - 16000);
        w.ring[1][t] = static_cast<int16_t>(-32768 + t);
    }
    sound_vorl_pre_sac(w.frame[0], w.frame[1], w.ring[0], &w.inst);
    for (int t = 0; t < 512; ++t) {
        const float win = sin_win_tbl[t <= 256 ? t : 512 - t];
        ASSERT_EQ(w.frame[0][t], static_cast<float>(w.ring[0][t]) * win);
        ASSERT_EQ(w.frame[1][t], static_cast<float>(w.ring[1][t]) * win);
    }
    EXPECT_EQ(w.frame[1][0], 0.0f);
}

TEST_F(Stages, RoundsHalvesAwayFromZeroInSinglePrecision) {
    EXPECT_EQ(synthesize_at(300, 0.0f, 0), 0);
    EXPECT_EQ(synthesize_at(300, -0.0f, 0), 0);
    EXPECT_EQ(synthesize_at(300, 0.49999997f, 0), 1);  // y + 0.5 rounds to 1.0
    EXPECT_EQ(synthesize_at(300, -0.49999997f, 0), -1);
    EXPECT_EQ(synthesize_at(300, 2.5f, 0), 3);
    EXPECT_EQ(synthesize_at(300, -2.5f, 0), -3);
    EXPECT_EQ(synthesize_at(300, 2.4f, 0), 2);
}

TEST_F(Stages, SaturatesEachHalfOnItsOwn) {
    EXPECT_EQ(synthesize_at(300, 40000.0f, 0), 32767);
    EXPECT_EQ(synthesize_at(300, -40000.0f, 0), -32768);
    EXPECT_EQ(synthesize_at(300, 3.0e9f, 0), 32767);   // beyond 32 bits as well
    EXPECT_EQ(synthesize_at(100, 5000.0f, 30000), 32767);
    EXPECT_EQ(synthesize_at(100, -1.0f, -32768), -32768);
    EXPECT_EQ(synthesize_at(100, -3.0e9f, -32768), -32768);
    EXPECT_EQ(synthesize_at(100, 7.0f, -20), -13);
    EXPECT_EQ(synthesize_at(300, 7.0f, 1234), 7);  // second half ignores what was stored
}

}  // namespace
