// The JSON form of a tuning table: lossless for every bit pattern, strict
// about what it accepts.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "table_builder.h"
#include "table_curves.h"
#include "table_json.h"

namespace vorl::tablekit {
namespace {

float from_bits(uint32_t b) {
    float f;
    std::memcpy(&f, &b, 4);
    return f;
}

void expect_same_bytes(const st_vorl_tbl &a, const st_vorl_tbl &b) {
    EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
}

TEST(TableJson, RoundTripKeepsEveryBit) {
    st_vorl_tbl t = reference_table();
    // Values a decimal text loses easily, and ones JSON cannot express.
    const uint32_t awkward[] = {0x80000000u /* -0.0 */, 0x00000001u /* smallest subnormal */,
                                0x7f7fffffu /* FLT_MAX */, 0x7f800000u /* inf */, 0xff800000u /* -inf */,
                                0x7fc00000u /* quiet NaN */, 0xffc00000u /* negative NaN */,
                                0x7f800001u /* signalling NaN */, 0x3dcccccdu /* 0.1f */, 0x33d6bf95u};
    for (std::size_t i = 0; i < sizeof awkward / sizeof awkward[0]; ++i)
        t.st_vorl.back_ground_noise[2][1][i] = from_bits(awkward[i]);
    t.st_vorl.spare[0] = 0xab;
    t.st_vorl.spare[1] = 0xcd;
    t.st_vorl.nz_block_counter = -32768;
    t.tbl_cnt = 0xffffffffu;
    t.tbl_version = 0xdeadbeefu;
    seal(t);
    expect_same_bytes(table_from_json(table_to_json(t)), t);
    expect_same_bytes(table_from_json(table_to_json(t, true)), t);  // curves as values too
}

// Curves given by node value: without their increments they rebuild the
// same values; an edited node changes that node alone; nodes must lie at
// the table's bins.
TEST(TableJson, CurvesByValueStandForTheirIncrements) {
    st_vorl_tbl t = reference_table();
    for (int b = 0; b < kBands; ++b) t.st_vorl.zspec_comp_coef_f_LR_d[1][b] = 0.01f * static_cast<float>(b % 5);
    for (int g = 0; g < kGroups; ++g) t.st_vorl.back_ground_noise[1][0][g] = g % 2 ? 1e-5f : -0.4e-5f;
    seal(t);
    nlohmann::json doc = nlohmann::json::parse(table_to_json(t, true));
    for (const char *field : {"zspec_comp_coef_f_LR_d", "back_ground_noise", "eq_gain"}) doc["st_vorl"].erase(field);
    doc["curves"]["zspec_comp_coef_f_LR_d"][1][30]["value"] = 2.5;
    const st_vorl_tbl back = table_from_json(doc.dump());
    const BinCurve before = zoom_curve(t.st_vorl, 1), after = zoom_curve(back.st_vorl, 1);
    for (int b = 0; b < kBands; ++b) {
        const int bin = t.st_vorl.zspec_comp_base_bin[b];
        EXPECT_NEAR(after[bin], b == 30 ? 2.5f : before[bin], 1e-6f) << "band " << b;
    }
    const BinCurve wt = group_curve(t.st_vorl.back_ground_noise[1][0]);
    const BinCurve wt_back = group_curve(back.st_vorl.back_ground_noise[1][0]);
    for (int g = 0; g < kGroups; ++g)
        EXPECT_NEAR(wt_back[group_node_bin(g)], wt[group_node_bin(g)], 1e-9f) << "group " << g;
    EXPECT_EQ(std::memcmp(back.st_vorl.eq_gain, t.st_vorl.eq_gain, sizeof t.st_vorl.eq_gain), 0);

    auto refused = [](const nlohmann::json &edited, const std::string &message) {
        try {
            table_from_json(edited.dump());
            ADD_FAILURE() << "accepted, expected: " << message;
        } catch (const JsonError &e) {
            EXPECT_NE(std::string(e.what()).find(message), std::string::npos) << e.what();
        }
    };
    nlohmann::json moved = doc, dropped = doc;
    moved["curves"]["eq_gain"][3]["bin"] = 13;
    refused(moved, "curves.eq_gain[3].bin");
    dropped["curves"]["zspec_comp_coef_f_LR_d"][0].erase(9);
    refused(dropped, "curves.zspec_comp_coef_f_LR_d[0]: expected 72 nodes, found 71");
}

// Each broken document is refused with a message that names the field.
TEST(TableJson, RefusesWhatItCannotRepresentExactly) {
    const std::string good = table_to_json(reference_table());
    struct Case {
        std::string from, to, message;
    };
    const Case cases[] = {
        {"\"over_est\": 1.5", "\"over_est\": 1.5, \"oops\": 1", "st_vorl.oops: unknown field"},
        {"\"tbl_cnt\": 0", "\"tbl_cnt\": 0, \"check_sum\": 1", "check_sum: not accepted"},
        {"\"nz_block_counter\": 32", "\"nz_block_counter\": 40000", "nz_block_counter: 40000 is outside"},
        {"\"train_mode\": 0", "\"train_mode\": 0.5", "train_mode: expected an integer"},
        {"\"over_est\": 1.5", "\"over_est\": 1e39", "over_est: number out of the float range"},
        {"\"over_est\": 1.5", "\"over_est\": 1e400", "not valid JSON: number overflow parsing '1e400'"},
        {"\"over_est\": 1.5", "\"over_est\": \"Inf\"", "over_est: \"Inf\" is not a float"},
        {"\"tbl_version\": \"0x01030000\"", "\"tbl_version\": 16973824", "tbl_version: expected a string"},
        {"\"spare\": [\n      0, 0\n    ]", "\"spare\": [0]", "spare: expected 2 entries, found 1"},
        {"\"zspec_comp_coef_f_LR_d\": [\n      [", "\"zspec_comp_coef_f_LR_d\": [\n      7, [",
         "zspec_comp_coef_f_LR_d: expected 2 entries, found 3"},
        {"\"tbl_cnt\": 0\n}", "\"tbl_cnt\": 0\n", "not valid JSON"},
    };
    for (const Case &c : cases) {
        std::string json = good;
        const auto at = json.find(c.from);
        ASSERT_NE(at, std::string::npos) << c.from;
        json.replace(at, c.from.size(), c.to);
        try {
            table_from_json(json);
            ADD_FAILURE() << "accepted: " << c.to;
        } catch (const JsonError &e) {
            EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
        }
    }
    EXPECT_THROW(table_from_json("[1]"), JsonError);
    std::string missing = good;
    missing.erase(missing.find("    \"over_est_af\""), missing.find("\n", missing.find("\"over_est_af\"")) -
                                                           missing.find("    \"over_est_af\"") + 1);
    EXPECT_THROW(table_from_json(missing), JsonError);
}

}  // namespace
}  // namespace vorl::tablekit
