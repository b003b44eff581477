// Engine set-up: pointers stay in the work area or the constant tables, the
// version check still sets the engine up, working copies are independent of
// the image, and the starting state.
#include <gtest/gtest.h>

#include <cstring>

#include "table_builder.h"
#include "testkit.h"
#include "vorl.h"

namespace {

using vorl::tablekit::reference_table;

bool inside(const void *p, const void *base, size_t size) {
    auto a = reinterpret_cast<uintptr_t>(p), b = reinterpret_cast<uintptr_t>(base);
    return a >= b && a < b + size;
}

TEST(EngineSetup, EveryPointerLandsInTheWorkAreaOrAConstantTableNeverTheImage) {
    static VORLWorkArea w;
    for (uint8_t train : {0, 1}) {
        st_vorl_tbl t = reference_table();
        t.st_vorl.train_mode = train;
        ASSERT_EQ(vorl::testkit::setup_engine(w, t), 0);
        const st_vorl_ws &ws = w.ws;
        const void *into_work[] = {w.inst.p_frame[0], w.inst.p_frame[1], w.inst.p_ws, w.inst.p_pulse,
                                   ws.p_gain_prev, ws.p_zspec_acc, ws.p_band_ref, ws.p_band_acc,
                                   ws.p_pow_spec, ws.p_diff_pow, ws.p_zcomp, ws.p_zcomp_tbl,
                                   ws.p_zcomp_max, ws.p_st_vorl, ws.p_st_vorlc, w.pulse.p_diff_hist};
        for (const void *p : into_work) {
            EXPECT_TRUE(inside(p, &w, sizeof w));
            EXPECT_FALSE(inside(p, &w.tbl, sizeof w.tbl));
        }
        EXPECT_EQ(w.inst.p_sin_win_tbl, sin_win_tbl);
        EXPECT_EQ(w.inst.p_scale_sin_win_tbl, scale_sin_win_tbl);
        EXPECT_EQ(w.inst.p_ifft_tbl, IFFT_radix4_time_addition_theorem_wr_wi_2048);
        EXPECT_EQ(w.inst.p_hamming_tbl, tblHamming);
        EXPECT_EQ(w.inst.p_tbl, &w.tbl);  // the instance keeps the image for write-back only
    }
}

TEST(EngineSetup, WrongVersionIsReportedButTheEngineIsSetUp) {
    static VORLWorkArea w;
    st_vorl_tbl t = reference_table();
    for (uint32_t bit = 0; bit < 32; bit += 7) {
        t.tbl_version = VORL_TBL_VERSION ^ (1u << bit);
        std::memset(&w.ws, 0xCC, sizeof w.ws);
        EXPECT_EQ(vorl::testkit::setup_engine(w, t), -1);
        EXPECT_EQ(std::memcmp(&w.ws.st_vorl_work, &t.st_vorl, sizeof(st_vorl)), 0);
        EXPECT_EQ(w.ws.blk_cnt, t.st_vorl.nz_block_counter);
    }
}

TEST(EngineSetup, StartingStateFromADirtyWorkArea) {
    static VORLWorkArea w;
    st_vorl_tbl t = reference_table();
    t.st_vorl.nz_block_counter = -7;  // counters widen with their sign
    std::memset(&w, 0x5A, sizeof w);
    vorl::testkit::setup_engine(w, t);
    for (int m = 0; m < 48; ++m) {
        EXPECT_EQ(w.ws.zspec_acc[0][m] + w.ws.zspec_acc[2][m], 0.0f);
        EXPECT_EQ(w.ws.zspec_acc[1][m], 4096.0f);  // what the first no-zoom test meets
    }
    for (int i = 0; i < 512; ++i) EXPECT_EQ(w.frame[0][i] + w.frame[1][i] + w.ws.gain_prev[i / 256][i % 256], 0.0f);
    EXPECT_EQ(w.ws.blk_cnt, -7);
    EXPECT_EQ(w.ws.ctrl_pow_hist[3], -90.0f);
    EXPECT_EQ(w.ws.eq_on_prev, 1u);
    EXPECT_EQ(w.inst.learn_cnt, 0u);
}

TEST(EngineSetup, TrainingModeChoosesWhichCoefficientsTheCoreReads) {
    static VORLWorkArea w;
    st_vorl_tbl t = reference_table();
    t.st_vorl.train_mode = 2;  // only 1 means training
    vorl::testkit::setup_engine(w, t);
    EXPECT_EQ(w.ws.p_zcomp, &w.ws.zcomp[0][0]);
    EXPECT_EQ(std::memcmp(w.ws.zcomp, t.st_vorl.zspec_comp_coef_f_LR_d, sizeof w.ws.zcomp), 0);
    t.st_vorl.train_mode = 1;
    vorl::testkit::setup_engine(w, t);
    EXPECT_EQ(w.ws.p_zcomp, w.ws.p_zcomp_tbl);
    EXPECT_EQ(w.ws.p_zcomp_tbl, &w.ws.st_vorl_work.zspec_comp_coef_f_LR_d[0][0]);
}

TEST(EngineSetup, ChangingTheImageAfterSetUpChangesNothing) {
    auto run = [](bool scribble) {
        static VORLWorkArea w;
        vorl::testkit::setup_engine(w, reference_table());
        if (scribble) std::memset(&w.tbl.st_vorl, 0x7F, sizeof w.tbl.st_vorl);
        vorl::testkit::Noise noise(99);
        for (int b = 0; b < 40; ++b) {
            for (int i = 0; i < 256; ++i) {
                w.ring[0][768 + i] = static_cast<int16_t>(noise.uniform() * 3000);
                w.ring[1][768 + i] = static_cast<int16_t>(noise.uniform() * 3000);
            }
            w.inst.zoom_state = b >= 10 && b < 30 ? 1 : 0;
            sound_vorl(w.ring[0], w.out[0], &w.inst);
            std::memmove(w.ring[0], w.ring[0] + 256, 768 * 2);
            std::memmove(w.ring[1], w.ring[1] + 256, 768 * 2);
        }
        return vorl::testkit::digest(&w.out, sizeof w.out) + vorl::testkit::digest(&w.ws, sizeof w.ws);
    };
    EXPECT_EQ(run(false), run(true));
}

}  // namespace
