// Pulse filter on a steady +-100 pattern with one click: statistics and
// thresholds call by call, detection in the right call, the patched samples
// and their untouched neighbours, and when nothing may change.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "pulse/pulse_stats.h"
#include "table_builder.h"
#include "testkit.h"
#include "vorl.h"

namespace {

constexpr int kBlocks = 26;
constexpr int kLead = 3;  // silent blocks before the stream, as after initialisation

// The stream as the ring sees it: call t works on blocks t-3..t, so the ring
// of call t starts at block t of a stream that begins with three silent blocks.
class PulseFilterRun : public ::testing::Test {
  protected:
    void SetUp() override {
        vorl::testkit::setup_engine(w, vorl::tablekit::reference_table());
        w.inst.ch_num_proc = 1;
        sound_CPulseFilter_init(&w.inst);
        stream.assign((kLead + kBlocks) * 256, 0);
        for (int n = 0; n < kBlocks * 256; ++n) sample(n) = n % 2 ? -100 : 100;
    }
    int16_t &sample(int n) { return stream[kLead * 256 + n]; }
    int16_t &at(int block, int offset) { return sample(block * 256 + offset); }
    // Runs call t (block t newest) and returns the threshold it used.
    int32_t call(int t, uint32_t zoom) {
        w.inst.zoom_state = zoom;
        sound_pulse_filter_sac(nullptr, &stream[t * 256], 0, &w.inst);
        const CPulseFilter &pf = w.pulse;
        const int newest = (pf.peak_pos[0] + 4) % 5;  // slot just written
        const int32_t pref = std::max(pf.peak_hist[0][newest], pf.peak_hist[0][pf.peak_pos[0]]);
        return std::max(5 * pref, vorl::pulse::long_term_threshold(pf, 0));
    }
    VORLWorkArea w{};
    std::vector<int16_t> stream;
};

TEST_F(PulseFilterRun, SteadyPatternStatistics) {
    int32_t th = 0;
    for (int t = 0; t < 20; ++t) th = call(t, 1);
    const CPulseFilter &pf = w.pulse;
    for (int j = 0; j < 16; ++j) {
        EXPECT_EQ(pf.abs_sum[0][j], 51000u);
        EXPECT_EQ(pf.sq_sum[0][j], 10200000u);
        EXPECT_EQ(pf.sq_exp[0][j], 0);
    }
    EXPECT_EQ(vorl::pulse::long_term_threshold(pf, 0), 298);
    EXPECT_EQ(th, 1000);
    EXPECT_EQ(pf.fade_pending[0], 0u);
}

TEST_F(PulseFilterRun, ClickIsDetectedTwoCallsLaterAndCrossFadedAway) {
    at(20, 100) = 10000;
    const std::vector<int16_t> original = stream;
    std::vector<int32_t> th(kBlocks);
    for (int t = 0; t < kBlocks; ++t) {
        th[t] = call(t, 1);
        EXPECT_EQ(w.pulse.fade_pending[0], t == 22 ? 1u : 0u) << "call " << t;
    }
    EXPECT_EQ(th[19], 1000);
    EXPECT_EQ(th[20], 50500);  // the click's own peak while block 20 is newest
    EXPECT_EQ(th[21], 1954);
    EXPECT_EQ(th[22], 1954);   // judging block 20: jump of 10100 at k = 99

    // Blocks 20, 21 and the first 83 samples of block 22 are the pattern
    // scaled by the summed window weights; everything else is untouched.
    for (int n = 0; n < kBlocks * 256; ++n) {
        const int block = n / 256, offset = n % 256;
        const bool patched = block == 20 || block == 21 || (block == 22 && offset < 83);
        const int16_t x = sample(n), x0 = original[kLead * 256 + n];
        if (patched) {
            ASSERT_GE(std::abs(x), 106) << block << ":" << offset;
            ASSERT_LE(std::abs(x), 109) << block << ":" << offset;
            ASSERT_EQ(x > 0, n % 2 == 0) << block << ":" << offset;
        } else {
            ASSERT_EQ(x, x0) << block << ":" << offset;
        }
    }
}

TEST_F(PulseFilterRun, WithoutZoomDriveNothingChangesButStatisticsAdvanceAndPatchesFinish) {
    at(20, 100) = 10000;
    const std::vector<int16_t> original = stream;
    for (int t = 0; t < kBlocks; ++t) call(t, 0x100);  // low byte 0: no drive
    EXPECT_EQ(stream, original);
    EXPECT_EQ(w.pulse.blk_pos[0], kBlocks % 16);
    EXPECT_EQ(w.pulse.peak_pos[0], kBlocks % 5);
    SetUp();  // a patch started during the drive is finished after it stops
    at(20, 100) = 10000;
    for (int t = 0; t <= 23; ++t) call(t, t <= 22 ? 2 : 0);
    EXPECT_EQ(w.pulse.fade_pending[0], 0u);
    for (int offset = 0; offset < 83; ++offset) EXPECT_GE(std::abs(at(22, offset)), 106) << offset;
}

TEST_F(PulseFilterRun, ClicksBeforeSixteenAreLeftAloneAtSixteenPatchedWithoutTheBlend) {
    at(20, 15) = 10000;  // first jump at k = 14
    const std::vector<int16_t> original = stream;
    for (int t = 0; t <= 22; ++t) call(t, 1);
    EXPECT_EQ(stream, original);
    SetUp();
    at(20, 17) = 10000;  // first jump at k = 16: p = 0
    for (int t = 0; t <= 22; ++t) call(t, 1);
    EXPECT_EQ(w.pulse.fade_pos[0], 0);
    EXPECT_NE(at(20, 0), original[kLead * 256 + 20 * 256]);  // the cross-fade starts at 0
    EXPECT_EQ(at(19, 255), original[kLead * 256 + 19 * 256 + 255]);
}

TEST_F(PulseFilterRun, DifferenceEqualToTheThresholdIsNoDetection) {
    at(20, 100) = 900;  // jumps of exactly 1000 = 5 x 200
    for (int t = 0; t <= 22; ++t) EXPECT_EQ(call(t, 1), t == 20 ? 5000 : 1000) << t;
    EXPECT_EQ(w.pulse.fade_pending[0], 0u);
    SetUp();
    at(20, 100) = 901;
    for (int t = 0; t <= 22; ++t) call(t, 1);
    EXPECT_EQ(w.pulse.fade_pending[0], 1u);
    EXPECT_EQ(w.pulse.fade_pos[0], 99 - 16);
}

}  // namespace
