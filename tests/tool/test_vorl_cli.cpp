// The vorl tool as a user meets it: exit codes, messages, what it writes and
// what it must never touch.
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <algorithm>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sndfile.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cli_harness.h"
#include "media_fixture.h"
#include "media_io.h"
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
// A quiet tone at 44.1 kHz with three NaN samples and one infinity.
double tone_with_holes(int64_t n, int c) {
    if (n == 10000 || n == 20000 || (n == 30000 && c == 1)) return std::nan("");
    if (n == 40000 && c == 0) return HUGE_VAL;
    return 0.25 * std::sin(2.0 * M_PI * 440.0 * n / 44100.0);
}

// Energy of out - in shifted by `lag` frames, over frames 20000..39999.
double mismatch(const std::vector<int16_t> &out, const std::vector<int16_t> &in, int lag) {
    double e = 0;
    for (std::size_t i = 2 * 20000; i < 2 * 40000; ++i) {
        const double d = out[i] - in[i + 2 * static_cast<std::size_t>(lag)];
        e += d * d;
    }
    return e;
}

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
    // The JSON where a table file belongs is named for what it is.
    write_audio(box.path("in.wav"), 2, 4800, 48000, kWav16, tone);
    for (const auto &command : std::vector<std::vector<std::string>>{{"table", "check", "default.json"},
                                                                      {"process", "in.wav", "out.wav", "--table", "default.json"}}) {
        const RunResult r = box.vorl(command);
        EXPECT_EQ(r.exit_code, 2);
        EXPECT_TRUE(contains(r.err, "default.json: a table's JSON, not a table file; build the table with: vorl table from-json"))
            << r.err;
    }
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
    replace("\"over_est\": 8", "\"over_est\": \"nan\"");
    replace("\"eq_gain\": [\n      1, 0,", "\"eq_gain\": [\n      1, -0.5,");  // below 0 from bin 3
    write_bytes(box.path("broken.json"), json);
    // Refused by from-json (each rule named) and by process, unless --force.
    const RunResult refused = box.vorl({"table", "from-json", "broken.json", "broken.tbl"});
    EXPECT_EQ(refused.exit_code, 2);
    EXPECT_TRUE(contains(refused.err, "broken.json: eq_gain: equaliser gain -0.5 at bin 3 outside 0..16"))
        << refused.err;
    EXPECT_TRUE(contains(refused.err, "--force")) << refused.err;
    EXPECT_FALSE(file_exists(box.path("broken.tbl")));
    ASSERT_EQ(box.vorl({"table", "from-json", "broken.json", "broken.tbl", "--force"}).exit_code, 0);
    const RunResult check = box.vorl({"table", "check", "broken.tbl"});
    EXPECT_EQ(check.exit_code, 2);
    EXPECT_TRUE(contains(check.out, "broken.tbl: nz_block_counter: ")) << check.out;
    EXPECT_TRUE(contains(check.out, "zspec_comp_case1_ep: ")) << check.out;
    EXPECT_TRUE(contains(check.out, "over_est: not a finite number")) << check.out;
    EXPECT_TRUE(contains(check.out, "eq_gain: equaliser gain -0.5 at bin 3 outside 0..16")) << check.out;
    write_audio(box.path("in.wav"), 2, 4800, 48000, kWav16, tone);
    const RunResult process = box.vorl({"process", "in.wav", "out.wav", "--table", "broken.tbl"});
    EXPECT_EQ(process.exit_code, 2);
    EXPECT_TRUE(contains(process.err, "broken.tbl: breaks 4 table rules")) << process.err;
    EXPECT_FALSE(file_exists(box.path("out.wav")));
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.wav", "--table", "broken.tbl", "--force"}).exit_code, 0);
    // A fit keeps most of its base table, so a broken base is refused by name.
    const RunResult fit = box.vorl({"table", "fit", "in.wav", "--zoom-in", "0-0.05", "-o", "fit.tbl", "--base",
                                    "broken.tbl"});
    EXPECT_EQ(fit.exit_code, 2);
    EXPECT_TRUE(contains(fit.err, "broken.tbl: breaks 4 table rules")) << fit.err;

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
    EXPECT_TRUE(contains(dump.out, "p_st_vorl->over_est      = 8.0000000\n"));
    EXPECT_TRUE(contains(dump.out, "p_st_vorlc->nr_ctrl_freq_ep = 40\n"));
}

// A calibration-like take: a motor (hashed noise) in 1-4 s and 5-8 s, heard
// by the right capsule at half level one sample late, over faint room noise.
double hashed(int64_t n, uint32_t salt) {
    uint32_t h = static_cast<uint32_t>(n) * 2654435761u ^ salt;
    h ^= h >> 15;
    h *= 2246822519u;
    h ^= h >> 13;
    return static_cast<double>(h) / 4294967296.0 - 0.5;
}
double motor_take(int64_t n, int c) {
    const double t = static_cast<double>(n) / 48000.0;
    const bool on = (t >= 1.0 && t < 4.0) || (t >= 5.0 && t < 8.0);
    const double m = on ? 0.05 * (c == 0 ? hashed(n, 1) : 0.5 * hashed(n - 1, 1)) : 0.0;
    return m + 0.0002 * hashed(n, 2 + c);
}

TEST(VorlTable, FitWritesACheckedTableAndRefusesTakesItCannotUse) {
    Sandbox box;
    write_audio(box.path("cal.wav"), 2, 9 * 48000, 48000, kWav16, motor_take);
    write_audio(box.path("mono.wav"), 1, 9 * 48000, 48000, kWav16, motor_take);
    const RunResult ok = box.vorl({"table", "fit", "cal.wav", "--zoom-in", "1-4", "--zoom-out", "5-8", "-o",
                                   "cal.tbl", "--quick", "--report", "report.txt"});
    ASSERT_EQ(ok.exit_code, 0) << ok.err;
    EXPECT_EQ(box.vorl({"table", "check", "cal.tbl"}).exit_code, 0);
    EXPECT_TRUE(contains(read_bytes(box.path("report.txt")), "coef L")) << read_bytes(box.path("report.txt"));
    box.vorl({"table", "new", "builtin.tbl"});
    const RunResult diff = box.vorl({"table", "diff", "builtin.tbl", "cal.tbl"});
    EXPECT_EQ(diff.exit_code, 0);
    EXPECT_TRUE(contains(diff.out, "zoom-noise coefficient at band nodes")) << diff.out;
    // The table's JSON compares as the table does.
    write_bytes(box.path("cal.json"), box.vorl({"table", "to-json", "cal.tbl", "--curves"}).out);
    const RunResult json_diff = box.vorl({"table", "diff", "builtin.tbl", "cal.json"});
    EXPECT_EQ(json_diff.exit_code, 0) << json_diff.err;
    auto after_names = [](const std::string &out) { return out.substr(out.find('\n', out.find("B: ")) + 1); };
    EXPECT_EQ(after_names(json_diff.out), after_names(diff.out));
    EXPECT_FALSE(contains(diff.err, "checksum")) << diff.err;
    std::string damaged = read_bytes(box.path("cal.tbl"));
    damaged[100] ^= 1;
    write_bytes(box.path("damaged.tbl"), damaged);
    const RunResult damaged_diff = box.vorl({"table", "diff", "damaged.tbl", "cal.tbl"});
    EXPECT_TRUE(contains(damaged_diff.err, "damaged.tbl: checksum wrong")) << damaged_diff.err;

    const RunResult past = box.vorl({"table", "fit", "cal.wav", "--zoom-in", "1-4", "--zoom-out", "5-12", "-o",
                                     "past.tbl", "--quick"});
    EXPECT_EQ(past.exit_code, 0) << past.err;
    EXPECT_TRUE(contains(past.err, "--zoom-out 5-12 reaches past the end of cal.wav")) << past.err;

    std::string drive;  // one line short of the take's 1688 blocks
    for (int b = 0; b < 1687; ++b) drive += b > 200 && b < 700 ? "1 0 0\n" : "0 0 0\n";
    write_bytes(box.path("short-drive.txt"), drive);
    std::string idle;
    for (int b = 0; b < 1688; ++b) idle += "0 0 0\n";
    write_bytes(box.path("idle.txt"), idle);
    const struct {
        std::vector<std::string> args;
        const char *message;
    } refused[] = {
        {{"mono.wav", "--zoom-in", "1-4"}, "mono.wav: found 1 channel"},
        {{"cal.wav", "--drive", "short-drive.txt"}, "short-drive.txt: 1687 block lines"},
        {{"cal.wav", "--drive", "idle.txt"}, "cal.wav: no zoom drive"},
        {{"cal.wav", "--zoom-in", "1-1.5"}, "cal.wav: only"},
    };
    for (const auto &r : refused) {
        std::vector<std::string> args = {"table", "fit"};
        args.insert(args.end(), r.args.begin(), r.args.end());
        args.insert(args.end(), {"-o", "bad.tbl"});
        const RunResult res = box.vorl(args);
        EXPECT_EQ(res.exit_code, 2) << r.message;
        EXPECT_TRUE(contains(res.err, r.message)) << res.err;
    }
    EXPECT_FALSE(file_exists(box.path("bad.tbl")));
}

