// Tuning-table file: whole-file I/O, the wrapping checksum, the plausibility
// check's exact diagnostics, and the learning count.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "table_builder.h"
#include "testkit.h"
#include "vorl.h"

namespace {

using vorl::tablekit::reference_table;
using vorl::tablekit::seal;
using vorl::testkit::TempFile;

class TableFile : public ::testing::Test {
  protected:
    void SetUp() override { vorl::testkit::setup_engine(w, reference_table()); }
    st_vorl &learned() { return w.ws.st_vorl_work; }
    std::string check_diagnostics(int32_t expect_result) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(sound_vorl_check_tbl(&w.inst), expect_result);
        return testing::internal::GetCapturedStderr();
    }
    VORLWorkArea w{};
};

TEST_F(TableFile, ChecksumIsTheWrappingSumOfAllOtherWords) {
    st_vorl_tbl &t = w.tbl;
    t.tbl_cnt = 0xFFFFFFF0u;  // forces the sum past 2^32
    t.st_vorl.eq_gain[3] = -1.0f;
    EXPECT_EQ(sound_vorl_calc_check_sum(&w.hdr), 0);
    uint64_t sum = 0;  // independent: wide sum of the words, then modulo 2^32
    for (unsigned i = 0; i < 1045; ++i) sum += reinterpret_cast<const uint32_t *>(&t)[i];
    EXPECT_EQ(t.check_sum, static_cast<uint32_t>(sum));
    EXPECT_EQ(sound_vorl_comp_check_sum(&w.hdr), 0);
    t.st_vorlc.nr_ctrl_freq_ep ^= 1;
    EXPECT_EQ(sound_vorl_comp_check_sum(&w.hdr), -1);
}

TEST_F(TableFile, ReadAndWriteMoveTheWholeImage) {
    TempFile file;
    const st_vorl_tbl original = reference_table();
    ASSERT_EQ(sound_vorl_write_tbl(file.path().c_str(), &original), 0);
    EXPECT_EQ(vorl::testkit::read_file(file.path()).size(), 4184u);
    st_vorl_tbl copy{};
    ASSERT_EQ(sound_vorl_read_tbl(file.path().c_str(), &copy), 0);
    EXPECT_EQ(std::memcmp(&copy, &original, sizeof copy), 0);

    // A short file fills only the front; the rest keeps what the image held.
    vorl::testkit::write_file(file.path(), &original, 100);
    std::memset(&copy, 0xEE, sizeof copy);
    ASSERT_EQ(sound_vorl_read_tbl(file.path().c_str(), &copy), 0);
    EXPECT_EQ(std::memcmp(&copy, &original, 100), 0);
    EXPECT_EQ(reinterpret_cast<unsigned char *>(&copy)[100], 0xEE);
}

TEST_F(TableFile, UnopenableFilesReportMinusOneAndLeaveTheImage) {
    st_vorl_tbl image = reference_table();
    const st_vorl_tbl before = image;
    EXPECT_EQ(sound_vorl_read_tbl("/nonexistent/dir/table.bin", &image), -1);
    EXPECT_EQ(std::memcmp(&image, &before, sizeof image), 0);
    EXPECT_EQ(sound_vorl_write_tbl("/nonexistent/dir/table.bin", &image), -1);
    EXPECT_EQ(sound_vorl_read_tbl(nullptr, &image), -1);
    EXPECT_EQ(std::memcmp(&image, &before, sizeof image), 0);
    EXPECT_EQ(sound_vorl_write_tbl(nullptr, &image), -1);
}

TEST_F(TableFile, CheckReportsEveryNodeAboveItsLimitInOrder) {
    learned().zspec_comp_coef_f_LR_d_max[0][5] = 0.4f;  // the curve is 0.5 everywhere
    learned().zspec_comp_coef_f_LR_d_max[0][9] = 0.4f;
    EXPECT_EQ(check_diagnostics(-1), "4:5\n4:9\n");
    learned().zspec_comp_coef_f_LR_d_max[1][3] = 0.4f;  // second channel follows the first
    EXPECT_EQ(check_diagnostics(-1), "4:5\n4:9\n4:3\n");
}

TEST_F(TableFile, CheckReportsTheStartNodeAndLowNodesAsSingleCharacters) {
    // Node 0 below the floor, node 1 back at 0.5 through its increment.
    learned().zspec_comp_coef_f_LR_d[0][0] = 0.001f;
    learned().zspec_comp_coef_f_LR_d[0][1] = (0.5f - 0.001f) / 2.0f;
    EXPECT_EQ(check_diagnostics(-1), "1");

    // Start above its limit, then a node that falls below the floor.
    SetUp();
    learned().zspec_comp_coef_f_LR_d_max[1][0] = 0.1f;
    learned().zspec_comp_coef_f_LR_d[1][7] = -1.0f;  // node 7: 0.5 - 2 < floor, stays low
    std::string out = check_diagnostics(-1);
    EXPECT_EQ(out.substr(0, 2), "23");
    EXPECT_EQ(out.find('\n'), std::string::npos);
}

TEST_F(TableFile, CheckUsesTheToleranceFactorsAndIgnoresNaN) {
    learned().zspec_comp_coef_f_LR_d_max[0][5] = 0.4f;
    learned().tolerance_range_zspec_max = 1.5f;  // 0.6 allows the 0.5 node
    EXPECT_EQ(check_diagnostics(0), "");
    learned().zspec_comp_coef_f_LR_d[0][0] = std::numeric_limits<float>::quiet_NaN();
    learned().zspec_comp_coef_f_LR_d_max[0][5] = 0.0f;
    EXPECT_EQ(check_diagnostics(0), "");  // NaN meets no comparison
}

TEST_F(TableFile, CountWrapsAndGettersReportImageAndInstance) {
    w.tbl.tbl_cnt = 0xFFFFFFFFu;
    w.inst.learn_cnt = 1;
    EXPECT_EQ(sound_vorl_info_get(&w.inst), 1u);
    EXPECT_EQ(sound_vorl_set_tbl_cnt_info(&w.inst, &w.hdr), 0);
    EXPECT_EQ(sound_vorl_get_tbl_cnt_info(&w.hdr), 0u);
}

}  // namespace
