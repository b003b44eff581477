// The rules a usable table keeps: each broken rule is reported by field and
// index; the shipped default keeps them all and has the documented
// division-table accuracy; the curve check agrees with the library's own.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "table_builder.h"
#include "table_json.h"
#include "table_rules.h"

namespace vorl::tablekit {
namespace {

st_vorl_tbl default_table() {
    std::ifstream in(VORL_DEFAULT_TABLE_JSON);
    std::stringstream text;
    text << in.rdbuf();
    return table_from_json(text.str());
}

bool reports(const std::vector<Violation> &v, const std::string &where) {
    for (const auto &x : v)
        if (x.where == where) return true;
    return false;
}

TEST(TableRules, DefaultAndReferenceTablesPass) {
    for (const st_vorl_tbl &t : {default_table(), reference_table()}) {
        const auto v = check_table_rules(t);
        for (const auto &x : v) ADD_FAILURE() << x.where << ": " << x.problem;
    }
}

TEST(TableRules, EachBrokenRuleIsNamed) {
    struct Case {
        const char *where;
        std::function<void(st_vorl_tbl &)> breaks;
    };
    const Case cases[] = {
        {"tbl_version", [](st_vorl_tbl &t) { t.tbl_version = 0x01020000; }},
        {"zspec_comp_base_bin[10]", [](st_vorl_tbl &t) { t.st_vorl.zspec_comp_base_bin[10] = t.st_vorl.zspec_comp_base_bin[9]; }},
        {"zspec_comp_base_bin[71]", [](st_vorl_tbl &t) { t.st_vorl.zspec_comp_base_bin[71] = 254; }},
        {"zspec_comp_case0_ep", [](st_vorl_tbl &t) { t.st_vorl.zspec_comp_case0_ep = 49; }},
        {"zspec_comp_case1_sp", [](st_vorl_tbl &t) { t.st_vorl.zspec_comp_case1_sp = t.st_vorl.zspec_comp_case1_ep; }},
        {"nr_proc_min_freq_bin", [](st_vorl_tbl &t) { t.st_vorl.nr_proc_min_freq_bin = 251; }},
        {"nr_ctrl_freq_sp", [](st_vorl_tbl &t) { t.st_vorlc.nr_ctrl_freq_sp = 41; }},
        {"div_search_tbl_f[5]", [](st_vorl_tbl &t) { t.st_vorl.div_search_tbl_f[5] = t.st_vorl.div_search_tbl_f[4]; }},
        {"div_search_tbl_f[27]", [](st_vorl_tbl &t) { t.st_vorl.div_search_tbl_f[27] = 0.0f; }},
        {"div_init_value_tbl_f[3]", [](st_vorl_tbl &t) { t.st_vorl.div_init_value_tbl_f[3] = -1.0f; }},
        // A seed at 2/x of its interval's top no longer converges there.
        {"div_init_value_tbl_f[12]",
         [](st_vorl_tbl &t) { t.st_vorl.div_init_value_tbl_f[12] = 2.0f / t.st_vorl.div_search_tbl_f[12]; }},
        {"div_init_value_tbl_f[27]",
         [](st_vorl_tbl &t) { t.st_vorl.div_init_value_tbl_f[27] = 2.5f / t.st_vorl.div_search_tbl_f[27]; }},
        {"i_block_counter", [](st_vorl_tbl &t) { t.st_vorl.i_block_counter = 0; }},
        {"nr_ctrl_counter", [](st_vorl_tbl &t) { t.st_vorlc.nr_ctrl_counter = -5; }},
        {"eq_gain[7]", [](st_vorl_tbl &t) { t.st_vorl.eq_gain[7] = INFINITY; }},
        {"back_ground_noise[1][0][3]", [](st_vorl_tbl &t) { t.st_vorl.back_ground_noise[1][0][3] = NAN; }},
        {"nr_gain_sm_coef", [](st_vorl_tbl &t) { t.st_vorl.nr_gain_sm_coef = 1.5f; }},
        {"tbl_x[4]", [](st_vorl_tbl &t) { t.st_vorlc.tbl_x[4] = t.st_vorlc.tbl_x[3] * 2.0f + 1.0f; }},
        {"zspec_comp_coef_f_LR_d[1][0]", [](st_vorl_tbl &t) { t.st_vorl.zspec_comp_coef_f_LR_d[1][0] = 0.0f; }},
        {"zspec_comp_coef_f_LR_d[0][30]", [](st_vorl_tbl &t) { t.st_vorl.zspec_comp_coef_f_LR_d[0][30] = 100.0f; }},
        // Rebuilt curves: the equaliser climbs past +24 dB within group 40,
        // a template rises beyond the division table's top power.
        {"eq_gain", [](st_vorl_tbl &t) { t.st_vorl.eq_gain[40] = 4.0f; }},
        {"back_ground_noise[2][1]", [](st_vorl_tbl &t) { t.st_vorl.back_ground_noise[2][1][0] = 1e6f; }},
        {"back_ground_noise[0][0]", [](st_vorl_tbl &t) { t.st_vorl.back_ground_noise[0][0][5] = -1e-3f; }},
        {"over_est_af", [](st_vorl_tbl &t) { t.st_vorl.over_est_af = 20.0f; }},
        {"val_x[2]", [](st_vorl_tbl &t) { t.st_vorlc.val_x[2] = -1.0f; }},
        {"zspec_comp_min_floor_value", [](st_vorl_tbl &t) { t.st_vorl.zspec_comp_min_floor_value = 9.0f; }},
    };
    for (const Case &c : cases) {
        st_vorl_tbl t = reference_table();
        c.breaks(t);
        seal(t);
        const auto v = check_table_rules(t);
        EXPECT_TRUE(reports(v, c.where)) << c.where;
    }
    // An infinite increment: named once as not finite and once on the
    // curve, not again for every band the running sum carries it to.
    st_vorl_tbl t = reference_table();
    t.st_vorl.zspec_comp_coef_f_LR_d[0][3] = INFINITY;
    seal(t);
    const auto v = check_table_rules(t);
    EXPECT_TRUE(reports(v, "zspec_comp_coef_f_LR_d[0][3]"));
    EXPECT_LE(v.size(), 2u) << summarise(v);
    st_vorl_tbl unsealed = reference_table();
    unsealed.st_vorl.over_est = 3.0f;
    EXPECT_TRUE(reports(check_table_rules(unsealed), "check_sum"));
}

// The rule checker's curve test must see what the library's plausibility
// check sees, or "check" would pass tables whose learning is always dropped.
TEST(TableRules, CurveCheckAgreesWithTheLibrary) {
    auto library_accepts = [](const st_vorl_tbl &t) {
        char path[] = "/tmp/vorl-rules-XXXXXX";
        const int fd = mkstemp(path);
        std::FILE *f = fdopen(fd, "wb");
        std::fwrite(&t, sizeof t, 1, f);
        std::fclose(f);
        static VORLWorkArea work;
        VORLResource res{};
        res.p_work = &work;
        res.p_tbl_path = path;
        VORLGetResourceInfo(&res);
        VORLInitialize(&res);
        EXPECT_EQ(VORLPreProcess(&res), 0);
        std::remove(path);
        std::fflush(stderr);
        return sound_vorl_check_tbl(&work.inst) == 0;
    };
    const float lifts[] = {0.0f, 3.49f, 3.51f, -0.4f, -0.5f, 1e30f};
    for (float lift : lifts) {
        st_vorl_tbl t = reference_table();
        t.st_vorl.zspec_comp_coef_f_LR_d[0][20] += lift;  // the curve steps at band 20
        seal(t);
        EXPECT_EQ(check_learned_curve(t.st_vorl).empty(), library_accepts(t)) << lift;
    }
}

// The shipped division table: no clamp for any power a 16-bit frame can
// produce, and two Newton steps accurate to (1/3)^4 = 1.23 % for every
// power from 2^-10 up (loud whine bins included).
TEST(TableRules, DefaultDivisionTableAccuracy) {
    const st_vorl_tbl t = default_table();
    const float *s = t.st_vorl.div_search_tbl_f;
    EXPECT_GE(s[0], 106243.0f);  // (sum of the analysis window)^2 = cot^2(pi/1024): full-scale DC
    for (double e = -10.0 + 1.0 / 64; e <= 17.0; e += 1.0 / 64) {
        float x = static_cast<float>(std::exp2(e));
        const float r = sound_vorl_recip(&x, 2, &t.st_vorl);
        EXPECT_NEAR(static_cast<double>(r) * std::exp2(e), 1.0, 0.0124) << "x = 2^" << e;
    }
}

}  // namespace
}  // namespace vorl::tablekit