// A take at 44.1 kHz is measured at the tables' 48 kHz, as vorl process
// will run it: its drive file counts 48 kHz blocks. --no-resample measures
// it as it is, with its own blocks.
TEST(VorlTable, FitResamplesATakeAtAnotherRate) {
    Sandbox box;
    write_audio(box.path("cal44.wav"), 2, 9 * 44100, 44100, kWav16,
                [](int64_t n, int c) { return motor_take(n * 48000 / 44100, c); });
    std::string drive;  // 1688 blocks of 48 kHz: zoom-in 1-4 s, zoom-out 5-8 s
    for (int b = 0; b < 1688; ++b) {
        const double t = b * 256 / 48000.0;
        drive += t >= 1.0 && t < 4.0 ? "1 0 0\n" : t >= 5.0 && t < 8.0 ? "2 0 0\n" : "0 0 0\n";
    }
    write_bytes(box.path("drive.txt"), drive);
    const RunResult ok = box.vorl({"table", "fit", "cal44.wav", "--drive", "drive.txt", "--quick", "-o", "cal.tbl"});
    ASSERT_EQ(ok.exit_code, 0) << ok.err;
    EXPECT_FALSE(contains(ok.err, "block lines")) << ok.err;  // the log's 48 kHz blocks match exactly
    EXPECT_FALSE(contains(ok.err, "measured as it is")) << ok.err;
    const RunResult native =
        box.vorl({"table", "fit", "cal44.wav", "--drive", "drive.txt", "--quick", "--no-resample", "-o", "native.tbl"});
    EXPECT_EQ(native.exit_code, 2);
    EXPECT_TRUE(contains(native.err, "1688 block lines, but cal44.wav has 1551 blocks")) << native.err;
    const RunResult ranges = box.vorl({"table", "fit", "cal44.wav", "--zoom-in", "1-4", "--zoom-out", "5-8", "--quick",
                                       "--no-resample", "-o", "native.tbl"});
    EXPECT_EQ(ranges.exit_code, 0) << ranges.err;
    EXPECT_TRUE(contains(ranges.err, "44100 Hz measured as it is")) << ranges.err;
}

// The take as the camera recorded it, a video with coded sound: its length
// strays from the drive log's by the codec's padding, which is allowed;
// a log further off is not, nor a WAV cut short.
TEST(VorlTable, FitReadsTheTakeFromTheCamerasVideo) {
    Sandbox box;
    write_audio(box.path("cal.wav"), 2, 9 * 48000, 48000, kWav16, motor_take);
    make_video_of(box.path("cal.wav"), box.path("cal.mp4"));
    auto drive_file = [&](const std::string &name, int blocks) {
        std::string lines;
        for (int b = 0; b < blocks; ++b) {
            const double t = b * 256 / 48000.0;
            lines += t >= 1.0 && t < 4.0 ? "1 0 0\n" : t >= 5.0 && t < 8.0 ? "2 0 0\n" : "0 0 0\n";
        }
        write_bytes(box.path(name), lines);
    };
    drive_file("drive.txt", 1688);
    drive_file("near.txt", 1688 + 3);
    drive_file("far-off.txt", 1688 - 20);
    ASSERT_EQ(box.vorl({"table", "fit", "cal.wav", "--drive", "drive.txt", "--quick", "-o", "wav.tbl"}).exit_code, 0);
    EXPECT_EQ(box.vorl({"table", "fit", "cal.wav", "--drive", "near.txt", "--quick", "-o", "bad.tbl"}).exit_code, 2);
    const RunResult video = box.vorl({"table", "fit", "cal.mp4", "--drive", "near.txt", "--quick", "-o", "mp4.tbl"});
    ASSERT_EQ(video.exit_code, 0) << video.err;
    EXPECT_TRUE(contains(video.err, "within a coded stream's precision")) << video.err;
    EXPECT_EQ(box.vorl({"table", "check", "mp4.tbl"}).exit_code, 0);
    const RunResult diff = box.vorl({"table", "diff", "wav.tbl", "mp4.tbl"});
    EXPECT_TRUE(contains(diff.out, "zoom-noise coefficient at band nodes")) << diff.out;

    const RunResult far = box.vorl({"table", "fit", "cal.mp4", "--drive", "far-off.txt", "--quick", "-o", "bad.tbl"});
    EXPECT_EQ(far.exit_code, 2);
    EXPECT_TRUE(contains(far.err, "far-off.txt: 1668 block lines")) << far.err;
    const std::string whole = read_bytes(box.path("cal.wav"));
    write_bytes(box.path("cut.wav"), whole.substr(0, whole.size() / 2));
    const RunResult cut = box.vorl({"table", "fit", "cut.wav", "--drive", "drive.txt", "--quick", "-o", "bad.tbl"});
    EXPECT_EQ(cut.exit_code, 2);
    EXPECT_TRUE(contains(cut.err, "cut.wav: premature end of file")) << cut.err;
    EXPECT_FALSE(file_exists(box.path("bad.tbl")));
}

// A scene (a sweep) with the calibration motor over it: measured after
// processing with a table fitted to that motor, beside the oracle and the
// engine's reach, which both know the noise and do better.
double sweep_content(int64_t n, int) { return 0.1 * sweep(n, 0); }  // the same in both capsules
double sweep_with_motor(int64_t n, int c) { return sweep_content(n, c) + motor_take(n, c); }

double figure(const std::string &out, const std::string &label) {
    const std::size_t at = out.find(label);
    return at == std::string::npos ? -1e9 : std::atof(out.c_str() + at + label.size());
}

