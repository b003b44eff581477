// Whole-run anchor: a fixed table and a synthetic recording with zoom drives
// in both directions, wind and gear clicks, pulse filter on, processed
// through the host functions. The output samples, the saved table and the
// parameter dump are pinned bit for bit, on every target.
#include <gtest/gtest.h>

#include "testkit.h"
#include "vorl.h"

namespace {

TEST(Regression, WholeRunIsPinned) {
    const vorl::testkit::Recording rec = vorl::testkit::synthetic_recording(600, 1);
    vorl::testkit::Host host(vorl::testkit::learning_table());
    ASSERT_EQ(host.pre_process(), 0);
    host.work().pulse_proc_flag = 1;
    const std::vector<int16_t> out = host.run(rec.interleaved, rec.zoom, rec.wind);

    testing::internal::CaptureStdout();
    sound_vorl_print_tbl(&host.work().inst);
    const std::string dump = testing::internal::GetCapturedStdout();
    testing::internal::CaptureStderr();
    ASSERT_EQ(VORLPostProcess(&host.res), 0);
    const std::string diagnostics = testing::internal::GetCapturedStderr();
    const std::vector<unsigned char> table = vorl::testkit::read_file(host.table_file.path());

    // The run exercises learning, and the learned table passes its check.
    EXPECT_EQ(sound_vorl_info_get(&host.work().inst), 4u);
    EXPECT_EQ(diagnostics, "");
    EXPECT_EQ(vorl::testkit::digest(out), "c9f43b8ef1678db9");
    EXPECT_EQ(vorl::testkit::digest(table), "a7ed55193892afd4");
    EXPECT_EQ(vorl::testkit::digest(dump.data(), dump.size()), "aa1407f9251b88c8");
}

}  // namespace
