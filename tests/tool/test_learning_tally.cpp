// The learning tally follows the library's measuring periods from outside;
// with thresholds that pass or fail every test, its counts must match the
// updates the library itself reports, period for period.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "host_session.h"
#include "table_checksum.h"
#include "table_store.h"
#include "testkit.h"

namespace {

// Faint room noise with a motor (independent noise in the two capsules)
// during `drives` (start and end block); returns the session's tally.
struct TallyRun {
    vorl::LearningTally tally;
    uint32_t updates;
    std::string why;
};

TallyRun run(float drive_th, float quiet_th, std::vector<std::pair<int, int>> drives, int blocks = 1700) {
    st_vorl_tbl t = vorl::default_table();
    t.st_vorl.zspec_comp_case1_th = drive_th;
    t.st_vorl.zspec_comp_case0_th = quiet_th;
    vorl::tablekit::seal(t);
    vorl::HostSession session(t, "test table");
    int16_t in[2 * 256], out[2 * 256];
    vorl::testkit::Noise room(2), motor(5);
    for (int b = 0; b < blocks; ++b) {
        bool on = false;
        for (const auto &[first, end] : drives) on = on || (b >= first && b < end);
        for (int i = 0; i < 2 * 256; ++i) {
            const float level = 4.0f * room.uniform() + (on ? 1500.0f * motor.uniform() : 0.0f);
            in[i] = static_cast<int16_t>(std::lround(level));
        }
        session.process(in, out, vorl::DriveWords{on ? 1u : 0u, 0u, 0u});
    }
    const vorl::LearningTally &tally = session.learning_tally();
    return {tally, session.learn_count(), tally.why_nothing(session.working_parameters())};
}

const std::vector<std::pair<int, int>> kTwoDrives = {{200, 600}, {900, 1400}};

TEST(LearningTally, CountsTheLibrarysOwnMeasuringPeriods) {
    // Every test passes: each drive period is an update.
    const TallyRun all = run(1e30f, 1e30f, kTwoDrives);
    EXPECT_GT(all.updates, 40u);
    EXPECT_EQ(all.tally.drive_periods, all.updates);
    EXPECT_EQ(all.tally.drive_passed, all.updates);
    EXPECT_GT(all.tally.quiet_periods, 20u);
    EXPECT_EQ(all.tally.quiet_passed, all.tally.quiet_periods);

    // The motor test fails everywhere: the periods are the same, their
    // error ratios are reported.
    const TallyRun none = run(1e-30f, 1e30f, kTwoDrives);
    EXPECT_EQ(none.updates, 0u);
    EXPECT_EQ(none.tally.drive_periods, all.tally.drive_periods);
    EXPECT_EQ(none.tally.drive_passed, 0u);
    EXPECT_GT(none.tally.failed_low, 0.0f);  // ratios were seen
    EXPECT_LE(none.tally.failed_low, none.tally.failed_high);
    const std::string expected = "none of the " + std::to_string(all.updates) + " zoom-drive periods passed";
    EXPECT_NE(none.why.find(expected), std::string::npos) << none.why;

    EXPECT_NE(run(1e30f, 1e-30f, kTwoDrives).why.find("quiet periods outside drives passed the reference test"),
              std::string::npos);
    const TallyRun brief = run(1e30f, 1e30f, {{200, 205}, {900, 910}});
    EXPECT_EQ(brief.tally.drive_periods, 0u);
    EXPECT_NE(brief.why.find("no zoom drive lasted long enough"), std::string::npos) << brief.why;
}

}  // namespace