TEST(VorlMeasure, AttenuationBesideTheOracleAndTheEnginesReach) {
    Sandbox box;
    write_audio(box.path("cal.wav"), 2, 9 * 48000, 48000, kWav16, motor_take);
    write_audio(box.path("clean.wav"), 2, 9 * 48000, 48000, kWav16, sweep_content);
    write_audio(box.path("noisy.wav"), 2, 9 * 48000, 48000, kWav16, sweep_with_motor);
    const std::vector<std::string> drive = {"--zoom-in", "1-4", "--zoom-out", "5-8"};
    auto with_drive = [&](std::vector<std::string> args) {
        args.insert(args.end(), drive.begin(), drive.end());
        return args;
    };
    ASSERT_EQ(box.vorl(with_drive({"table", "fit", "cal.wav", "--quick", "-o", "cal.tbl"})).exit_code, 0);
    ASSERT_EQ(box.vorl(with_drive({"process", "noisy.wav", "out.wav", "--table", "cal.tbl", "-q"})).exit_code, 0);
    const RunResult m =
        box.vorl(with_drive({"measure", "clean.wav", "noisy.wav", "out.wav", "--ceiling", "--table", "cal.tbl"}));
    ASSERT_EQ(m.exit_code, 0) << m.err;
    const double atten = figure(m.out, "noise attenuation:"), oracle = figure(m.out, "oracle:"),
                 reach = figure(m.out, "engine's reach:"), mono = figure(m.out, "reach, scene mono:");
    EXPECT_GT(atten, 3.0) << m.out;
    EXPECT_GT(reach, atten - 0.5) << m.out;
    EXPECT_GT(oracle, mono) << m.out;
    EXPECT_GE(mono, reach - 0.05) << m.out;
    EXPECT_EQ(box.vorl(with_drive({"measure", "clean.wav", "noisy.wav", "out.wav", "--table", "cal.tbl"})).exit_code, 1);

    // For scripts: the same figures as JSON; an infinite one is null.
    const RunResult js = box.vorl(
        with_drive({"measure", "clean.wav", "noisy.wav", "out.wav", "--ceiling", "--table", "cal.tbl", "--json"}));
    ASSERT_EQ(js.exit_code, 0) << js.err;
    const auto figures = nlohmann::json::parse(js.out);
    EXPECT_NEAR(figures["during_drives"]["noise_attenuation_db"].get<double>(), atten, 0.005) << js.out;
    EXPECT_NEAR(figures["during_drives"]["engines_reach_db"].get<double>(), reach, 0.005) << js.out;
    EXPECT_NEAR(figures["during_drives"]["seconds"].get<double>(), 6.0, 0.01) << js.out;
    EXPECT_NEAR(figures["outside_drives"]["level_change_db"].get<double>(), figure(m.out, "level change:"), 0.005)
        << js.out;
    const auto perfect =
        nlohmann::json::parse(box.vorl(with_drive({"measure", "clean.wav", "noisy.wav", "clean.wav", "--json"})).out);
    EXPECT_TRUE(perfect["during_drives"]["noise_attenuation_db"].is_null()) << perfect;

    // At 44.1 kHz a drive file counts the 48 kHz blocks that process
    // resamples to (its --drive-out writes those): measure reads it so,
    // and agrees with the ranges.
    write_audio(box.path("clean44.wav"), 2, 9 * 44100, 44100, kWav16,
                [](int64_t n, int c) { return sweep_content(n * 48000 / 44100, c); });
    write_audio(box.path("noisy44.wav"), 2, 9 * 44100, 44100, kWav16,
                [](int64_t n, int c) { return sweep_with_motor(n * 48000 / 44100, c); });
    ASSERT_EQ(box.vorl(with_drive({"process", "noisy44.wav", "out44.wav", "--table", "cal.tbl", "--drive-out",
                                   "drive48.txt", "-q"}))
                  .exit_code,
              0);
    const RunResult ranges44 = box.vorl(with_drive({"measure", "clean44.wav", "noisy44.wav", "out44.wav"}));
    const RunResult file44 =
        box.vorl({"measure", "clean44.wav", "noisy44.wav", "out44.wav", "--drive", "drive48.txt"});
    ASSERT_EQ(file44.exit_code, 0) << file44.err;
    EXPECT_EQ(file44.err, "");
    EXPECT_GT(figure(file44.out, "noise attenuation:"), 3.0) << file44.out;
    EXPECT_NEAR(figure(file44.out, "noise attenuation:"), figure(ranges44.out, "noise attenuation:"), 0.2)
        << file44.out << ranges44.out;
    EXPECT_NEAR(figure(file44.out, "level change:"), figure(ranges44.out, "level change:"), 0.05) << file44.out;

    // A processed recording that runs late (the library's own output, as a
    // host that ignores the latency keeps it) and a clean one that runs
    // early are refused, and measured alike once --align takes the lags out.
    ASSERT_EQ(box.vorl(with_drive({"process", "noisy.wav", "raw.wav", "--table", "cal.tbl", "--raw", "-q"})).exit_code, 0);
    write_audio(box.path("early.wav"), 2, 9 * 48000, 48000, kWav16,
                [](int64_t n, int c) { return sweep_content(n + 300, c); });
    const RunResult late = box.vorl(with_drive({"measure", "clean.wav", "noisy.wav", "raw.wav"}));
    EXPECT_EQ(late.exit_code, 2);
    EXPECT_TRUE(contains(late.err, "raw.wav runs 768 frames (16.0 ms) late against noisy.wav")) << late.err;
    const RunResult early = box.vorl(with_drive({"measure", "early.wav", "noisy.wav", "out.wav"}));
    EXPECT_EQ(early.exit_code, 2);
    EXPECT_TRUE(contains(early.err, "early.wav runs 300 frames (6.2 ms) early")) << early.err;
    const RunResult both = box.vorl(with_drive({"measure", "early.wav", "noisy.wav", "raw.wav", "--align"}));
    ASSERT_EQ(both.exit_code, 0) << both.err;
    EXPECT_NEAR(figure(both.out, "noise attenuation:"), atten, 0.05) << both.out;
    EXPECT_TRUE(contains(both.err, "measured over frames 512..")) << both.err;

    // Channels swapped, or in opposite polarity, against NOISY are refused.
    write_audio(box.path("swapped.wav"), 2, 9 * 48000, 48000, kWav16,
                [](int64_t n, int c) { return sweep_with_motor(n, 1 - c); });
    write_audio(box.path("inverted.wav"), 2, 9 * 48000, 48000, kWav16,
                [](int64_t n, int c) { return -sweep_with_motor(n, c); });
    write_audio(box.path("right-inverted.wav"), 2, 9 * 48000, 48000, kWav16,
                [](int64_t n, int c) { return c == 1 ? -sweep_with_motor(n, c) : sweep_with_motor(n, c); });
    for (const auto &[file, fault] : std::vector<std::pair<std::string, std::string>>{
             {"swapped.wav", "has its left and right channels swapped"},
             {"inverted.wav", "is in opposite polarity"},
             {"right-inverted.wav", "has its right channel in opposite polarity"}}) {
        const RunResult r = box.vorl(with_drive({"measure", "clean.wav", "noisy.wav", file}));
        EXPECT_EQ(r.exit_code, 2) << file;
        EXPECT_TRUE(contains(r.err, file + " " + fault + " against noisy.wav")) << r.err;
    }
}

