// Processing entry points end to end: status codes, the 768-frame delay,
// transparency with suppression off, drive words and the pulse switch, the
// ring shift, the autofocus template switch, and the learned table's save
// with its count, in place and atomic.
#include <gtest/gtest.h>

#include <dirent.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "table_builder.h"
#include "testkit.h"
#include "vorl.h"

namespace {

using vorl::tablekit::reference_table;
using vorl::tablekit::seal;
using vorl::testkit::Host;

// Suppression, background and equaliser slope off; no gain smoothing.
st_vorl_tbl transparent_table() {
    st_vorl_tbl t = reference_table();
    t.st_vorl.bn_proc_flag = 0;
    t.st_vorl.zn_proc_flag = 0;
    t.st_vorl.nr_gain_sm_coef = 0.0f;
    seal(t);
    return t;
}

TEST(HostProcess, StatusCodesOfTableLoading) {
    Host ok(reference_table());
    EXPECT_EQ(ok.pre_process(), VORL_OK);

    Host missing(reference_table());
    missing.res.p_tbl_path = "/nonexistent/table.bin";
    EXPECT_EQ(missing.pre_process(), VORL_ERR_TBL_OPEN);

    st_vorl_tbl changed = reference_table();
    changed.st_vorl.over_est += 1.0f;  // one word changed, checksum not renewed
    Host bad_sum(changed);
    EXPECT_EQ(bad_sum.pre_process(), VORL_ERR_CHECKSUM);

    st_vorl_tbl old = reference_table();
    old.tbl_version = 0x01020000;
    seal(old);
    Host bad_version(old);
    bad_version.work().hdr.zoom_state = 2;
    EXPECT_EQ(bad_version.pre_process(), VORL_ERR_VERSION);
    EXPECT_EQ(bad_version.work().ws.st_vorl_work.over_est, old.st_vorl.over_est);  // set up all the same
    EXPECT_NE(bad_version.work().inst.zoom_state, 2u);                         // hand-over skipped

    st_vorl_tbl zeros;
    std::memset(&zeros, 0, sizeof zeros);
    Host all_zero(zeros);
    EXPECT_EQ(all_zero.pre_process(), VORL_ERR_VERSION);  // sum 0 matches, version does not
}

TEST(HostProcess, BlocksComeOutThreeCallsLaterUnchangedWhenNothingIsSuppressed) {
    Host host(transparent_table());
    ASSERT_EQ(host.pre_process(), 0);
    vorl::testkit::Noise noise(17);
    const int blocks = 40;
    std::vector<int16_t> in(blocks * 512);
    for (int16_t &x : in) x = static_cast<int16_t>(noise.uniform() * 20000);
    const std::vector<int16_t> out = host.run(in);
    for (int n = 0; n < 768; ++n) ASSERT_EQ(out[2 * n] | out[2 * n + 1], 0) << n;  // silent history
    for (size_t i = 2 * 768; i < out.size(); ++i) ASSERT_LE(std::abs(out[i] - in[i - 2 * 768]), 1) << i;
}

TEST(HostProcess, DriveWordsLastUntilTheHostChangesThem) {
    Host host(reference_table());
    ASSERT_EQ(host.pre_process(), 0);
    const std::vector<int16_t> silence(512, 0);
    VORLSetDriveState(&host.res, 1, 3, 1);
    host.run(silence);
    host.run(silence);
    EXPECT_EQ(host.work().hdr.zoom_state, 1u);
    EXPECT_EQ(host.work().inst.zoom_state, 1u);
    EXPECT_EQ(host.work().inst.af_state, 3u);
    EXPECT_EQ(host.work().inst.wind_state, 1u);
    EXPECT_EQ(host.ws().z_frame_cnt, 2);
    host.work().hdr.zoom_state = 0;  // writing the record directly works the same
    host.run(silence);
    EXPECT_EQ(host.ws().z_frame_cnt, 0);
}

TEST(HostProcess, PulseFilterRunsExactlyWhenItsSwitchIsSetAndRingsMoveDown) {
    Host host(reference_table());
    ASSERT_EQ(host.pre_process(), 0);
    std::vector<int16_t> ramp(3 * 512);
    for (size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<int16_t>(i % 512 - 256);
    host.run(ramp);
    EXPECT_EQ(host.work().pulse.blk_pos[0], 0);
    host.work().pulse_proc_flag = 0x80000000u;
    host.run(ramp);
    EXPECT_EQ(host.work().pulse.blk_pos[1], 3);
    // The newest block sits at 512..767 and still at 768..1023.
    for (int i = 0; i < 256; ++i) {
        ASSERT_EQ(host.work().ring[0][512 + i], ramp[2 * i]);
        ASSERT_EQ(host.work().ring[1][768 + i], ramp[2 * i + 1]);
    }
}

// Energy of blocks [first, last) of an interleaved recording, in dB.
double level_db(const std::vector<int16_t> &v, int first, int last) {
    double e = 1e-9;
    for (size_t i = static_cast<size_t>(first) * 512; i < static_cast<size_t>(last) * 512; ++i)
        e += static_cast<double>(v[i]) * v[i];
    return 10.0 * std::log10(e);
}

TEST(HostProcess, AfTemplateSwitchSuppressesAutofocusBlocksAndLeavesTheRestAndTheFile) {
    // A quiet scene with bursts of autofocus rattle (noise at 3000 rms-ish,
    // modulated at 90 Hz) in blocks without zoom drive. The table's template
    // 0 holds the rattle's mean power per bin, but its bit 0 keeps templates
    // off without zoom drive.
    constexpr float kAmp = 3000.0f, kMeanSquare = kAmp * kAmp / 3.0f * 0.59375f;
    st_vorl_tbl t = reference_table();
    t.st_vorl.bn_proc_flag = 2;
    t.st_vorl.zn_proc_flag = 2;
    for (auto &row : t.st_vorl.back_ground_noise[0]) row[0] = kMeanSquare / 4194304.0f;  // times sum w^2
    seal(t);

    constexpr int kBlocks = 128, kBurst = 16;
    auto in_burst = [](int b) { return b >= 16 && (b - 16) % 56 < kBurst; };  // blocks 16..31, 72..87
    vorl::testkit::Noise noise(5);
    std::vector<int16_t> in(kBlocks * 512);
    for (size_t n = 0; n < in.size() / 2; ++n) {
        const float t_s = static_cast<float>(n) / 48000.0f;
        const float tone = 300.0f * std::sin(6.2831853f * 440.0f * t_s);
        const float rattle = 0.75f + 0.25f * std::sin(6.2831853f * 90.0f * t_s);
        for (int ch = 0; ch < 2; ++ch) {
            float v = tone + 20.0f * noise.uniform();
            if (in_burst(static_cast<int>(n / 256))) v += kAmp * rattle * noise.uniform();
            in[2 * n + ch] = static_cast<int16_t>(v);
        }
    }

    Host plain(t), af(t);
    ASSERT_EQ(plain.pre_process(), 0);
    ASSERT_EQ(af.pre_process(), 0);
    const std::vector<unsigned char> table_before = vorl::testkit::read_file(af.table_file.path());
    const std::vector<int16_t> out_plain = plain.run(in);
    std::vector<int16_t> out_af(in.size());
    for (int b = 0; b < kBlocks; ++b) {
        ASSERT_EQ(VORLSetAfTemplate(&af.res, in_burst(b) ? 1 : 0), VORL_OK);
        af.block(&in[b * 512], &out_af[b * 512]);
    }

    // Inside the bursts (past the frames that straddle their edges; output
    // block b + 3 holds input block b): the switch removes most of the
    // rattle; without it the level stays.
    for (int first : {18, 74}) {
        const double in_db = level_db(in, first, first + 11);
        EXPECT_NEAR(level_db(out_plain, first + 3, first + 14), in_db, 0.2) << first;
        EXPECT_LT(level_db(out_af, first + 3, first + 14), in_db - 6.0) << first;
    }
    // Outside all drives the output is the same bits: before the first
    // switched frame (the one of call 16 holds input block 13) and once the
    // smoothed gains have returned to 1 after a burst.
    auto same_blocks = [&](int first, int last) {
        return std::equal(out_af.begin() + (first + 3) * 512, out_af.begin() + (last + 3) * 512,
                          out_plain.begin() + (first + 3) * 512);
    };
    EXPECT_TRUE(same_blocks(0, 13));
    EXPECT_TRUE(same_blocks(60, 68));
    EXPECT_TRUE(same_blocks(116, 125));

    // The table file keeps the table's own flag; the working copy keeps the switch.
    ASSERT_EQ(VORLSetAfTemplate(&af.res, 1), VORL_OK);
    ASSERT_EQ(sound_vorl_check_tbl(&af.work().inst), 0);
    ASSERT_EQ(VORLPostProcess(&af.res), 0);
    EXPECT_EQ(vorl::testkit::read_file(af.table_file.path()), table_before);
    EXPECT_EQ(af.ws().st_vorl_work.bn_proc_flag, 3);

    EXPECT_EQ(VORLSetAfTemplate(nullptr, 1), VORL_ERR_NULL);
    VORLResource no_work{};
    EXPECT_EQ(VORLSetAfTemplate(&no_work, 1), VORL_ERR_NULL);
}

TEST(HostProcess, PostProcessSavesAPassingTableWithItsCountEveryTime) {
    st_vorl_tbl t = reference_table();
    t.tbl_cnt = 10;
    seal(t);
    Host host(t);
    ASSERT_EQ(host.pre_process(), 0);
    EXPECT_EQ(sound_vorl_get_tbl_cnt_info(&host.work().hdr), 10u);
    EXPECT_EQ(sound_vorl_info_get(&host.work().inst), 0u);
    host.ws().st_vorl_work.zspec_comp_coef_f_LR_d[0][4] = 0.01f;  // as if learned
    host.work().inst.learn_cnt = 3;
    ASSERT_EQ(VORLPostProcess(&host.res), 0);
    st_vorl_tbl saved;
    ASSERT_EQ(sound_vorl_read_tbl(host.table_file.path().c_str(), &saved), 0);
    EXPECT_EQ(saved.tbl_cnt, 13u);
    EXPECT_EQ(saved.st_vorl.zspec_comp_coef_f_LR_d[0][4], 0.01f);
    EXPECT_EQ(saved.check_sum, vorl::tablekit::checksum(saved));
    ASSERT_EQ(VORLPostProcess(&host.res), 0);  // the count is added again
    ASSERT_EQ(sound_vorl_read_tbl(host.table_file.path().c_str(), &saved), 0);
    EXPECT_EQ(saved.tbl_cnt, 16u);
}

TEST(HostProcess, FailingCheckRewritesTheFileByteForByte) {
    Host host(reference_table());
    ASSERT_EQ(host.pre_process(), 0);
    const std::vector<unsigned char> before = vorl::testkit::read_file(host.table_file.path());
    host.ws().st_vorl_work.zspec_comp_coef_f_LR_d_max[1][6] = 0.1f;  // learned curve now too high
    host.ws().st_vorl_work.over_est = 7.0f;
    host.work().inst.learn_cnt = 5;
    testing::internal::CaptureStderr();
    ASSERT_EQ(VORLPostProcess(&host.res), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "4:6\n");
    EXPECT_EQ(vorl::testkit::read_file(host.table_file.path()), before);
    EXPECT_EQ(sound_vorl_comp_check_sum(&host.work().hdr), 0);
}

TEST(HostProcess, UnwritableTablePathStillReportsSuccess) {
    char dir[] = "/tmp/vorl-gone-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/table.bin";
    const st_vorl_tbl t = reference_table();
    vorl::testkit::write_table(path, t);
    Host host(t);
    host.res.p_tbl_path = path.c_str();
    ASSERT_EQ(host.pre_process(), 0);
    std::remove(path.c_str());
    rmdir(dir);
    EXPECT_EQ(VORLPostProcess(&host.res), 0);
    struct stat st;
    EXPECT_NE(stat(path.c_str(), &st), 0);
}

// Names in a folder, to see that no temporary file is left behind.
std::vector<std::string> folder_names(const std::string &dir) {
    std::vector<std::string> names;
    if (DIR *d = opendir(dir.c_str())) {
        while (const dirent *e = readdir(d))
            if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) names.push_back(e->d_name);
        closedir(d);
    }
    return names;
}

TEST(HostProcess, SaveTableReplacesTheFileWholeOrNotAtAll) {
    char dir[] = "/tmp/vorl-save-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/table.bin";
    const st_vorl_tbl t = reference_table();
    vorl::testkit::write_table(path, t);
    chmod(path.c_str(), 0640);
    Host host(t);
    ASSERT_EQ(host.pre_process(), 0);
    host.ws().st_vorl_work.zspec_comp_coef_f_LR_d[0][4] = 0.01f;  // as if learned
    host.work().inst.learn_cnt = 3;
    host.res.p_tbl_path = nullptr;  // the image only
    ASSERT_EQ(VORLPostProcess(&host.res), 0);
    const auto *image = reinterpret_cast<const unsigned char *>(&host.work().tbl);
    const std::vector<unsigned char> learned(image, image + sizeof(st_vorl_tbl));

    ASSERT_EQ(VORLSaveTable(&host.res, path.c_str()), VORL_OK);
    EXPECT_EQ(vorl::testkit::read_file(path), learned);
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);

    // A write that fails half-way (file-size limit) leaves the old file.
    host.work().tbl.tbl_cnt += 1;
    struct rlimit old_limit;
    getrlimit(RLIMIT_FSIZE, &old_limit);
    struct rlimit small = old_limit;
    small.rlim_cur = 1000;
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const int32_t failed_write = VORLSaveTable(&host.res, path.c_str());
    setrlimit(RLIMIT_FSIZE, &old_limit);
    EXPECT_EQ(failed_write, VORL_ERR_TBL_WRITE);
    EXPECT_EQ(vorl::testkit::read_file(path), learned);
    EXPECT_EQ(folder_names(dir), std::vector<std::string>{"table.bin"});

    EXPECT_EQ(VORLSaveTable(&host.res, (std::string(dir) + "/no/such/folder/t.bin").c_str()), VORL_ERR_TBL_WRITE);
    EXPECT_EQ(VORLSaveTable(&host.res, nullptr), VORL_ERR_NULL);
    EXPECT_EQ(VORLSaveTable(nullptr, path.c_str()), VORL_ERR_NULL);
    std::remove(path.c_str());
    rmdir(dir);
}

}  // namespace
