// Suppression core and the table-seeded reciprocal: clamps and accuracy,
// silence, switches, channel count, wind, the accumulators, malformed band
// lists, and pinned bits of whole frames.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <vector>

#include "table_builder.h"
#include "testkit.h"
#include "vorl.h"

namespace {

using vorl::tablekit::reference_table;

class Core : public ::testing::Test {
  protected:
    void SetUp() override { setup(reference_table()); }
    void setup(const st_vorl_tbl &t) {
        vorl::testkit::setup_engine(w, t);
        w.ws.bgn_on = 1;
        w.ws.zn_on = 1;
    }
    // Fills both frames with a spectrum of independent random bins.
    void random_spectra(uint32_t seed, float scale) {
        vorl::testkit::Noise noise(seed);
        for (auto &frame : w.frame)
            for (float &x : frame) x = noise.uniform() * scale;
    }
    void run() {
        float *spec[2] = {w.frame[0], w.frame[1]};
        EXPECT_EQ(sound_vorl_core_sac(spec, &w.inst), 0);
    }
    st_vorl &p() { return w.ws.st_vorl_work; }
    VORLWorkArea w{};
};

TEST_F(Core, ReciprocalSeedsFromTheIntervalAndClampsInPlace) {
    const float *s = p().div_search_tbl_f, *d = p().div_init_value_tbl_f;
    for (int j = 0; j < 27; ++j) {
        float upper = s[j], mid = (s[j] + s[j + 1]) / 2;
        EXPECT_EQ(sound_vorl_recip(&upper, 0, &p()), d[j]) << j;  // S[j+1] < x <= S[j]
        EXPECT_EQ(sound_vorl_recip(&mid, 0, &p()), d[j]) << j;
    }
    float huge = 1e30f, top = s[0];
    EXPECT_EQ(sound_vorl_recip(&huge, 2, &p()), sound_vorl_recip(&top, 2, &p()));
    EXPECT_EQ(huge, s[0]);
    float zero = 0.0f, floor = s[27];
    EXPECT_EQ(sound_vorl_recip(&zero, 2, &p()), sound_vorl_recip(&floor, 2, &p()));
    EXPECT_EQ(zero, s[27]);
    EXPECT_EQ(sound_vorl_recip(&floor, -3, &p()), d[27]);
}

TEST_F(Core, ReciprocalNewtonStepsSquareTheError) {
    // Seeds of the reference table are off by up to 1/3 (octave intervals).
    for (float x = 0.001f; x < 131072.0f; x *= 1.013f) {
        float a = x, b = x;
        EXPECT_LT(std::fabs(sound_vorl_recip(&a, 2, &p()) * x - 1.0f), 0.0124f) << x;
        EXPECT_LT(std::fabs(sound_vorl_recip(&b, 3, &p()) * x - 1.0f), 1.6e-4f) << x;
    }
}

TEST_F(Core, SilenceStaysSilentAndAddsNothingToTheLevels) {
    w.ws.level_acc = 3.0f;
    w.ws.ctrl_pow_acc = 5.0f;
    w.ws.over_est_cur = 2.0f;
    for (int frame = 0; frame < 60; ++frame) run();
    for (auto &f : w.frame)
        for (float x : f) ASSERT_EQ(x, 0.0f);
    EXPECT_EQ(w.ws.level_acc, 3.0f);
    EXPECT_EQ(w.ws.ctrl_pow_acc, 5.0f);
    // Zero power clamps to the table floor; only the background part is left.
    float floor = p().div_search_tbl_f[27];
    const float expect = 1.0f - 2.0f * 1e-6f * sound_vorl_recip(&floor, 2, &p());
    EXPECT_NEAR(w.ws.gain_prev[0][100], std::max(expect, p().nr_floor_coef), 1e-5);
    EXPECT_EQ(w.ws.pow_spec[1][7], p().div_search_tbl_f[27]);  // clamp written back
}

TEST_F(Core, WithoutNoiseEstimateTheGainTendsToOne) {
    w.ws.bgn_on = w.ws.zn_on = 0;
    w.ws.over_est_cur = 1.5f;
    for (uint32_t frame = 1; frame <= 40; ++frame) random_spectra(frame, 0.3f), run();
    for (float g : w.ws.gain_prev[1]) ASSERT_NEAR(g, 1.0f, 1e-6);
}

TEST_F(Core, OneChannelLeavesTheRightSpectrumAndItsAccumulatorsAlone) {
    w.inst.ch_num_proc = 1;
    w.ws.over_est_cur = 1.0f;
    random_spectra(5, 0.2f);
    const std::vector<float> right(w.frame[1], w.frame[1] + 512), left(w.frame[0], w.frame[0] + 512);
    run();
    EXPECT_EQ(std::vector<float>(w.frame[1], w.frame[1] + 512), right);
    EXPECT_NE(std::vector<float>(w.frame[0], w.frame[0] + 512), left);
    for (int b = 0; b < 72; ++b) EXPECT_EQ(w.ws.band_acc[2][b], 0.0f);
    EXPECT_GT(w.ws.band_acc[1][5], 0.0f);
    // The level still counts both channels (powers as measured, before the
    // reciprocal's clamp); the odd-bin sum counts only the left.
    auto power = [](const std::vector<float> &x, int i) {
        return i == 0 ? double(x[0]) * x[0] : double(x[i]) * x[i] + double(x[512 - i]) * x[512 - i];
    };
    double both = 0;
    for (int i = 0; i < 256; ++i) both += power(left, i) + power(right, i);
    EXPECT_NEAR(w.ws.level_acc, both / 512, both / 512 * 1e-5);
    const double left_bin1 = power(left, 1) + 0.6666667 * (w.ws.pow_spec[0][0] + power(left, 2)) +
                             0.33333334 * power(left, 3);
    EXPECT_NEAR(w.ws.zspec_acc[2][0], left_bin1, left_bin1 * 1e-5);
}

TEST_F(Core, WindRaisesTheOverEstimationBelowItsBin) {
    auto gains = [&](uint32_t wind) {
        SetUp();
        w.inst.wind_state = wind;
        w.ws.over_est_cur = 1.0f;
        w.ws.zn_on = 0;
        p().nr_floor_coef = -1e9f;  // no floor: the raw gain shows
        p().nr_gain_sm_coef = 0.0f;
        random_spectra(9, 0.01f);
        run();
        return std::vector<float>(w.ws.gain_prev[0], w.ws.gain_prev[0] + 256);
    };
    const std::vector<float> calm = gains(0), windy = gains(1), other = gains(2);
    EXPECT_EQ(calm, other);  // only the value 1 means wind here
    for (int i = 1; i < 20; ++i) {
        if (i < p().wind_nr_proc_freq)
            EXPECT_NEAR(1.0f - windy[i], (1.0f - calm[i]) * 1.5f, std::fabs(1.0f - calm[i]) * 1e-5) << i;
        else
            EXPECT_EQ(windy[i], calm[i]) << i;
    }
}

TEST_F(Core, EachFitPointAndEachBandAccumulatesExactlyOnce) {
    // Unit difference power in every bin: the smoothed values are known.
    for (auto &f : w.frame) std::fill(f, f + 512, 0.0f);
    for (int i = 0; i < 256; ++i) w.frame[0][i] = 1.0f;
    run();
    const float inner3 = (1.0f + 0.6666667f) + 0.6666667f;
    const float inner5 = (inner3 + 0.33333334f) + 0.33333334f;
    for (int k = 0; k < 48; ++k) {
        const float d5 = k == 0 ? inner5 - 0.33333334f : inner5;  // bin 1 has no bin -1
        ASSERT_EQ(w.ws.zspec_acc[0][k], d5) << k;
        ASSERT_EQ(w.ws.zspec_acc[1][k], 4096.0f) << k;  // the other slot is untouched
    }
    for (int b = 0; b < 72; ++b) {
        const int bin = p().zspec_comp_base_bin[b];
        const float d3 = bin == 0 || bin == 255 ? 1.0f + 0.6666667f : inner3;
        ASSERT_EQ(w.ws.band_acc[0][b], d3) << b;
    }
}

TEST_F(Core, MalformedBandListsHoldTheLastBand) {
    // Nodes end at bin 100: past it the counter must stay on band 71, so the
    // left channel never reads the right channel's increments that follow.
    auto left_after = [&](float right_first_increment) {
        st_vorl_tbl t = reference_table();
        for (int b = 0; b < 72; ++b) t.st_vorl.zspec_comp_base_bin[b] = static_cast<uint8_t>(29 + b);
        t.st_vorl.zspec_comp_coef_f_LR_d[1][0] = right_first_increment;
        setup(t);
        w.ws.over_est_cur = 1.0f;
        random_spectra(3, 0.1f);
        run();
        for (int b = 0; b < 72; ++b) EXPECT_EQ(w.ws.band_ref[0][b], 0.0f);  // just past band_acc
        return std::vector<float>(w.frame[0], w.frame[0] + 512);
    };
    EXPECT_EQ(left_after(0.0f), left_after(1e6f));

    st_vorl_tbl t = reference_table();
    for (uint8_t &node : t.st_vorl.zspec_comp_base_bin) node = 0;  // never increasing
    setup(t);
    random_spectra(3, 0.1f);
    run();
    EXPECT_NE(w.ws.band_acc[0][0], 0.0f);
    for (int b = 1; b < 72; ++b) EXPECT_EQ(w.ws.band_acc[0][b], 0.0f);
}

TEST_F(Core, OutOfRangeTemplateIndexFallsBackToTheFirstTemplate) {
    auto spectrum_with = [&](int32_t sel) {
        SetUp();
        w.ws.bgn_sel = sel;
        w.ws.over_est_cur = 1.0f;
        p().back_ground_noise[0][0][3] = 1e-3f;
        random_spectra(4, 0.05f);
        run();
        return std::vector<float>(w.frame[0], w.frame[0] + 512);
    };
    EXPECT_EQ(spectrum_with(7), spectrum_with(0));
    EXPECT_EQ(spectrum_with(-1), spectrum_with(0));
    EXPECT_NE(spectrum_with(1), spectrum_with(0));
}

// Pinned bits of two consecutive frames through the core: spectra and the
// whole workspace (powers, gains, accumulators).
TEST_F(Core, BitsOfTwoFramesArePinned) {
    w.ws.over_est_cur = 1.7f;
    w.ws.bias_cur = 1.1f;
    w.ws.eq_slope_scale = 0.5f;
    w.ws.bgn_sel = 2;
    p().eq_gain[9] = -0.001f;
    p().back_ground_noise[2][0][1] = 2e-5f;
    w.ws.st_vorl_work.zspec_comp_coef_f_LR_d[0][3] = 0.01f;
    w.inst.wind_state = 1;
    std::string bits;
    for (uint32_t seed : {31u, 32u}) {
        random_spectra(seed, 0.25f);
        run();
        bits += vorl::testkit::digest(&w.frame, sizeof w.frame);
    }
    // The workspace without its pointers (they hold addresses).
    const auto *ws = reinterpret_cast<const unsigned char *>(&w.ws);
    bits += vorl::testkit::digest(ws, offsetof(st_vorl_ws, p_gain_prev));
    bits += vorl::testkit::digest(ws + offsetof(st_vorl_ws, zcomp), sizeof w.ws - offsetof(st_vorl_ws, zcomp));
    EXPECT_EQ(bits, "e5678b87f5966777f9c7f2140cfb59b5b9f7299c0dd50455dd52909bede711aa");
}

}  // namespace