TEST(VorlProcess, RefusesMonoInputAndAMissingTableAndWritesNothing) {
    Sandbox box;
    write_audio(box.path("mono.wav"), 1, 4800, 48000, kWav16, tone);
    write_audio(box.path("in.wav"), 2, 4800, 48000, kWav16, tone);
    // A rate no recording has: resampled, its 4800 frames would last days.
    write_audio(box.path("slow.wav"), 2, 4800, 2, kWav16, tone);
    const RunResult mono = box.vorl({"process", "mono.wav", "out.wav"});
    EXPECT_EQ(mono.exit_code, 2);
    EXPECT_TRUE(contains(mono.err, "mono.wav: found 1 channel")) << mono.err;
    const RunResult slow = box.vorl({"process", "slow.wav", "out.wav"});
    EXPECT_EQ(slow.exit_code, 2);
    EXPECT_TRUE(contains(slow.err, "slow.wav: sample rate 2 Hz lies outside")) << slow.err;
    const RunResult r = box.vorl({"process", "in.wav", "out.wav", "--table", "nope.tbl", "--learn", "learned.tbl"});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_TRUE(contains(r.err, "nope.tbl")) << r.err;
    EXPECT_EQ(box.files(), (std::vector<std::string>{"in.wav", "mono.wav", "slow.wav"}));
}

TEST(VorlProcess, UsageErrorsExitWithOne) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 4800, 48000, kWav16, tone);
    EXPECT_EQ(box.vorl({"process", "in.wav"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.wav", "--frobnicate"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.wav", "--zoom-in", "3-2"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.wav", "--zoom-in", "1-3", "--zoom-out", "2-4"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.unknownext"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "-"}).exit_code, 1);  // standard output needs -t
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.wav", "-t", "nosuchtype"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.wav", "--strength", "1.5"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.wav", "--output", "noise"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.wav", "--removed", "in.wav"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.wav", "--audio-codec", "aac"}).exit_code, 1);
    EXPECT_EQ(box.vorl({"process", "in.wav", "out.mp4"}).exit_code, 1);  // no video to copy
    EXPECT_EQ(box.files(), std::vector<std::string>{"in.wav"});

    // A slip of the keyboard gets the name meant; another word gets none.
    const std::pair<std::vector<std::string>, std::string> slips[] = {
        {{"porcess", "in.wav", "out.wav"}, "unknown command \"porcess\"; did you mean process?"},
        {{"table", "chek", "t.tbl"}, "unknown table command \"chek\"; did you mean check?"},
        {{"process", "in.wav", "out.wav", "--zoomin", "1-2"}, "unknown option --zoomin; did you mean --zoom-in?"},
        {{"process", "in.wav", "out.wav", "--tabel=t.tbl"}, "unknown option --tabel=t.tbl; did you mean --table?"},
        {{"process", "in.wav", "out.wav", "--frobnicate"}, "unknown option --frobnicate (see: vorl process --help)"},
    };
    for (const auto &[args, message] : slips) {
        const RunResult r = box.vorl(args);
        EXPECT_EQ(r.exit_code, 1);
        EXPECT_TRUE(contains(r.err, message)) << r.err;
    }
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
    EXPECT_EQ(box.shell("$VORL process - in.wav -y < in.wav").exit_code, 1);  // IN as standard input
    EXPECT_EQ(read_bytes(box.path("in.wav")), before);

    // Nor over the drive file, whichever output names it, even with -y.
    write_bytes(box.path("drive.txt"), "0 0 0\n");
    for (const std::vector<std::string> &outputs : std::vector<std::vector<std::string>>{
             {"drive.txt", "-t", "wav"}, {"out.wav", "--learn", "drive.txt"}, {"out.wav", "--removed", "drive.txt"}}) {
        std::vector<std::string> run = {"process", "in.wav"};
        run.insert(run.end(), outputs.begin(), outputs.end());
        run.insert(run.end(), {"--drive", "drive.txt", "-y"});
        const RunResult r = box.vorl(run);
        EXPECT_EQ(r.exit_code, 1) << outputs[0] << " " << outputs.back();
        EXPECT_TRUE(contains(r.err, "drive.txt")) << r.err;
    }
    EXPECT_EQ(read_bytes(box.path("drive.txt")), "0 0 0\n");
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
    for (int lag : {-768, -256, -1, 1, 256, 768}) EXPECT_LT(mismatch(out, in, 0) * 100, mismatch(out, in, lag)) << lag;

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

TEST(VorlStreams, PipesInAndOutAndLengthsThatLie) {
    Sandbox box;
    write_audio(box.path("in.flac"), 2, 2 * 48000, 48000, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, sweep);
    write_audio(box.path("in.wav"), 2, 2 * 48000, 48000, kWav16, sweep);
    ASSERT_EQ(box.vorl({"process", "in.wav", "ref.wav"}).exit_code, 0);
    const auto ref = read_audio(box.path("ref.wav"));

    // FLAC needs seeking, so a piped one must still decode; output to a pipe.
    RunResult r = box.shell("cat in.flac | $VORL process - - -t wav | cat > piped.wav");
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "standard input -> standard output")) << r.err;
    EXPECT_EQ(read_audio(box.path("piped.wav")), ref);

    // A streamed header claims the largest size: read to the true end.
    std::string wav = read_bytes(box.path("in.wav"));
    ASSERT_EQ(wav.substr(36, 4), "data");
    std::string streamed = wav;
    streamed.replace(4, 4, "\xff\xff\xff\xff").replace(40, 4, "\xff\xff\xff\xff");
    write_bytes(box.path("streamed.wav"), streamed);
    for (const char *line : {"$VORL process streamed.wav s1.wav", "cat streamed.wav | $VORL process - s2.wav"}) {
        r = box.shell(line);
        ASSERT_EQ(r.exit_code, 0) << line << r.err;
        EXPECT_FALSE(contains(r.err, "premature")) << r.err;
    }
    EXPECT_EQ(read_audio(box.path("s1.wav")), ref);
    EXPECT_EQ(read_audio(box.path("s2.wav")), ref);

    // Shorter than the header says: processed, and said so.
    write_bytes(box.path("cut.wav"), wav.substr(0, 44 + 48000 * 4 / 2));
    r = box.vorl({"process", "cut.wav", "cut-out.wav", "-q"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "cut.wav: premature end of file: 0.50 s of 2.00 s")) << r.err;
    EXPECT_EQ(read_audio(box.path("cut-out.wav")).size(), 2u * 24000);

    // No samples at all is an error, and nothing is written.
    write_bytes(box.path("empty.wav"), wav.substr(0, 44).replace(40, 4, std::string(4, '\0')));
    r = box.shell("$VORL process - empty-out.wav < empty.wav");
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_TRUE(contains(r.err, "standard input: holds no audio samples")) << r.err;
    EXPECT_FALSE(file_exists(box.path("empty-out.wav")));
}

// "-" is standard input or output for tables, drive logs and the removed
// noise too, never a file of that name; a full standard output is a failure.
TEST(VorlStreams, TablesDriveLogsAndRemovedNoiseThroughPipes) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 2 * 48000, 48000, kWav16, sweep);
    ASSERT_EQ(box.vorl({"table", "new", "builtin.tbl"}).exit_code, 0);
    RunResult r = box.shell("$VORL table new - | $VORL table check - && $VORL table new - | cmp - builtin.tbl");
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "standard input: table passes every rule")) << r.err;
    r = box.shell("$VORL process in.wav a.wav --zoom-in 0.5-1.5 --drive-out - -q | tee a.drive | "
                  "$VORL process in.wav b.wav --drive - -q");
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(read_bytes(box.path("a.wav")) == read_bytes(box.path("b.wav")));
    r = box.shell("$VORL process in.wav e.wav --drive - --removed - -t wav -q < a.drive > piped-removed.wav && "
                  "$VORL process in.wav d.wav --drive a.drive --removed removed.wav -q");
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(read_bytes(box.path("piped-removed.wav")) == read_bytes(box.path("removed.wav")));
    r = box.shell("$VORL process in.wav c.wav --zoom-in 0.5-1.5 --learn - -q | $VORL table diff builtin.tbl -");
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "B: standard input")) << r.out;
    EXPECT_FALSE(file_exists(box.path("-")));

    r = box.shell("$VORL table new - > /dev/full");
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_TRUE(contains(r.err, "standard output: write failed")) << r.err;
    r = box.shell("$VORL table check /dev/zero");
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_TRUE(contains(r.err, "too large for a tuning table")) << r.err;
    for (const char *line : {"$VORL table diff - - < builtin.tbl", "$VORL process - o.wav --drive - < in.wav",
                             "$VORL process in.wav - -t wav --learn - > o.wav"}) {
        r = box.shell(line);
        EXPECT_EQ(r.exit_code, 1) << line << r.err;
    }
    EXPECT_TRUE(contains(r.err, "standard output: --learn")) << r.err;
}

