// The drive detector on generated scenes: drives found, strong stereo
// content left idle, wind found, and the streaming words equal the offline
// ones a fixed number of blocks later.
#include <gtest/gtest.h>

#include "drive_detector.h"
#include "drive_onset.h"
#include "scene.h"

namespace scenekit {
namespace {

struct Counts {
    int hit = 0, wrong = 0, missed = 0;
    double f1() const { return 2.0 * hit / (2.0 * hit + wrong + missed); }
};

Counts zoom_counts(const std::vector<DriveWords> &truth, const std::vector<DriveWords> &found) {
    Counts c;
    for (std::size_t b = 0; b < truth.size(); ++b) {
        c.hit += truth[b].zoom != 0 && found[b].zoom != 0;
        c.wrong += truth[b].zoom == 0 && found[b].zoom != 0;
        c.missed += truth[b].zoom != 0 && found[b].zoom == 0;
    }
    return c;
}

TEST(DriveDetector, FindsTheDrivesOfEveryKindOfScene) {
    for (SceneType type : {SceneType::speech, SceneType::music, SceneType::quiet, SceneType::loud}) {
        const Scene s = make_scene({type, 9, 1001}, 12.0);
        const std::vector<DriveWords> found = vorl::detect_drives(s.noisy.data(), s.frames());
        ASSERT_EQ(found.size(), s.words.size());
        const Counts c = zoom_counts(s.words, found);
        EXPECT_GT(c.f1(), type == SceneType::loud ? 0.85 : 0.9) << name_of(type);  // loud music masks the motor
        EXPECT_LT(c.wrong, 0.02 * static_cast<double>(s.words.size())) << name_of(type);
        for (const DriveWords &w : found) EXPECT_NE(w.zoom, 2u);  // the built-in table's directions are equal
    }
}

TEST(DriveDetector, LeavesWideStereoContentWithoutDrivesIdle) {
    // Music, each instrument at its own place in the stereo image: under
    // 2 % of the time taken for a drive.
    for (SceneType type : {SceneType::music, SceneType::mixed})
        for (uint64_t seed : {1001, 1002}) {
            const Scene s = make_scene({type, 9, seed}, 12.0);
            int driven = 0;
            for (const DriveWords &w : vorl::detect_drives(s.clean.data(), s.frames())) driven += w.driven();
            EXPECT_LT(driven, 0.02 * static_cast<double>(s.words.size())) << name_of(type) << " seed " << seed;
        }
    const std::vector<int16_t> silence(2 * 48000, 0);
    for (const DriveWords &w : vorl::detect_drives(silence.data(), 48000)) ASSERT_EQ(w, DriveWords{});
}

// Music with cymbals, placed off centre: its high frequencies alone look
// like a motor, and once held drives on for 20-30 blocks past their ends.
TEST(DriveDetector, DriveEdgesStayPutUnderCymbals) {
    const Scene s = make_scene({SceneType::music, 0, 102}, 20.0);
    const Counts c = zoom_counts(s.words, vorl::detect_drives(s.noisy.data(), s.frames()));
    EXPECT_LT(c.wrong, 0.01 * static_cast<double>(s.words.size()));
    EXPECT_GT(c.f1(), 0.97);
}

TEST(DriveDetector, FindsWindAndAutofocusMoves) {
    const Scene windy = make_scene({SceneType::wind, 10, 1000}, 20.0);
    const std::vector<DriveWords> found = vorl::detect_drives(windy.noisy.data(), windy.frames());
    int wind = 0, found_wind = 0, false_wind = 0;
    for (std::size_t b = 0; b < found.size(); ++b) {
        wind += windy.words[b].wind != 0;
        found_wind += windy.words[b].wind != 0 && found[b].wind != 0;
        false_wind += windy.words[b].wind == 0 && found[b].wind != 0;
    }
    ASSERT_GT(wind, 0);
    EXPECT_GT(found_wind, 0.7 * wind);
    EXPECT_LT(false_wind, 0.15 * wind) << found_wind << " of " << wind;

    const Scene af = make_scene({SceneType::af, 10, 1000}, 20.0);
    const std::vector<DriveWords> moves = vorl::detect_drives(af.noisy.data(), af.frames());
    int af_blocks = 0, af_found = 0;
    for (std::size_t b = 0; b < moves.size(); ++b) {
        af_blocks += af.words[b].af != 0;
        af_found += af.words[b].af != 0 && moves[b].af != 0;
        EXPECT_FALSE(moves[b].af != 0 && af.words[b].zoom != 0) << "block " << b;
    }
    ASSERT_GT(af_blocks, 0);
    EXPECT_GT(af_found, af_blocks / 2);
}

TEST(DriveDetector, StreamingGivesTheOfflineWordsAfterItsLatency) {
    const Scene s = make_scene({SceneType::music, 11, 1002}, 8.0);
    std::vector<DriveWords> offline = vorl::detect_drives(s.noisy.data(), s.frames());
    vorl::DriveDetector detector;
    std::vector<DriveWords> streamed;
    DriveWords w;
    for (std::size_t b = 0; b < s.words.size(); ++b) {
        ASSERT_EQ(detector.push(&s.noisy[2 * kBlock * b], w), b >= vorl::DriveDetector::kLatencyBlocks) << b;
        if (b >= vorl::DriveDetector::kLatencyBlocks) streamed.push_back(w);
    }
    while (detector.flush(w)) streamed.push_back(w);
    ASSERT_EQ(streamed.size(), offline.size());
    vorl::mark_autofocus_runs(streamed);
    EXPECT_EQ(streamed, offline);
}

}  // namespace
}  // namespace scenekit

namespace vorl {
namespace {

// A drive reaches the library three blocks late with the words it started
// with, leaves on time, and a drive too short to outlast the delay never
// arrives; wind is never delayed.
TEST(DriveOnsetDelay, DelaysTheStartOnlyAndKeepsWindOnTime) {
    std::vector<DriveWords> recorded(30);
    for (int b = 4; b < 14; ++b) recorded[b].zoom = b < 9 ? 2 : 1;  // direction turns at block 9
    for (int b = 20; b < 23; ++b) recorded[b].af = 7;               // three-block autofocus tap
    for (int b = 2; b < 6; ++b) recorded[b].wind = 1;
    DriveOnsetDelay onset;
    for (int b = 0; b < 30; ++b) {
        const DriveWords h = onset.next(recorded[b]);
        EXPECT_EQ(h.zoom, b >= 7 && b < 14 ? (b < 12 ? 2u : 1u) : 0u) << b;
        EXPECT_EQ(h.af, 0u) << b;
        EXPECT_EQ(h.wind, recorded[b].wind) << b;
    }
    onset.reset();
    EXPECT_EQ(onset.next(recorded[8]).zoom, 0u);  // history forgotten
}

}  // namespace
}  // namespace vorl
