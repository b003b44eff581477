// Post stage and coefficient learning: when it acts, the fit tests, the
// learning rate, the guarded update and its count, and the band estimate.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "table_builder.h"
#include "testkit.h"
#include "vorl.h"

namespace {

class Learning : public ::testing::Test {
  protected:
    void SetUp() override { vorl::testkit::setup_engine(w, vorl::tablekit::reference_table()); }
    st_vorl_ws &ws() { return w.ws; }
    st_vorl &p() { return w.ws.st_vorl_work; }
    // Accumulators of a measuring period: weighted channel power w_m = 1 at
    // every fit point, difference power `diff` in the current slot.
    void period(float diff, float other_row) {
        for (int m = 0; m < 48; ++m) {
            ws().zspec_acc[2][m] = 2.0f;  // x weight 0.5 = 1
            ws().zspec_acc[ws().zspec_slot][m] = diff;
            ws().zspec_acc[1 - ws().zspec_slot][m] = other_row;
        }
    }
    void band_powers(float diff, float left, float right) {
        for (int b = 0; b < 72; ++b) {
            ws().band_acc[0][b] = diff;
            ws().band_acc[1][b] = left;
            ws().band_acc[2][b] = right;
        }
    }
    void act() {
        ws().blk_cnt = 0;
        EXPECT_EQ(sound_vorl_core_post_sac(&w.inst), 0);
    }
    VORLWorkArea w{};
};

TEST_F(Learning, DoesNothingUntilItsCountdownIsZero) {
    ws().blk_cnt = 3;
    ws().zcomp_rate = -42.0f;
    period(5.0f, 5.0f);
    const st_vorl_ws before = ws();
    EXPECT_EQ(sound_vorl_core_post_sac(&w.inst), 0);
    EXPECT_EQ(std::memcmp(&before, &ws(), sizeof before), 0);
}

TEST_F(Learning, OpeningPhaseOnlyStartsMeasuring) {
    ws().learn_phase = 2;
    ws().z_frame_cnt = 9;
    period(1.0f, 7.0f);
    band_powers(1.0f, 1.0f, 1.0f);
    ws().level_acc = 3.0f;
    dval = -1.0f;
    act();
    EXPECT_EQ(ws().learn_phase, 1);
    EXPECT_EQ(ws().blk_cnt, p().z_block_counter);
    EXPECT_EQ(ws().z_frame_cnt, 0);
    EXPECT_EQ(dval, -1.0f);  // no test made
    EXPECT_EQ(ws().zspec_acc[0][5], 0.0f);
    EXPECT_EQ(ws().zspec_acc[1][5], 7.0f);  // the other slot keeps its period
    EXPECT_EQ(ws().zspec_acc[2][5], 0.0f);
    EXPECT_EQ(ws().band_acc[2][71], 0.0f);
    EXPECT_EQ(ws().level_acc, 0.0f);
}

TEST_F(Learning, NoZoomTestComparesBothRowsAndSwapsTheSlot) {
    period(1.0f, 4096.0f);  // the first test after set-up meets the 4096 fill
    band_powers(0.0f, 3.0f, 4.0f);
    ws().level_acc = 0.25f;
    act();
    EXPECT_EQ(ws().fit_ok_nz, 0u);
    EXPECT_EQ(ws().zspec_slot, 1);
    EXPECT_EQ(ws().level_ref, 0.25f);
    EXPECT_EQ(ws().band_ref[0][10], 3.0f);
    EXPECT_EQ(ws().band_ref[1][10], 4.0f);
    EXPECT_EQ(ws().blk_cnt, p().nz_block_counter);
    // err = 48 (1-4096)^2, total = 48 (1 + 1 + 4096)
    EXPECT_FLOAT_EQ(dval, 4095.0f * 4095.0f / 4098.0f);
    EXPECT_EQ(ws().zspec_acc[1][0], 0.0f);  // the new slot starts empty
    EXPECT_EQ(ws().zspec_acc[0][0], 1.0f);  // this period's row is kept

    period(1.0f, 1.0f);  // both rows now fit the weighted power
    act();
    EXPECT_EQ(ws().fit_ok_nz, 1u);
    EXPECT_EQ(ws().zspec_slot, 0);
    EXPECT_EQ(dval, 0.0f);
}

TEST_F(Learning, ZoomTestUpdatesOnlyAfterAPassingNoZoomTest) {
    ws().learn_phase = 1;
    band_powers(1.6f, 2.0f, 2.0f);
    const st_vorl before = p();
    period(1.0f, 0.0f);  // fits
    act();
    EXPECT_EQ(ws().fit_ok_z, 1u);
    EXPECT_EQ(std::memcmp(&before, &p(), sizeof before), 0);  // rate 0: unchanged
    EXPECT_EQ(w.inst.learn_cnt, 0u);

    ws().fit_ok_nz = 1;
    band_powers(1.6f, 2.0f, 2.0f);
    period(1.0f, 0.0f);
    act();
    EXPECT_EQ(w.inst.learn_cnt, 1u);
    EXPECT_NE(p().zspec_comp_coef_f_LR_d[0][0], before.zspec_comp_coef_f_LR_d[0][0]);

    ws().fit_ok_nz = 1;
    period(3.0f, 0.0f);  // does not fit: err 4*48 > 0.5 * (48 + 144)
    act();
    EXPECT_EQ(ws().fit_ok_z, 0u);
    EXPECT_EQ(w.inst.learn_cnt, 1u);
}

TEST_F(Learning, RateFollowsLevelStepAndDriveAge) {
    ws().learn_phase = 1;
    p().zspec_comp_mod_time_coef_a = 0.5f;
    p().zspec_comp_mod_time_coef_b = -1.0f;
    const struct {
        float level;
        int32_t age;
        float rate;
    } cases[] = {{5000.0f, 6, 2.0f * (0.25f * 0.1f)},   // above tbl_x[0]: val_x[0]
                 {-1.0f, 6, 2.0f * (0.25f * 0.1f)},     // above none of tbl_x[0..6]: val_x[7]
                 {5.0f, 6, 2.0f * (1.0f * 0.1f)},       // first threshold below: tbl_x[3]
                 {5.0f, 1, 0.0f}};                      // ramp below zero
    for (const auto &c : cases) {
        ws().level_ref = c.level;
        ws().z_frame_cnt = c.age;
        ws().fit_ok_nz = 1;
        period(1.0f, 0.0f);  // fits
        const uint32_t learned = w.inst.learn_cnt;
        act();
        EXPECT_FLOAT_EQ(ws().zcomp_rate, c.rate) << c.level << ", " << c.age;
        EXPECT_EQ(w.inst.learn_cnt, learned + (c.rate > 0.0f ? 1u : 0u));
    }
}

TEST_F(Learning, FitRangesBeyondTheFitPointsAreClamped) {
    ws().learn_phase = 1;
    period(1.5f, 0.0f);
    p().zspec_comp_case1_ep = 48;
    act();
    const float in_range = dval;
    period(1.5f, 0.0f);
    ws().band_ref[0][0] = 123.0f;  // lies just past the accumulators
    p().zspec_comp_case1_ep = 255;
    act();
    EXPECT_EQ(dval, in_range);
    p().zspec_comp_case1_sp = 200;  // empty range: err = total = 0
    act();
    EXPECT_TRUE(std::isnan(dval));
    EXPECT_EQ(ws().fit_ok_z, 0u);
}

TEST_F(Learning, BandEstimateIsPowerRatioClampedAndBlendedAsIncrements) {
    // Per band: difference power D, channel powers Pl, Pr, references Rl, Rr.
    const float rate = 0.4f, zoom_scale = 0.5f, ref_scale = 0.25f;
    for (int b = 0; b < 72; ++b) {
        ws().band_acc[0][b] = 7.0f / 3.0f * (1.0f + 0.1f * static_cast<float>(b));
        ws().band_acc[1][b] = 3.0f + 0.05f * static_cast<float>(b);
        ws().band_acc[2][b] = b % 2 ? 0.001f : 9.0f;  // tiny: the floor wins
        ws().band_ref[0][b] = 1.0f;
        ws().band_ref[1][b] = 40.0f;  // large reference: the kept share wins
    }
    p().zspec_comp_coef_f_LR_d_max[0][30] = 0.05f;
    const st_vorl before = p();
    sound_vorl_learn_coef(&w.inst, ref_scale, zoom_scale, rate);
    double prev[2] = {0, 0};
    for (int b = 0; b < 72; ++b) {
        const double diff = (1.0 + 0.1 * b) * zoom_scale;  // 3/7 of the 3-tap sum
        for (int ch = 0; ch < 2; ++ch) {
            const double pz = ws().band_acc[1 + ch][b] * zoom_scale;
            const double pn = ws().band_ref[ch][b] * ref_scale;
            const double v = std::max(pz * 0.1, pz - pn * 1.0);
            double c = v * 3.0 / 7.0 / diff;
            c = std::min(c, static_cast<double>(before.zspec_comp_coef_f_LR_d_max[ch][b]));
            c = std::max(c, 0.01);
            const double expect = (1 - rate) * before.zspec_comp_coef_f_LR_d[ch][b] +
                                  before.zspec_comp_inter_hop[b] * rate * (c - prev[ch]);
            // The reciprocal after three Newton steps is good to 2e-4 here.
            const double tolerance =
                before.zspec_comp_inter_hop[b] * rate * 2e-4 * (c + prev[ch]) + 1e-6 * std::fabs(expect);
            EXPECT_NEAR(p().zspec_comp_coef_f_LR_d[ch][b], expect, tolerance) << ch << ":" << b;
            prev[ch] = c;
        }
    }
}

}  // namespace