TEST(VorlProcess, AFailedRunLeavesNoPartialOutputAndKeepsTheOldFile) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 10 * 48000, 48000, kWav16, tone);
    write_bytes(box.path("out.wav"), "previous take");
    // The output (1.9 MB) cannot be completed under a 256 kB file-size limit.
    const RunResult r = box.vorl({"process", "in.wav", "out.wav", "-y"}, 256);
    EXPECT_NE(r.exit_code, 0);
    EXPECT_EQ(read_bytes(box.path("out.wav")), "previous take");
    EXPECT_EQ(box.files(), (std::vector<std::string>{"in.wav", "out.wav"}));
}

// Starts the tool on `args` in `box`, waits until it holds an output file
// open in the folder, and kills it with SIGKILL. False if it never did.
bool kill_while_writing(const Sandbox &box, const std::vector<std::string> &args, const std::string &input) {
    const std::string dir = std::filesystem::canonical(box.path(".")).string() + "/";
    std::vector<std::string> argv_s{std::getenv("VORL_TOOL")};
    argv_s.insert(argv_s.end(), args.begin(), args.end());
    const pid_t pid = fork();
    if (pid == 0) {
        if (chdir(dir.c_str()) != 0) _exit(127);
        std::vector<char *> argv;
        for (auto &a : argv_s) argv.push_back(a.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    bool seen = false;
    for (int tries = 0; tries < 20000 && !seen; ++tries) {
        const std::string fds = "/proc/" + std::to_string(pid) + "/fd";
        std::error_code ec;
        for (const auto &e : std::filesystem::directory_iterator(fds, ec)) {
            std::error_code ec2;
            const std::string to = std::filesystem::read_symlink(e.path(), ec2).string();
            if (to.rfind(dir, 0) == 0 && to != dir + input) seen = true;
        }
        if (ec) break;  // the process is gone
        usleep(100);
    }
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    return seen;
}

TEST(VorlProcess, DriveStateThatDoesNotFitIsReportedBeforeProcessingAndFatalWithStrict) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 48000, 48000, kWav16, tone);  // 188 blocks, 1 s
    std::string lines = "# zoom af wind\n";
    for (int b = 0; b < 100; ++b) lines += "1 0 0\n";
    write_bytes(box.path("drive.txt"), lines);

    RunResult r = box.vorl({"process", "in.wav", "out.wav", "--drive", "drive.txt"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "drive.txt: 100 block lines, but in.wav has 188 blocks (1.00 s)")) << r.err;
    EXPECT_LT(r.err.find("block lines"), r.err.find("in.wav -> out.wav"));  // said before the run

    r = box.vorl({"process", "in.wav", "out2.wav", "--zoom-in", "0.5-2", "--wind", "3-4", "--strict"});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_TRUE(contains(r.err, "--zoom-in 0.5-2 reaches past the end of in.wav (1.00 s)")) << r.err;
    EXPECT_TRUE(contains(r.err, "--wind 3-4 lies beyond the end of in.wav")) << r.err;
    EXPECT_EQ(box.vorl({"process", "in.wav", "out2.wav", "--drive", "drive.txt", "--strict"}).exit_code, 2);
    EXPECT_FALSE(file_exists(box.path("out2.wav")));
    EXPECT_EQ(box.vorl({"process", "in.wav", "out2.wav", "--zoom-in", "0.5-1", "--strict"}).exit_code, 0);
}

