// How drive ranges and drive files map onto 256-frame blocks.
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "cli.h"
#include "drive_schedule.h"

namespace vorl {
namespace {

TEST(DriveSchedule, ABlockIsDrivenWhenItsFirstFrameIsInTheRange) {
    DriveSchedule s;
    s.add_zoom_in("0.5-1", "zoom-in");  // 48 kHz: frames 24000 .. 47999
    s.add_zoom_out("2-2.1,3-3.01", "zoom-out");
    s.add_wind("0-0.5", "wind");
    EXPECT_EQ(s.at(93, 48000).zoom, 0u);   // starts at frame 23808
    EXPECT_EQ(s.at(94, 48000).zoom, 1u);   // 24064: the first block inside
    EXPECT_EQ(s.at(187, 48000).zoom, 1u);  // 47872
    EXPECT_EQ(s.at(188, 48000).zoom, 0u);  // 48128
    EXPECT_EQ(s.at(375, 48000).zoom, 2u);  // exactly 2.0 s
    EXPECT_EQ(s.at(563, 48000).zoom, 2u);  // second range of the same option
    EXPECT_EQ(s.at(0, 48000).wind, 1u);
    EXPECT_EQ(s.at(93, 48000).wind, 1u);
    EXPECT_EQ(s.at(94, 48000).wind, 0u);
    EXPECT_TRUE(s.at(100, 48000).driven());
    EXPECT_FALSE(s.at(50, 48000).driven());
    EXPECT_EQ(s.at(94, 44100).zoom, 1u);  // 0.546 s at 44.1 kHz
    EXPECT_EQ(s.at(86, 44100).zoom, 0u);  // 0.4993 s: outside
}

TEST(DriveSchedule, TimesMayBeMinutesAndSecondsOrHoursToo) {
    DriveSchedule s;
    s.add_zoom_in("1:02.5-1:04", "zoom-in");        // 62.5 s to 64 s
    s.add_zoom_out("1:00:01-1:00:02.5", "zoom-out");  // 3601 s to 3602.5 s
    s.add_wind("0:05-7", "wind");                    // mixed forms
    EXPECT_EQ(s.at(11718, 48000).zoom, 0u);  // 62.496 s
    EXPECT_EQ(s.at(11719, 48000).zoom, 1u);  // 62.501 s
    EXPECT_EQ(s.at(12000, 48000).zoom, 0u);  // 64 s exactly
    EXPECT_EQ(s.at(675188, 48000).zoom, 2u);  // 3601.003 s
    EXPECT_EQ(s.at(675187, 48000).zoom, 0u);  // 3600.997 s
    EXPECT_EQ(s.at(938, 48000).wind, 1u);     // 5.003 s
    EXPECT_EQ(s.at(1313, 48000).wind, 0u);    // 7.003 s
}

TEST(DriveSchedule, MalformedRangesAndOverlappingDirectionsAreUsageErrors) {
    for (const char *bad : {"", "1", "1-", "-2", "2-1", "1-1", "a-b", "1-2,", "1-2;3-4", "-1-2", "1:60-2:00",
                            "1:2:3:4-1:2:3:5", "1:60:00-2:00:00", ":30-1:00", "1:-1:30", "1:5.-1:6", "1:1e1-1:20"}) {
        DriveSchedule s;
        try {
            s.add_zoom_in(bad, "zoom-in");
            ADD_FAILURE() << "accepted \"" << bad << "\"";
        } catch (const cli::Failure &f) {
            EXPECT_EQ(f.exit_code, cli::kExitUsage) << bad;
        }
    }
    DriveSchedule s;
    s.add_zoom_in("1-3", "zoom-in");
    s.add_zoom_out("3-4", "zoom-out");  // touching, not overlapping
    EXPECT_NO_THROW(s.check_conflicts());
    s.add_zoom_out("2.9-3.5", "zoom-out");
    EXPECT_THROW(s.check_conflicts(), cli::Failure);
}

TEST(DriveSchedule, DriveFileLinesAreBlocksAndErrorsNameTheLine) {
    const std::string path = ::testing::TempDir() + "drive.txt";
    // With the UTF-8 mark and line ends some editors write.
    std::ofstream(path) << "\xEF\xBB\xBF# zoom af wind\r\n0 0 0\r\n\r\n1 0 1\r\n2 7 0\r\n";
    const DriveSchedule s = DriveSchedule::from_file(path);
    EXPECT_EQ(s.file_blocks(), 3u);
    EXPECT_EQ(s.at(1, 48000).zoom, 1u);
    EXPECT_EQ(s.at(1, 48000).wind, 1u);
    EXPECT_EQ(s.at(2, 48000).af, 7u);
    EXPECT_FALSE(s.at(3, 48000).driven());  // past the end: idle

    // A spreadsheet's export: a header, tabs, commas, semicolons and notes.
    std::ofstream(path) << "Zoom,AF,Wind\n0,0,0\n1\t0\t1  # zoom-in starts\n2;7;0\n";
    const DriveSchedule exported = DriveSchedule::from_file(path);
    ASSERT_EQ(exported.file_blocks(), 3u);
    for (int64_t b = 0; b < 3; ++b) {
        EXPECT_EQ(exported.at(b, 48000).zoom, s.at(b, 48000).zoom);
        EXPECT_EQ(exported.at(b, 48000).af, s.at(b, 48000).af);
        EXPECT_EQ(exported.at(b, 48000).wind, s.at(b, 48000).wind);
    }

    for (const char *bad : {"3 0 0", "1 0 2", "1 0", "1 0 0 0", "x 0 0", "-1 0 0", "1 0 4294967296", "1,,0",
                            "zoom af wind", "1 0 0 wind"}) {
        std::ofstream(path) << "0 0 0\n" << bad << "\n";
        try {
            DriveSchedule::from_file(path);
            ADD_FAILURE() << "accepted \"" << bad << "\"";
        } catch (const cli::Failure &f) {
            EXPECT_EQ(f.exit_code, cli::kExitInput);
            EXPECT_NE(std::string(f.what()).find(path + ":2: "), std::string::npos) << f.what();
        }
    }

    // A binary file is quoted as escapes, cut short, never as raw bytes.
    std::ofstream(path) << std::string("\x1b[2J\xff\x01\x00", 7) << std::string(500, 'z') << "\n";
    try {
        DriveSchedule::from_file(path);
        ADD_FAILURE() << "accepted a binary line";
    } catch (const cli::Failure &f) {
        const std::string message = f.what();
        EXPECT_NE(message.find("\"\\x1b[2J\\xff\\x01\\x00zz"), std::string::npos) << message;
        EXPECT_LT(message.size(), 200u);
        for (const char c : message) EXPECT_TRUE(c >= 0x20 && c < 0x7f) << message;
    }
}

}  // namespace
}  // namespace vorl
