// The vorl tool as a user meets it: exit codes, messages, what it writes and
// what it must never touch.
#include <cmath>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include "cli_harness.h"
#include "vorl.h"

namespace vorl::test {
namespace {

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

double tone(int64_t n, int c) { return 0.25 * std::sin(2.0 * M_PI * 1000.0 * n / 48000.0 + c); }
// A sweep never repeats itself, so a wrong delay cannot pass as a match.
double sweep(int64_t n, int c) {
    const double t = static_cast<double>(n) / 48000.0;
    return 0.25 * std::sin(2.0 * M_PI * (200.0 + 2000.0 * t) * t + c);
}
double loud_float(int64_t n, int) { return 1.5 * std::sin(2.0 * M_PI * 440.0 * n / 48000.0); }

bool contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }
bool file_exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

TEST(VorlTable, JsonRoundTripIsByteIdentical) {
    Sandbox box;
    ASSERT_EQ(box.vorl({"table", "new", "default.tbl"}).exit_code, 0);
    const RunResult json = box.vorl({"table", "to-json", "default.tbl"});
    ASSERT_EQ(json.exit_code, 0) << json.err;
    write_bytes(box.path("default.json"), json.out);
    ASSERT_EQ(box.vorl({"table", "from-json", "default.json", "back.tbl"}).exit_code, 0);
    EXPECT_EQ(read_bytes(box.path("back.tbl")), read_bytes(box.path("default.tbl")));
    EXPECT_EQ(read_bytes(box.path("back.tbl")).size(), 4184u);
}

TEST(VorlTable, CheckPassesTheDefaultAndNamesEachBrokenField) {
    Sandbox box;
    ASSERT_EQ(box.vorl({"table", "new", "default.tbl"}).exit_code, 0);
    EXPECT_EQ(box.vorl({"table", "check", "default.tbl"}).exit_code, 0);

    std::string json = box.vorl({"table", "to-json", "default.tbl"}).out;
    auto replace = [&](const std::string &from, const std::string &to) {
        const auto at = json.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        json.replace(at, from.size(), to);
    };
    replace("\"nz_block_counter\": 32", "\"nz_block_counter\": 0");
    replace("\"zspec_comp_case1_ep\": 48", "\"zspec_comp_case1_ep\": 49");
    replace("\"over_est\": 2", "\"over_est\": \"nan\"");
    write_bytes(box.path("broken.json"), json);
    ASSERT_EQ(box.vorl({"table", "from-json", "broken.json", "broken.tbl"}).exit_code, 0);
    const RunResult check = box.vorl({"table", "check", "broken.tbl"});
    EXPECT_EQ(check.exit_code, 2);
    EXPECT_TRUE(contains(check.out, "broken.tbl: nz_block_counter: ")) << check.out;
    EXPECT_TRUE(contains(check.out, "zspec_comp_case1_ep: ")) << check.out;
    EXPECT_TRUE(contains(check.out, "over_est: not a finite number")) << check.out;

    // A damaged file: the checksum no longer matches.
    std::string bytes = read_bytes(box.path("default.tbl"));
    bytes[100] ^= 1;
    write_bytes(box.path("damaged.tbl"), bytes);
    const RunResult damaged = box.vorl({"table", "check", "damaged.tbl"});
    EXPECT_EQ(damaged.exit_code, 2);
    EXPECT_TRUE(contains(damaged.out, "check_sum")) << damaged.out;
}

TEST(VorlTable, FromJsonRefusesUnknownAndMissingFields) {
    Sandbox box;
    box.vorl({"table", "new", "default.tbl"});
    const std::string json = box.vorl({"table", "to-json", "default.tbl"}).out;
    std::string unknown = json, missing = json;
    unknown.insert(unknown.find("\"over_est\""), "\"over_estimate\": 1,\n    ");
    const auto at = missing.find("    \"over_est_af\"");
    missing.erase(at, missing.find('\n', at) - at + 1);
    write_bytes(box.path("unknown.json"), unknown);
    write_bytes(box.path("missing.json"), missing);

    const RunResult u = box.vorl({"table", "from-json", "unknown.json", "u.tbl"});
    EXPECT_EQ(u.exit_code, 2);
    EXPECT_TRUE(contains(u.err, "unknown.json: st_vorl.over_estimate: unknown field")) << u.err;
    const RunResult m = box.vorl({"table", "from-json", "missing.json", "m.tbl"});
    EXPECT_EQ(m.exit_code, 2);
    EXPECT_TRUE(contains(m.err, "st_vorl.over_est_af: missing field")) << m.err;
    EXPECT_EQ(box.files(), (std::vector<std::string>{"default.tbl", "missing.json", "unknown.json"}));
}

TEST(VorlTable, DumpIsTheLibrarysParameterText) {
    Sandbox box;
    box.vorl({"table", "new", "default.tbl"});
    const RunResult dump = box.vorl({"table", "dump", "default.tbl"});
    ASSERT_EQ(dump.exit_code, 0) << dump.err;
    EXPECT_EQ(dump.out.rfind("************* VORL *****************\np_st_vorl->eq_gain :\n1.0000000,", 0), 0u);
    EXPECT_TRUE(contains(dump.out, "p_st_vorl->over_est      = 2.0000000\n"));
    EXPECT_TRUE(contains(dump.out, "p_st_vorlc->nr_ctrl_freq_ep = 40\n"));
}

TEST(VorlProcess, RefusesMonoInputAndAMissingTableAndWritesNothing) {
    Sandbox box;
    write_audio(box.path("mono.wav"), 1, 4800, 48000, kWav16, tone);
    write_audio(box.path("in.wav"), 2, 4800, 48000, kWav16, tone);
    const RunResult mono = box.vorl({"process", "mono.wav", "out.wav"});
    EXPECT_EQ(mono.exit_code, 2);
    EXPECT_TRUE(contains(mono.err, "mono.wav: found 1 channel")) << mono.err;
    const RunResult r = box.vorl({"process", "in.wav", "out.wav", "--table", "nope.tbl", "--learn", "learned.tbl"});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_TRUE(contains(r.err, "nope.tbl")) << r.err;
    EXPECT_EQ(box.files(), (std::vector<std::string>{"in.wav", "mono.wav"}));
}

TEST(VorlProcess, UsageErrorsExitWithOne) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 4800, 48000, kWav16, tone);
    EXPECT_EQ(box.vorl({"process", "in.wav"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.wav", "--frobnicate"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.wav", "--zoom-in", "3-2"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.wav", "--zoom-in", "1-3", "--zoom-out", "2-4"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.unknownext"}).exit_code, 1);
    EXPECT_EQ(box.files(), std::vector<std::string>{"in.wav"});
}