TEST(VorlOutputs, ReplacingNeedsYesKeepsModeWritesThroughLinksAndKilledRunsLeaveNothing) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 4800, 48000, kWav16, tone);
    write_bytes(box.path("out.wav"), "previous take");
    for (const char *flag : {"", "-n"}) {
        std::vector<std::string> args{"process", "in.wav", "out.wav"};
        if (*flag) args.push_back(flag);
        const RunResult r = box.vorl(args);
        EXPECT_EQ(r.exit_code, 1) << flag;
        EXPECT_TRUE(contains(r.err, "out.wav: exists")) << r.err;
    }
    EXPECT_EQ(read_bytes(box.path("out.wav")), "previous take");
    EXPECT_EQ(box.vorl({"table", "new", "in.wav"}).exit_code, 1);
    // A folder (or device) is never replaced by a file, even with -y.
    ASSERT_EQ(mkdir(box.path("dir.wav").c_str(), 0755), 0);
    const RunResult into_folder = box.vorl({"process", "in.wav", "dir.wav", "-y"});
    EXPECT_EQ(into_folder.exit_code, 1);
    EXPECT_TRUE(contains(into_folder.err, "dir.wav: is a folder; name the file to write in it (dir.wav/NAME)"))
        << into_folder.err;
    EXPECT_EQ(box.files(), (std::vector<std::string>{"dir.wav", "in.wav", "out.wav"}));

    chmod(box.path("out.wav").c_str(), 0640);
    ASSERT_EQ(box.vorl({"process", "in.wav", "out.wav", "-y"}).exit_code, 0);
    struct stat st;
    ASSERT_EQ(stat(box.path("out.wav").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    EXPECT_EQ(read_audio(box.path("out.wav")).size(), 2u * 4800);

    // Through a symbolic link: the target is replaced, the link stays.
    ASSERT_EQ(mkdir(box.path("takes").c_str(), 0755), 0);
    write_bytes(box.path("takes/final.wav"), "old");
    ASSERT_EQ(symlink("takes/final.wav", box.path("final.wav").c_str()), 0);
    ASSERT_EQ(box.vorl({"process", "in.wav", "final.wav", "--overwrite"}).exit_code, 0);
    ASSERT_EQ(lstat(box.path("final.wav").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_EQ(read_audio(box.path("takes/final.wav")).size(), 2u * 4800);

    // Hidden temporaries of a killed run are removed; others stay.
    const pid_t gone = fork();
    if (gone == 0) _exit(0);
    waitpid(gone, nullptr, 0);
    const std::string stale = ".out.wav.vorl-" + std::to_string(gone) + "-abcdef";
    const std::string alive = ".out.wav.vorl-" + std::to_string(getpid()) + "-abcdef";
    write_bytes(box.path(stale), "x");
    write_bytes(box.path(alive), "x");
    ASSERT_EQ(box.vorl({"process", "in.wav", "out.wav", "-y"}).exit_code, 0);
    EXPECT_FALSE(file_exists(box.path(stale)));
    EXPECT_TRUE(file_exists(box.path(alive)));
    std::remove(box.path(alive).c_str());

    // Killed while writing a new output: nothing is left behind.
    write_audio(box.path("long.wav"), 2, 120 * 48000, 48000, kWav16, tone);
    const auto before = box.files();
    EXPECT_TRUE(kill_while_writing(box, {"process", "long.wav", "new.wav"}, "long.wav"));
    EXPECT_EQ(box.files(), before);
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
    // A tone throughout leaves no quiet reference to learn against.
    EXPECT_TRUE(contains(r.err, "nothing was learned: none of the 10 quiet periods")) << r.err;
    EXPECT_FALSE(contains(r.err, "DC offset")) << r.err;
    EXPECT_EQ(box.vorl({"table", "check", "learned.tbl"}).exit_code, 0);
    // An offset is named as what stopped the learning.
    write_audio(box.path("dc.wav"), 2, 48000, 48000, kWav16, [](int64_t n, int c) { return 0.1 + 0.5 * tone(n, c); });
    const RunResult dc = box.vorl({"process", "dc.wav", "dc-out.wav", "--learn", "dc.tbl", "--zoom-in", "0.5-1"});
    EXPECT_TRUE(contains(dc.err, "dc.wav has a DC offset (left 3277, right 3277 of 32768)")) << dc.err;
    for (const char *f : {"dc.wav", "dc-out.wav", "dc.tbl"}) std::remove(box.path(f).c_str());
    // Autofocus up to the last block (--raw feeds no idle blocks after it)
    // leaves the run's AF switch on; the table saves all the same.
    const RunResult af = box.vorl({"process", "in.wav", "raw.wav", "--table", "start.tbl", "--learn", "af.tbl",
                                   "--zoom-in", "1-2", "--af", "2-3", "--raw"});
    ASSERT_EQ(af.exit_code, 0) << af.err;
    EXPECT_EQ(box.vorl({"table", "check", "af.tbl"}).exit_code, 0);
    EXPECT_EQ(box.files(), (std::vector<std::string>{"af.tbl", "in.wav", "learned.tbl", "out.wav", "raw.wav", "start.tbl"}));
}

// A 200 Hz tone in both channels, scaled by channel.
template <int Left, int Right>
double scaled_tone(int64_t n, int c) {
    return 0.3 * (c == 0 ? Left : Right) * std::sin(2.0 * M_PI * 200.0 * n / 48000.0);
}

TEST(VorlProcess, WarnsOfAChannelInOppositePolarityIdenticalChannelsAndADeadOne) {
    Sandbox box;
    write_audio(box.path("inverted.wav"), 2, 48000, 48000, kWav16, scaled_tone<1, -1>);
    write_audio(box.path("identical.wav"), 2, 48000, 48000, kWav16, scaled_tone<1, 1>);
    write_audio(box.path("dead.wav"), 2, 48000, 48000, kWav16, scaled_tone<1, 0>);
    auto warnings = [&](const char *name) {
        const RunResult r = box.vorl({"process", name, "out.wav", "--zoom-in", "0.5-1", "-y"});
        EXPECT_EQ(r.exit_code, 0) << r.err;
        return r.err;
    };
    const std::string inverted = warnings("inverted.wav");
    EXPECT_TRUE(contains(inverted, "inverted.wav: the channels are in opposite polarity below 470 Hz between drives "
                                   "(correlation -1.00)")) << inverted;
    EXPECT_FALSE(contains(inverted, "during the zoom drives")) << inverted;
    const std::string identical = warnings("identical.wav");
    EXPECT_TRUE(contains(identical, "identical.wav: the two channels are identical during the zoom drives")) << identical;
    EXPECT_FALSE(contains(identical, "opposite polarity")) << identical;
    const std::string dead = warnings("dead.wav");
    EXPECT_TRUE(contains(dead, "dead.wav: the right channel is silent during the zoom drives")) << dead;
}

TEST(VorlProcess, ReportsLearningThatFailsThePlausibilityCheck) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 48000, 48000, kWav16, tone);
    box.vorl({"table", "new", "default.tbl"});
    std::string json = box.vorl({"table", "to-json", "default.tbl"}).out;
    const std::string from = "\"tolerance_range_zspec_max\": 1.05";
    json.replace(json.find(from), from.size(), "\"tolerance_range_zspec_max\": 0.01");
    write_bytes(box.path("strict.json"), json);
    ASSERT_EQ(box.vorl({"table", "from-json", "strict.json", "strict.tbl", "--force"}).exit_code, 0);
    const RunResult r =
        box.vorl({"process", "in.wav", "out.wav", "--table", "strict.tbl", "--force", "--learn", "learned.tbl", "-q"});
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
    EXPECT_EQ(box.vorl({"process", "in.wav", "out2.wav", "--table", "strict.tbl", "--force", "--learn", "learned.tbl", "-y"})
                  .exit_code,
              3);
    EXPECT_EQ(read_bytes(box.path("learned.tbl")), "earlier table");
}

// libsndfile's format word, rate and length of a file.
SF_INFO audio_info(const std::string &path) {
    SF_INFO info{};
    SNDFILE *f = sf_open(path.c_str(), SFM_READ, &info);
    if (f != nullptr) sf_close(f);
    return info;
}

TEST(VorlFormats, OtherRatesAreResampledAndDeepFormatsKept) {
    Sandbox box;
    const int64_t frames = 44100 + 77;
    write_audio(box.path("in.wav"), 2, frames, 44100, SF_FORMAT_WAV | SF_FORMAT_PCM_24, sweep);
    RunResult r = box.vorl({"process", "in.wav", "out.wav"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "resampled 44100 Hz -> 48000 Hz and back")) << r.err;
    EXPECT_TRUE(contains(r.err, "TPDF dither")) << r.err;
    SF_INFO info = audio_info(box.path("out.wav"));
    EXPECT_EQ(info.samplerate, 44100);
    EXPECT_EQ(info.frames, frames);
    EXPECT_EQ(info.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_24);
    // Still time-aligned through both filters: the best match is at lag 0.
    const auto in = read_audio(box.path("in.wav")), out = read_audio(box.path("out.wav"));
    for (int lag : {-768, -3, -1, 1, 3, 768}) EXPECT_LT(mismatch(out, in, 0) * 20, mismatch(out, in, lag)) << lag;

    r = box.vorl({"process", "in.wav", "as-is.flac", "--no-resample"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "44100 Hz processed as it is")) << r.err;
    info = audio_info(box.path("as-is.flac"));
    EXPECT_EQ(info.samplerate, 44100);
    EXPECT_EQ(info.frames, frames);
    EXPECT_EQ(info.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_24);

    // Narrower formats fit 16 bits whole: nothing to warn of.
    write_audio(box.path("u8.wav"), 2, 4800, 48000, SF_FORMAT_WAV | SF_FORMAT_PCM_U8, tone);
    write_audio(box.path("alaw.wav"), 2, 4800, 48000, SF_FORMAT_WAV | SF_FORMAT_ALAW, tone);
    for (const char *narrow : {"u8.wav", "alaw.wav"}) {
        r = box.vorl({"process", narrow, "narrow-out.wav", "--no-detect", "-y"});
        ASSERT_EQ(r.exit_code, 0) << r.err;
        EXPECT_FALSE(contains(r.err, "reduced to 16-bit")) << r.err;
    }

    // Float beyond full scale: clipped on the way in and counted; the output
    // stays float.
    write_audio(box.path("float.wav"), 2, 4800, 48000, SF_FORMAT_WAV | SF_FORMAT_FLOAT, loud_float);
    r = box.vorl({"process", "float.wav", "out.aiff"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "clipped converting to 16-bit")) << r.err;
    EXPECT_EQ(audio_info(box.path("out.aiff")).format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
    EXPECT_EQ(audio_info(box.path("out.aiff")).frames, 4800);

    // NaN and infinity are named as such, and reach the resampler as
    // silence and full scale: one bad sample must not silence the filter's
    // whole span around it.
    write_audio(box.path("holes.wav"), 2, 48000, 44100, SF_FORMAT_WAV | SF_FORMAT_FLOAT, tone_with_holes);
    r = box.vorl({"process", "holes.wav", "holes-out.wav", "--no-prime"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "holes.wav: 5 sample(s) not a number (NaN), read as silence")) << r.err;
    EXPECT_TRUE(contains(r.err, "holes.wav: 1 sample(s) clipped converting to 16-bit")) << r.err;
    const auto holes = read_audio(box.path("holes-out.wav"));
    int silent = 0;
    for (std::size_t i = 2 * 5000; i < holes.size(); ++i) silent += holes[i] == 0;
    EXPECT_LT(silent, 40);  // a tone at -12 dBFS crosses zero now and then
}

// The compressed formats libsndfile writes hold the processed sound, time-aligned.
// Header-less dumps, as a camera pipeline writes its buffers: 16-bit
// little-endian stereo at 48 kHz, in and out, processed as the WAV is.
TEST(VorlFormats, HeaderlessDumpsAreTheEnginesOwnForm) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 48000, 48000, kWav16, tone);
    const std::string wav = read_bytes(box.path("in.wav"));
    const std::string samples = wav.substr(wav.size() - 48000 * 4);
    write_bytes(box.path("dump.pcm"), samples);
    ASSERT_EQ(box.vorl({"process", "in.wav", "out.wav", "--zoom-in", "0.2-0.6", "-q"}).exit_code, 0);
    const RunResult r = box.vorl({"process", "dump.pcm", "out.raw", "--zoom-in", "0.2-0.6", "-q"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    const std::string out_wav = read_bytes(box.path("out.wav"));
    EXPECT_EQ(read_bytes(box.path("out.raw")), out_wav.substr(out_wav.size() - 48000 * 4));

    write_bytes(box.path("cut.pcm"), samples.substr(0, 4 * 20000 + 3));
    const RunResult cut = box.vorl({"process", "cut.pcm", "cut.wav", "--no-detect", "-q"});
    EXPECT_EQ(cut.exit_code, 0);
    EXPECT_TRUE(contains(cut.err, "cut.pcm: ends 3 byte(s) into a frame")) << cut.err;
    EXPECT_EQ(audio_info(box.path("cut.wav")).frames, 20000);

    write_audio(box.path("in44.wav"), 2, 4410, 44100, kWav16, tone);
    const RunResult at44 = box.vorl({"process", "in44.wav", "out44.raw"});
    EXPECT_EQ(at44.exit_code, 1);
    EXPECT_TRUE(contains(at44.err, "out44.raw: a header-less file holds 16-bit stereo at 48000 Hz only")) << at44.err;
    write_bytes(box.path("dump.bin"), samples);
    const RunResult unnamed = box.vorl({"process", "dump.bin", "bin.wav"});
    EXPECT_EQ(unnamed.exit_code, 2);
    EXPECT_TRUE(contains(unnamed.err, "is read from a file named .raw or .pcm")) << unnamed.err;
}

TEST(VorlFormats, CompressedOutputsHoldTheProcessedSound) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 48000, 48000, kWav16, tone);
    ASSERT_EQ(box.vorl({"process", "in.wav", "out.wav"}).exit_code, 0);
    const auto reference = read_audio(box.path("out.wav"));
    const double energy = mismatch(reference, std::vector<int16_t>(reference.size()), 0);
    const struct {
        const char *name;
        int format;
    } outputs[] = {{"out.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III},
                   {"out.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
                   {"out.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS}};
    for (const auto &o : outputs) {
        const RunResult r = box.vorl({"process", "in.wav", o.name});
        ASSERT_EQ(r.exit_code, 0) << r.err;
        EXPECT_EQ(audio_info(box.path(o.name)).format, o.format) << o.name;
        const auto coded = read_audio(box.path(o.name));
        ASSERT_GE(coded.size(), 2u * 40000) << o.name;
        EXPECT_LT(mismatch(coded, reference, 0), energy / 100) << o.name;  // within 20 dB
    }
    // Opus holds only some rates; the refusal leaves nothing behind.
    write_audio(box.path("in44.wav"), 2, 4410, 44100, kWav16, tone);
    const RunResult r = box.vorl({"process", "in44.wav", "out44.opus", "--no-resample"});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_TRUE(contains(r.err, "out44.opus: cannot write audio")) << r.err;
    EXPECT_FALSE(file_exists(box.path("out44.opus")));
}

// --strength mixes the time-aligned input back in; --removed and --output
// removed give what was taken away. Checked where the library removes the
// most: a zoom drive over a sweep.
TEST(VorlProcess, StrengthAndRemovedSplitTheInputSampleBySample) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 48000, 48000, kWav16, sweep);
    const std::vector<std::string> drive{"--zoom-in", "0.2-0.8"};
    auto run = [&](std::vector<std::string> args) {
        args.insert(args.begin(), {"process", "in.wav"});
        args.insert(args.end(), drive.begin(), drive.end());
        const RunResult r = box.vorl(args);
        EXPECT_EQ(r.exit_code, 0) << r.err;
    };
    run({"full.wav"});
    run({"one.wav", "--strength", "1", "--removed", "removed.wav"});
    run({"zero.wav", "--strength", "0"});
    run({"raw-zero.wav", "--strength", "0", "--raw"});
    run({"only-removed.wav", "--output", "removed"});
    EXPECT_EQ(read_bytes(box.path("one.wav")), read_bytes(box.path("full.wav")));
    EXPECT_EQ(read_bytes(box.path("only-removed.wav")), read_bytes(box.path("removed.wav")));

    const auto in = read_audio(box.path("in.wav")), out = read_audio(box.path("full.wav"));
    const auto removed = read_audio(box.path("removed.wav"));
    EXPECT_EQ(read_audio(box.path("zero.wav")), in);
    ASSERT_EQ(removed.size(), in.size());
    for (std::size_t i = 0; i < in.size(); ++i) ASSERT_EQ(out[i] + removed[i], in[i]) << i;
    EXPECT_GT(energy(removed, 0, 48000), 0.01 * energy(in, 0, 48000));  // the drive's noise was taken

    // --raw keeps the library's delay, with the input where its output is.
    const auto raw = read_audio(box.path("raw-zero.wav"));
    const std::size_t delay = 2 * VORL_DELAY_FRAMES;
    ASSERT_GE(raw.size(), in.size());
    EXPECT_EQ(std::vector<int16_t>(raw.begin(), raw.begin() + delay), std::vector<int16_t>(delay, 0));
    EXPECT_TRUE(std::equal(raw.begin() + delay, raw.end(), in.begin()));
}

std::vector<int16_t> video_sound(const std::string &path) {
    MediaReader reader(path);
    std::vector<int16_t> all(2 * 48000 * 3);
    all.resize(2 * reader.read(all.data(), all.size() / 2));
    return all;
}

// A camera clip: the picture's packets come out as they went in, the new
// sound is the processed sound (as an audio output gives it), in time, and
// the clip's title stays.
TEST(VorlProcess, VideoGetsNewSoundAndKeepsEverythingElse) {
    Sandbox box;
    make_clip(box.path("clip.mp4"));
    for (const char *out : {"out.mp4", "ref.flac"}) {
        const RunResult r = box.vorl({"process", "clip.mp4", out, "--zoom-in", "0.8-1.2"});
        ASSERT_EQ(r.exit_code, 0) << r.err;
    }
    // A video output is the input video with new sound: from a sound file there is none to take.
    const RunResult no_video = box.vorl({"process", "ref.flac", "sound.m4a"});
    EXPECT_EQ(no_video.exit_code, 1);
    EXPECT_TRUE(contains(no_video.err, "sound.m4a: an MP4, MOV or Matroska output is the input video")) << no_video.err;
    const ContainerRecord a = inspect(box.path("clip.mp4")), b = inspect(box.path("out.mp4"));
    ASSERT_EQ(b.streams.size(), 2u);
    EXPECT_EQ(b.tags.at("title"), "Take 7");
    const int den = a.streams[0].time_base_den;
    ASSERT_FALSE(a.streams[0].packets.empty());
    EXPECT_EQ(packets_in(a.streams[0], den), packets_in(b.streams[0], den));
    EXPECT_EQ(b.streams[1].codec, "aac");
    const double aac_frame = 1024.0 / 48000;
    EXPECT_NEAR(b.streams[1].start, a.streams[1].start, aac_frame);
    EXPECT_NEAR(b.streams[1].duration, a.streams[1].duration, aac_frame);

    // The AAC-coded result against the lossless one: no shift, and close.
    const auto coded = video_sound(box.path("out.mp4")), ref = read_audio(box.path("ref.flac"));
    ASSERT_NEAR(coded.size(), ref.size(), 2 * 1024);
    auto error = [&](int lag) {
        double e = 0;
        for (int64_t i = 2 * 24000; i < 2 * 72000; ++i) {
            const double d = coded[i] - ref[i + 2 * lag];
            e += d * d;
        }
        return e;
    };
    EXPECT_LT(error(0), 0.01 * energy(ref, 24000, 72000));
    for (int lag : {-1024, -256, -1, 1, 256, 1024}) EXPECT_LT(error(0) * 10, error(lag)) << lag;

    // A camera's drive log counts the sound as recorded, which the coded
    // stream holds to within a codec frame or two: even --strict takes it.
    const std::size_t blocks = (ref.size() / 2 + 255) / 256;
    for (const std::size_t lines : {blocks - 3, blocks - 20}) {
        std::string log;
        for (std::size_t b = 0; b < lines; ++b) log += "0 0 0\n";
        write_bytes(box.path("log.txt"), log);
        const RunResult r = box.vorl({"process", "clip.mp4", "logged.mp4", "--drive", "log.txt", "--strict", "-y"});
        EXPECT_EQ(r.exit_code, lines + 3 == blocks ? 0 : 2) << r.err;
        EXPECT_EQ(contains(r.err, "(within a coded stream's precision)"), lines + 3 == blocks) << r.err;
    }

    make_clip(box.path("mono.mp4"), {"aac", 1});
    const RunResult mono = box.vorl({"process", "mono.mp4", "mono-out.mp4"});
    EXPECT_EQ(mono.exit_code, 2);
    EXPECT_TRUE(contains(mono.err, "mono.mp4: its audio stream has 1 channel")) << mono.err;
    EXPECT_FALSE(file_exists(box.path("mono-out.mp4")));
    const std::string whole = read_bytes(box.path("clip.mp4"));
    write_bytes(box.path("cut.mp4"), whole.substr(0, whole.size() / 2));  // its index is at the end
    const RunResult cut = box.vorl({"process", "cut.mp4", "cut-out.mp4"});
    EXPECT_EQ(cut.exit_code, 2);
    EXPECT_TRUE(contains(cut.err, "cut.mp4: cannot read as a video file")) << cut.err;
    EXPECT_FALSE(file_exists(box.path("cut-out.mp4")));
}

// Sound-only MP4 and Matroska files, as a phone's recorder writes them, go
// through the same reader and writer as videos.
TEST(VorlProcess, SoundOnlyContainersKeepTheirFormAndTags) {
    Sandbox box;
    for (const std::string ext : {"m4a", "mka"}) {
        make_clip(box.path("take." + ext), {"aac", 2, /*video=*/false});
        const RunResult r = box.vorl({"process", "take." + ext, "out." + ext, "--zoom-in", "0.8-1.2", "-q"});
        ASSERT_EQ(r.exit_code, 0) << ext << ": " << r.err;
        const ContainerRecord out = inspect(box.path("out." + ext));
        ASSERT_EQ(out.streams.size(), 1u) << ext;
        EXPECT_EQ(out.streams[0].codec, "aac") << ext;
        EXPECT_EQ(out.tags.at("title"), "Take 7") << ext;
    }
}

// A tone in both channels with a second (1-2 s) of noise that differs
// between them, as a motor near the capsules makes.
double motor_stretch(int64_t n, int c) {
    double v = 0.1 * std::sin(2.0 * M_PI * 440.0 * n / 48000.0);
    if (n >= 48000 && n < 96000) {
        uint64_t h = (static_cast<uint64_t>(n) * 2 + static_cast<uint64_t>(c) + 1) * 0x9E3779B97F4A7C15ull;
        h = (h ^ (h >> 29)) * 0xBF58476D1CE4E5B9ull;
        h ^= h >> 32;
        v += 0.05 * (static_cast<double>(h >> 11) / 9007199254740992.0 * 2.0 - 1.0);
    }
    return v;
}

TEST(VorlProcess, DetectsDrivesWithoutALogAndItsWordsRoundTrip) {
    Sandbox box;
    write_audio(box.path("in.wav"), 2, 3 * 48000, 48000, kWav16, motor_stretch);
    RunResult r = box.vorl({"process", "in.wav", "detected.wav", "--drive-out", "used.txt"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "drives detected: 1, 1.0 s")) << r.err;
    EXPECT_FALSE(contains(r.err, "warning")) << r.err;
    const std::string used = read_bytes(box.path("used.txt"));
    EXPECT_EQ(std::count(used.begin(), used.end(), '\n'), 1 + (3 * 48000 + 255) / 256);  // a comment, then a line a block
    EXPECT_TRUE(contains(used, "\n1 0 0\n"));

    // The written words given back reproduce the run bit for bit.
    r = box.vorl({"process", "in.wav", "given.wav", "--drive", "used.txt", "--drive-out", "again.txt"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_FALSE(contains(r.err, "detected")) << r.err;
    EXPECT_EQ(read_bytes(box.path("given.wav")), read_bytes(box.path("detected.wav")));
    EXPECT_EQ(read_bytes(box.path("again.txt")), used);

    r = box.vorl({"process", "in.wav", "plain.wav", "--no-detect"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "removes nothing")) << r.err;
    EXPECT_NE(read_bytes(box.path("plain.wav")), read_bytes(box.path("detected.wav")));
    EXPECT_EQ(box.vorl({"process", "in.wav", "x.wav", "--no-detect", "--zoom-in", "1-2"}).exit_code, 1);

    // The motor's second heard alike in both channels: nothing to find, and
    // the user is told that nothing was removed and what to give instead.
    write_audio(box.path("alike.wav"), 2, 3 * 48000, 48000, kWav16, [](int64_t n, int) { return motor_stretch(n, 0); });
    r = box.vorl({"process", "alike.wav", "alike-out.wav"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "drives detected: 0, 0.0 s")) << r.err;
    EXPECT_TRUE(contains(r.err, "alike.wav: no drives detected, so the noise reducer removes nothing")) << r.err;
}

}  // namespace
}  // namespace vorl::test
