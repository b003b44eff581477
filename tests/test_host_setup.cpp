// Host set-up functions: status codes, the places they report, and exactly
// which bytes of the work area initialisation clears and writes.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "vorl.h"

namespace {

TEST(HostSetup, NullRecordIsRefusedByEveryFunction) {
    EXPECT_EQ(VORLGetResourceSize(nullptr), VORL_ERR_NULL);
    EXPECT_EQ(VORLGetResourceInfo(nullptr), VORL_ERR_NULL);
    EXPECT_EQ(VORLInitialize(nullptr), VORL_ERR_NULL);
    EXPECT_EQ(VORLPreProcess(nullptr), VORL_ERR_NULL);
    EXPECT_EQ(VORLEnterLibrary(nullptr), VORL_ERR_NULL);
    EXPECT_EQ(VORLPostProcess(nullptr), VORL_ERR_NULL);
    EXPECT_EQ(VORLSetDriveState(nullptr, 1, 0, 0), VORL_ERR_NULL);
    VORLResource no_work{};
    EXPECT_EQ(VORLSetDriveState(&no_work, 1, 0, 0), VORL_ERR_NULL);
}

TEST(HostSetup, ReportsSizeWhateverTheRecordHolds) {
    VORLResource r;
    std::memset(&r, 0x5A, sizeof r);
    EXPECT_EQ(VORLGetResourceSize(&r), 0);
    EXPECT_EQ(r.resource_size, 30312u);
    EXPECT_EQ(r.host_area[0], 0x5A);  // the host's own area is never touched
}

TEST(HostSetup, ReportsPlacesFromTheWorkPointerAlone) {
    static VORLWorkArea w;
    VORLResource r{};
    r.p_work = &w;
    ASSERT_EQ(VORLGetResourceInfo(&r), 0);
    auto *base = reinterpret_cast<char *>(&w);
    EXPECT_EQ(reinterpret_cast<char *>(r.p_in_ch0), base + 3584);
    EXPECT_EQ(reinterpret_cast<char *>(r.p_in_ch1), base + 5632);
    EXPECT_EQ(reinterpret_cast<char *>(r.p_out), base);
    EXPECT_EQ(r.frame_num, 256u);
    EXPECT_STREQ(r.build_date, "Aug  1 2021");
    EXPECT_STREQ(r.build_time, "00:00:00");
}

TEST(HostSetup, InitializeClearsOnlyRingsOutputAndPulseFlag) {
    std::vector<unsigned char> area(VORL_WORK_SIZE, 0xA5);
    VORLResource r{};
    r.p_work = area.data();
    ASSERT_EQ(VORLInitialize(&r), 0);
    for (size_t i = 0; i < VORL_WORK_SIZE; ++i) {
        const bool cleared = i < 6144 || (i >= VORL_OFS_PULSE_FLAG && i < VORL_OFS_PULSE_FLAG + 4);
        const bool header = i >= VORL_OFS_HDR && i < VORL_OFS_HDR + sizeof(st_vorl_hdr);
        if (header) continue;
        ASSERT_EQ(area[i], cleared ? 0 : 0xA5) << "byte " << i;
    }
    st_vorl_hdr hdr;
    std::memcpy(&hdr, area.data() + VORL_OFS_HDR, sizeof hdr);
    EXPECT_EQ(hdr.ch_num, 2u);
    EXPECT_EQ(hdr.frame_size, 512u);
    EXPECT_EQ(hdr.zoom_state, 0u);
    EXPECT_EQ(hdr.af_state, 0u);
    EXPECT_EQ(hdr.wind_state, 0u);
    EXPECT_EQ(hdr.ch_offset, 1024u);
    EXPECT_EQ(reinterpret_cast<unsigned char *>(hdr.p_tbl), area.data() + 6144);
}

}  // namespace