TEST(VorlProcess, NeverWritesOverItsInputEvenThroughAnotherPath) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 4800, 48000, kWav16, tone);
    const std::string before = read_bytes(box.path("in.wav"));
    ASSERT_EQ(symlink("in.wav", box.path("alias.wav").c_str()), 0);
    ASSERT_EQ(link(box.path("in.wav").c_str(), box.path("hard.wav").c_str()), 0);
    for (const char *out : {"in.wav", "./in.wav", "alias.wav", "hard.wav"}) {
        const RunResult r = box.vorl({"process", "in.wav", out});
        EXPECT_EQ(r.exit_code, 1) << out;
        EXPECT_TRUE(contains(r.err, "is the input file")) << r.err;
    }
    EXPECT_EQ(read_bytes(box.path("in.wav")), before);
}

TEST(VorlProcess, AlignedOutputMatchesTheInputInLengthAndTime) {
    Sandbox box;
    const int64_t frames = 48000 + 100;  // not a whole number of blocks
    write_audio(box.path("in.wav"), 2, frames, 48000, kWav16, sweep);
    ASSERT_EQ(box.vorl({"process", "in.wav", "out.flac"}).exit_code, 0);
    int channels = 0, rate = 0;
    const auto in = read_audio(box.path("in.wav"));
    const auto out = read_audio(box.path("out.flac"), &channels, &rate);
    EXPECT_EQ(channels, 2);
    EXPECT_EQ(rate, 48000);
    ASSERT_EQ(out.size(), in.size());
    // Without a drive the default table leaves the sound as it is, once the
    // gain has settled: the best match is at lag 0.
    auto mismatch = [&](int lag) {
        double e = 0;
        for (std::size_t i = 2 * 20000; i < 2 * 40000; ++i) {
            const double d = out[i] - in[i + 2 * static_cast<std::size_t>(lag)];
            e += d * d;
        }
        return e;
    };
    for (int lag : {-768, -256, -1, 1, 256, 768}) EXPECT_LT(mismatch(0) * 100, mismatch(lag)) << lag;

    ASSERT_EQ(box.vorl({"process", "in.wav", "raw.wav", "--raw"}).exit_code, 0);
    EXPECT_EQ(read_audio(box.path("raw.wav")).size(), 2u * 188 * 256);  // whole blocks, delayed
}

