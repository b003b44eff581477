// Parameter dump: the exact text for a table with known values, and how
// bytes, flags and signed counters print.
#include <gtest/gtest.h>

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
    std::ifstream in(std::string(VORL_TEST_DATA_DIR) + "/" + name, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// Distinct, exactly known values in every block, so that a value printed
// from the wrong field or in the wrong format shows: 65- and 72-value arrays
// (short and complete last lines), -0.0, a counter of -1, a byte of 255, a
// flag byte of 0xff and the most negative control counter.
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

TEST(TableDump, ShowsTheWorkingCopyNotTheImage) {
    static VORLWorkArea w;
    vorl::testkit::setup_engine(w, known_table());
    w.ws.st_vorl_work.over_est = 0.75f;
    w.tbl.st_vorl.over_est = 9.0f;
    testing::internal::CaptureStdout();
    sound_vorl_print_tbl(&w.inst);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("over_est      = 0.7500000\n"), std::string::npos);
}

}  // namespace
