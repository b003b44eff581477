// Block driver: drive edges and their resets, per-block switches, the
// equaliser fade, the bias glide, and the control step's bias targets.
#include <gtest/gtest.h>

#include <cstring>

#include "table_builder.h"
#include "testkit.h"
#include "vorl.h"

namespace {

class Driver : public ::testing::Test {
  protected:
    void SetUp() override { setup(vorl::tablekit::reference_table()); }
    void setup(const st_vorl_tbl &t) {
        vorl::testkit::setup_engine(w, t);
        std::memset(w.ring, 0, sizeof w.ring);
    }
    // One silent block with the given drive words.
    void block(uint32_t zoom, uint32_t wind = 0) {
        w.inst.zoom_state = zoom;
        w.inst.wind_state = wind;
        sound_vorl(w.ring[0], w.out[0], &w.inst);
    }
    void fill_accumulators(float v) {
        for (auto &row : w.ws.band_acc)
            for (float &x : row) x = v;
        for (auto &row : w.ws.zspec_acc)
            for (float &x : row) x = v;
    }
    st_vorl_ws &ws() { return w.ws; }
    st_vorl &p() { return w.ws.st_vorl_work; }
    VORLWorkArea w{};
};

TEST_F(Driver, ZoomStartResetsTheLearningPeriod) {
    block(0);
    fill_accumulators(1e6f);
    ws().fit_ok_z = ws().fit_ok_nz = 1;
    ws().level_acc = 5.0f;
    block(1);
    EXPECT_EQ(ws().z_frame_cnt, 1);
    EXPECT_EQ(ws().learn_phase, 2);
    EXPECT_EQ(ws().blk_cnt, p().i_block_counter - 1);  // counted down in the block
    EXPECT_LT(ws().band_acc[1][3], 1.0f);               // cleared, then this block's silence
    EXPECT_LT(ws().zspec_acc[0][3], 1.0f);              // the current slot row
    EXPECT_EQ(ws().zspec_acc[1][3], 1e6f);              // the other slot keeps its period
    EXPECT_LT(ws().zspec_acc[2][3], 1.0f);
    EXPECT_EQ(ws().fit_ok_z, 0u);
    EXPECT_EQ(ws().fit_ok_nz, 1u);  // a passed no-zoom test survives the start
    EXPECT_EQ(ws().level_acc, 0.0f);
    EXPECT_EQ(ws().bias_cur, ws().bias_z);
    EXPECT_EQ(ws().over_est_cur, p().over_est);
    block(1);
    EXPECT_EQ(ws().z_frame_cnt, 2);
}

TEST_F(Driver, ZoomEndResetsAndClearsTheNoZoomResult) {
    ws().bias_z = 2.0f;
    ws().bias_nz = 1.0f;
    block(2);
    fill_accumulators(1e6f);
    ws().fit_ok_nz = 1;
    block(0);
    EXPECT_EQ(ws().learn_phase, 0);
    EXPECT_EQ(ws().blk_cnt, p().nz_block_counter - 1);
    EXPECT_EQ(ws().fit_ok_nz, 0u);
    EXPECT_EQ(ws().z_frame_cnt, 0);
    EXPECT_LT(ws().band_acc[0][0], 1.0f);
    const float a = p().af_gain_bias_sm_coef;
    EXPECT_EQ(ws().bias_cur, a * 2.0f + (1.0f - a) * 1.0f);  // first step of the glide
    const float b = p().over_est_af_sm_coef;
    EXPECT_EQ(ws().over_est_cur, b * p().over_est + (1.0f - b) * p().over_est_af);
    for (int i = 0; i < 120; ++i) block(0);
    EXPECT_NEAR(ws().bias_cur, 1.0f, 1e-5);
}

TEST_F(Driver, ChangingDirectionIsNoEdgeAndOnlyMovesTheTemplate) {
    block(1);
    EXPECT_EQ(ws().bgn_sel, 1);
    fill_accumulators(1e6f);
    const int32_t countdown = ws().blk_cnt;
    block(2);
    EXPECT_EQ(ws().bgn_sel, 2);
    EXPECT_EQ(ws().learn_phase, 2);
    EXPECT_EQ(ws().blk_cnt, countdown - 1);
    EXPECT_GT(ws().band_acc[0][0], 1.0f);  // nothing was reset
    p().bn_proc_flag |= 4;                  // always the first template
    block(2);
    EXPECT_EQ(ws().bgn_sel, 0);
}

TEST_F(Driver, EqualiserFadesOutFromTheFirstBlockAndBackIn) {
    p().eq_proc_flag = 2;  // on only during zoom
    p().eq_sm_coef_out = 0.25f;
    p().eq_sm_coef_in = 0.5f;
    ws().eq_base = 2.0f;
    block(0);  // eq_on_prev starts at 1: a fade-out begins at once
    EXPECT_EQ(ws().eq_fade_state, 2u);
    EXPECT_EQ(ws().eq_start, 0.25f + 0.75f * 2.0f);
    EXPECT_EQ(ws().eq_slope_scale, 0.75f);
    for (int i = 0; i < 80; ++i) block(0);
    EXPECT_NEAR(ws().eq_start, 1.0f, 1e-6);  // flat
    EXPECT_NEAR(ws().eq_slope_scale, 0.0f, 1e-6);
    block(1);
    EXPECT_EQ(ws().eq_fade_state, 1u);
    EXPECT_EQ(ws().eq_start, 0.5f * 2.0f + 0.5f * 1.0f);
    EXPECT_EQ(ws().eq_slope_scale, 0.5f);
    for (int i = 0; i < 40; ++i) block(1);
    EXPECT_NEAR(ws().eq_start, 2.0f, 1e-6);
    EXPECT_NEAR(ws().eq_slope_scale, 1.0f, 1e-6);
}

class ControlStep : public Driver {
  protected:
    void SetUp() override {
        st_vorl_tbl t = vorl::tablekit::reference_table();
        t.st_vorlc.nr_ctrl_counter = 1;  // a control step in every block
        t.st_vorlc.nr_ctrl_t_ave_coef = 1.0f;
        t.st_vorlc.over_est_sm_coef = 0.5f;
        setup(t);
    }
    // A silent block adds no control power, so the period's power is `level`.
    void period(float level, uint32_t zoom = 0) {
        ws().ctrl_pow_acc = level;
        block(zoom);
    }
};

TEST_F(ControlStep, TargetsComeOnlyFromFourAgreeingDriveFreePeriods) {
    const float z0 = ws().bias_z, nz0 = ws().bias_nz;
    period(0.001f);  // one low value and three initial -90s: all low
    EXPECT_EQ(ws().bias_z, 0.5f * p().est_noise_bias_z_max + 0.5f * z0);
    EXPECT_EQ(ws().bias_nz, 0.5f * p().est_noise_bias_nz_max + 0.5f * nz0);
    EXPECT_EQ(ws().ctrl_pow_hist[0], 0.001f);
    EXPECT_EQ(ws().ctrl_cnt, 1);

    const float z1 = ws().bias_z;
    for (int i = 0; i < 3; ++i) period(0.5f);  // middle values mixed with the low one
    EXPECT_FLOAT_EQ(ws().bias_z, z1);
    period(0.5f);  // four middle values
    EXPECT_EQ(ws().bias_z, 0.5f * p().est_noise_bias_z_nor + 0.5f * z1);
    for (int i = 0; i < 4; ++i) period(50.0f);  // four high values
    EXPECT_LT(ws().bias_z, p().est_noise_bias_z_nor);
}

TEST_F(ControlStep, ZoomInAPeriodFreezesTheBiasesForFourSteps) {
    for (int i = 0; i < 4; ++i) period(50.0f);
    period(50.0f, 1);
    const float frozen = ws().bias_z;
    EXPECT_EQ(ws().ctrl_flags, 1u);
    for (int i = 0; i < 3; ++i) {
        period(50.0f);
        EXPECT_EQ(ws().bias_z, frozen) << i;
    }
    EXPECT_EQ(ws().ctrl_flags, 8u);
    period(50.0f);
    EXPECT_EQ(ws().ctrl_flags, 0u);
    EXPECT_LT(ws().bias_z, frozen);
}

}  // namespace