// Energy of both channels over frames [from, to).
double energy(const std::vector<int16_t> &s, int64_t from, int64_t to) {
    double e = 0;
    for (int64_t i = 2 * from; i < 2 * to; ++i) e += static_cast<double>(s[i]) * s[i];
    return e;
}

TEST(VorlProcess, AutofocusWordsSwitchTheAfTemplateOnlyWhereGiven) {
    Sandbox box;
    ASSERT_EQ(box.vorl({"table", "new", "default.tbl"}).exit_code, 0);
    // An "AF" template level with every bin (the template stays off in idle
    // blocks: bn_proc_flag bit 0 is clear, as in the built-in table).
    std::string bytes = read_bytes(box.path("default.tbl"));
    ASSERT_EQ(bytes.size(), sizeof(st_vorl_tbl));
    st_vorl_tbl t;
    std::memcpy(&t, bytes.data(), sizeof t);
    ASSERT_EQ(t.st_vorl.bn_proc_flag & 1, 0);
    for (auto &row : t.st_vorl.back_ground_noise[0]) row[0] = 1000.0f;
    const auto *words = reinterpret_cast<const uint32_t *>(&t);
    t.check_sum = 0;
    for (int w = 0; w < 1045; ++w) t.check_sum += words[w];
    write_bytes(box.path("af.tbl"), std::string(reinterpret_cast<const char *>(&t), sizeof t));

    write_audio(box.path("in.wav"), 2, 3 * 48000, 48000, kWav16, sweep);
    ASSERT_EQ(box.vorl({"process", "in.wav", "none.wav", "--table", "af.tbl"}).exit_code, 0);
    ASSERT_EQ(box.vorl({"process", "in.wav", "af.wav", "--table", "af.tbl", "--af", "1-2"}).exit_code, 0);
    const auto in = read_audio(box.path("in.wav"));
    const auto none = read_audio(box.path("none.wav"));
    const auto af = read_audio(box.path("af.wav"));
    // In the autofocus second the template takes sound away; without af
    // words it does not.
    const double kept_af = energy(af, 54000, 90000) / energy(in, 54000, 90000);
    const double kept_none = energy(none, 54000, 90000) / energy(in, 54000, 90000);
    EXPECT_LT(10 * std::log10(kept_af), -3.0);
    EXPECT_NEAR(10 * std::log10(kept_none), 0.0, 0.05);
    // Before the first autofocus block reaches the analysis nothing differs,
    // and once the gain has recovered the level is as without.
    EXPECT_EQ(std::vector<int16_t>(af.begin(), af.begin() + 2 * 46000),
              std::vector<int16_t>(none.begin(), none.begin() + 2 * 46000));
    EXPECT_NEAR(10 * std::log10(energy(af, 120000, 144000) / energy(none, 120000, 144000)), 0.0, 0.1);
}

TEST(VorlProcess, AFailedRunLeavesNoPartialOutputAndKeepsTheOldFile) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 10 * 48000, 48000, kWav16, tone);
    write_bytes(box.path("out.wav"), "previous take");
    // The output (1.9 MB) cannot be completed under a 256 kB file-size limit.
    const RunResult r = box.vorl({"process", "in.wav", "out.wav"}, 256);
    EXPECT_NE(r.exit_code, 0);
    EXPECT_EQ(read_bytes(box.path("out.wav")), "previous take");
    EXPECT_EQ(box.files(), (std::vector<std::string>{"in.wav", "out.wav"}));
}

