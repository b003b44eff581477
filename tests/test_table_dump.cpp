// Parameter dump: the exact text for a table with known values, and how
// bytes, flags and signed counters print.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "table_builder.h"
#include "testkit.h"
#include "vorl.h"

namespace {

std::string dump_of(const st_vorl_tbl &t) {
    static VORLWorkArea w;
    vorl::testkit::setup_engine(w, t);
    testing::internal::CaptureStdout();
    EXPECT_EQ(sound_vorl_print_tbl(&w.inst), 0);
    return testing::internal::GetCapturedStdout();
}

std::string expected_text(const char *name) {
    std::ifstream in(std::string(std::getenv("VORL_TEST_DATA")) + "/" + name, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// Distinct, exactly known values in every block, so that a value printed
// from the wrong field or in the wrong format shows.
st_vorl_tbl known_table() {
    st_vorl_tbl t = vorl::tablekit::reference_table();
    st_vorl &p = t.st_vorl;
    for (int i = 0; i < 65; ++i) p.eq_gain[i] = 1.0f + 0.125f * static_cast<float>(i);
    for (int i = 0; i < 72; ++i) p.zspec_comp_coef_f_LR_d[1][i] = -0.0625f * static_cast<float>(i);
    for (int i = 0; i < 65; ++i) p.back_ground_noise[2][1][i] = static_cast<float>(i) / 1024.0f;
    p.div_search_tbl_f[27] = 3.0e-9f;
    p.over_est = 2.5f;
    p.nz_block_counter = -1;
    p.zspec_comp_case1_ep = 255;
    p.zn_proc_flag = 0xFF;
    t.st_vorlc.nr_ctrl_counter = -32768;
    t.st_vorlc.val_x[7] = 123456.789f;
    return t;
}

TEST(TableDump, PrintsTheExactText) {
    EXPECT_EQ(dump_of(known_table()), expected_text("known_table_dump.txt"));
}

TEST(TableDump, ArrayLinesFollowTheFourValueRule) {
    const std::string text = dump_of(known_table());
    // 65 values: the last line holds one value and its comma, then one line end.
    EXPECT_NE(text.find("9.0000000,\np_st_vorl->zspec_comp_coef_f_LR_d Lch :\n"), std::string::npos);
    // 72 values: a complete last line, then an empty line.
    EXPECT_NE(text.find("-4.4375000000\n\np_st_vorl->zspec_comp_coef_f_LR_d_max Lch :"), std::string::npos);
    // No extra line end after the weights and the division table.
    EXPECT_NE(text.find("0.5000000000,0.5000000000,0.5000000000,0.5000000000\n"
                        "p_st_vorl->zspec_freq_weight_f_nz :"),
              std::string::npos);
    EXPECT_NE(text.find("\np_st_vorl->over_est      = 2.5000000\n"), std::string::npos);
}

TEST(TableDump, CountersAreSignedBytesUnsignedFlagsHex) {
    const std::string text = dump_of(known_table());
    EXPECT_NE(text.find("p_st_vorl->nz_block_counter  = -1\n"), std::string::npos);
    EXPECT_NE(text.find("p_st_vorl->zspec_comp_case1_ep = 255\n"), std::string::npos);
    EXPECT_NE(text.find("p_st_vorl->zn_proc_flag      = 0xff\n"), std::string::npos);
    EXPECT_NE(text.find("p_st_vorlc->nr_ctrl_counter = -32768\n"), std::string::npos);
}

TEST(TableDump, ShowsTheWorkingCopyNotTheImage) {
    static VORLWorkArea w;
    vorl::testkit::setup_engine(w, known_table());
    w.ws.st_vorl.over_est = 0.75f;
    w.tbl.st_vorl.over_est = 9.0f;
    testing::internal::CaptureStdout();
    sound_vorl_print_tbl(&w.inst);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("over_est      = 0.7500000\n"), std::string::npos);
}

}  // namespace