TEST(VorlProcess, LearningWritesOnlyTheNamedTable) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 3 * 48000, 48000, kWav16, tone);
    box.vorl({"table", "new", "start.tbl"});
    const std::string start = read_bytes(box.path("start.tbl"));
    const RunResult r = box.vorl({"process", "in.wav", "out.wav", "--table", "start.tbl", "--learn", "learned.tbl",
                                  "--zoom-in", "1-2"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(read_bytes(box.path("start.tbl")), start);
    EXPECT_EQ(read_bytes(box.path("learned.tbl")).size(), 4184u);
    EXPECT_TRUE(contains(r.err, "learned.tbl")) << r.err;
    EXPECT_EQ(box.vorl({"table", "check", "learned.tbl"}).exit_code, 0);
    // Autofocus up to the last block (--raw feeds no idle blocks after it)
    // leaves the run's AF switch on; the table saves all the same.
    const RunResult af = box.vorl({"process", "in.wav", "raw.wav", "--table", "start.tbl", "--learn", "af.tbl",
                                   "--zoom-in", "1-2", "--af", "2-3", "--raw"});
    ASSERT_EQ(af.exit_code, 0) << af.err;
    EXPECT_EQ(box.vorl({"table", "check", "af.tbl"}).exit_code, 0);
    EXPECT_EQ(box.files(), (std::vector<std::string>{"af.tbl", "in.wav", "learned.tbl", "out.wav", "raw.wav", "start.tbl"}));
}

TEST(VorlProcess, ReportsLearningThatFailsThePlausibilityCheck) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 48000, 48000, kWav16, tone);
    box.vorl({"table", "new", "default.tbl"});
    std::string json = box.vorl({"table", "to-json", "default.tbl"}).out;
    const std::string from = "\"tolerance_range_zspec_max\": 1.05";
    json.replace(json.find(from), from.size(), "\"tolerance_range_zspec_max\": 0.01");
    write_bytes(box.path("strict.json"), json);
    ASSERT_EQ(box.vorl({"table", "from-json", "strict.json", "strict.tbl"}).exit_code, 0);
    const RunResult r = box.vorl({"process", "in.wav", "out.wav", "--table", "strict.tbl", "--learn", "learned.tbl", "-q"});
    EXPECT_EQ(r.exit_code, 3) << r.err;
    EXPECT_TRUE(contains(r.err, "learning discarded")) << r.err;
    // Band 1 is bins 1-2; the limit is the maximum 8 times the tolerance 0.01.
    EXPECT_TRUE(contains(r.err, "band 1, 94\u2013188 Hz, left: ")) << r.err;
    EXPECT_TRUE(contains(r.err, "above its limit 0.08")) << r.err;
    EXPECT_TRUE(contains(r.err, "learned.tbl was not written")) << r.err;
    EXPECT_FALSE(file_exists(box.path("learned.tbl")));
    EXPECT_TRUE(file_exists(box.path("out.wav")));
    // An existing table is left as it was.
    write_bytes(box.path("learned.tbl"), "earlier table");
    EXPECT_EQ(box.vorl({"process", "in.wav", "out2.wav", "--table", "strict.tbl", "--learn", "learned.tbl"}).exit_code, 3);
    EXPECT_EQ(read_bytes(box.path("learned.tbl")), "earlier table");
}

TEST(VorlProcess, ConvertsWiderInputAndReportsClipping) {
    Sandbox box;
    write_audio(box.path("float.wav"), 2, 4800, 44100, SF_FORMAT_WAV | SF_FORMAT_FLOAT, loud_float);
    const RunResult r = box.vorl({"process", "float.wav", "out.aiff"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "converted to 16-bit")) << r.err;
    EXPECT_TRUE(contains(r.err, "clipped")) << r.err;
    EXPECT_TRUE(contains(r.err, "44100 Hz")) << r.err;
    int rate = 0;
    EXPECT_EQ(read_audio(box.path("out.aiff"), nullptr, &rate).size(), 2u * 4800);
    EXPECT_EQ(rate, 44100);
}

}  // namespace
}  // namespace vorl::test
