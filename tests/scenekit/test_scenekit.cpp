// The scene generator is deterministic, its parts add up exactly, its drive
// words cover the motors' sound, and the evaluation measures what it says.
#include <gtest/gtest.h>

#include "camera.h"
#include "camera_fit.h"
#include "evaluate.h"
#include "scene.h"
#include "table_store.h"

namespace scenekit {
namespace {

uint64_t digest(const Scene &s) {  // FNV-1a over the noisy samples and the words
    uint64_t h = 0xcbf29ce484222325ull;
    auto add = [&h](uint32_t v) {
        for (int i = 0; i < 4; ++i) h = (h ^ ((v >> (8 * i)) & 0xff)) * 0x100000001b3ull;
    };
    for (int16_t v : s.noisy) add(static_cast<uint16_t>(v));
    for (const DriveWords &w : s.words) add(w.zoom | w.af << 8 | w.wind << 16);
    return h;
}

// Pinned: a scene is the same in every process, whatever was generated
// before it (the speech synthesiser starts fresh for every phrase).
TEST(SceneKit, SameIdSameSceneOnEveryRun) {
    const struct {
        SceneType type;
        int camera;
        uint64_t digest;
    } pinned[] = {{SceneType::music, 3, 9431986484938354906ull},
                  {SceneType::quiet, 3, 8581620547092464743ull},
                  {SceneType::wind, 3, 2823232398925249883ull},
                  {SceneType::music, kFirstEnclosedCamera, 10435446514727311484ull},  // the second camera design
                  {SceneType::music, kFirstSideCamera, 14620142456198893538ull}};    // the third
    for (const auto &p : pinned) {
        const uint64_t d = digest(make_scene({p.type, p.camera, 7}, 4.0));
        EXPECT_EQ(d, digest(make_scene({p.type, p.camera, 7}, 4.0))) << name_of(p.type) << " camera " << p.camera;
#if !defined(__clang__)  // pinned with GCC: another compiler may round the generator's math otherwise
        EXPECT_EQ(d, p.digest) << name_of(p.type) << " camera " << p.camera;
#endif
    }
    EXPECT_EQ(digest(make_scene({SceneType::speech, 3, 7}, 4.0)), digest(make_scene({SceneType::speech, 3, 7}, 4.0)));
    EXPECT_NE(digest(make_scene({SceneType::music, 3, 7}, 4.0)), digest(make_scene({SceneType::music, 3, 8}, 4.0)));
    EXPECT_NE(digest(make_scene({SceneType::music, 3, 7}, 4.0)), digest(make_scene({SceneType::music, 4, 7}, 4.0)));
}

// noisy = clean + noises, every noise sample lies in a block whose word
// names it, and every driven block holds some of its motor's sound.
TEST(SceneKit, PartsAddUpAndWordsCoverTheNoise) {
    int directions_seen[3] = {};
    for (SceneType type : kSceneTypes) {
        const Scene s = make_scene({type, 5, 11}, 12.0);
        ASSERT_EQ(s.words.size(), (s.frames() + kBlock - 1) / kBlock);
        std::vector<bool> zoom_heard(s.words.size()), af_heard(s.words.size());
        for (std::size_t i = 0; i < s.noisy.size(); ++i) {
            ASSERT_EQ(s.noisy[i], s.clean[i] + s.zoom[i] + s.af[i] + s.wind[i]) << name_of(type) << " sample " << i;
            const DriveWords &w = s.words[i / 2 / kBlock];
            ASSERT_TRUE(s.zoom[i] == 0 || w.zoom != 0) << name_of(type) << " sample " << i;
            ASSERT_TRUE(s.af[i] == 0 || w.af != 0) << name_of(type) << " sample " << i;
            ASSERT_TRUE(s.wind[i] == 0 || w.wind != 0) << name_of(type) << " sample " << i;
            if (s.zoom[i] != 0) zoom_heard[i / 2 / kBlock] = true;
            if (s.af[i] != 0) af_heard[i / 2 / kBlock] = true;
        }
        int driven = 0;
        for (std::size_t b = 0; b < s.words.size(); ++b) {
            EXPECT_EQ(s.words[b].zoom != 0, zoom_heard[b]) << name_of(type) << " block " << b;
            EXPECT_EQ(s.words[b].af != 0, af_heard[b]) << name_of(type) << " block " << b;
            driven += s.words[b].zoom != 0;
            directions_seen[s.words[b].zoom]++;
        }
        EXPECT_GT(driven, 0) << name_of(type);
    }
    EXPECT_GT(directions_seen[1], 0);
    EXPECT_GT(directions_seen[2], 0);
    const Scene cal = make_calibration(2, 1);
    int af_blocks = 0;
    for (const DriveWords &w : cal.words) af_blocks += w.af != 0;
    EXPECT_GT(af_blocks, 6);
}

// The built-in table's quality on a held-out scene (camera and seed it was
// not tuned on), pinned with a small margin: a change to the table, the
// tool's session or the library that loses quality fails here. The oracle,
// which knows the noise, does better; a misaligned output would show as
// change outside drives; without priming the gain fades in at the start.
TEST(SceneKit, BuiltInTableQualityOnAHeldOutScene) {
    const st_vorl_tbl table = vorl::default_table();
    const Scene s = make_scene({SceneType::music, 9, 1000}, 10.0);
    const SceneResult r = evaluate(s, table, s.words);
    EXPECT_GE(r.library.drives.attenuation_db(), 4.5);  // 4.83 dB when pinned
    EXPECT_GT(r.oracle.drives.attenuation_db(), r.library.drives.attenuation_db());
    EXPECT_LE(r.library.outside.difference_db(), -70.0);  // -76.44 dB
    EXPECT_NEAR(r.library.outside.level_change_db(), 0.0, 0.05);
    const SceneResult unprimed = evaluate(s, table, s.words, false);
    EXPECT_GT(unprimed.library.outside.difference_db(), r.library.outside.difference_db() + 1.0);
    // Without drive words the library leaves the recording as it is.
    const SceneResult idle = evaluate(s, table, {});
    EXPECT_NEAR(idle.library.drives.attenuation_db(), 0.0, 0.1);
    EXPECT_LT(idle.library.outside.difference_db(), -80.0);
}

// The table fitted from a camera's calibration take (seed 1) on its
// held-out scene of a type (seed 1000, 10 s).
struct FittedRun {
    st_vorl_tbl table;
    Scene scene;
    SceneResult result;
};
FittedRun fitted_run(SceneType type, int camera) {
    FittedRun f{fit_camera_table(camera, 1, vorl::default_table()), make_scene({type, camera, 1000}, 10.0), {}};
    f.result = evaluate(f.scene, f.table, f.scene.words);
    return f;
}

// A table fitted from a held-out camera's calibration take, on a scene of
// that camera, pinned with a small margin: a change to the fitter that loses
// quality fails here. It comes within a few tenths of a dB of the reach of
// the engine's difference model, and changes nothing outside drives.
TEST(SceneKit, FittedTableQualityOnAHeldOutCamera) {
    const auto [table, s, r] = fitted_run(SceneType::music, 10);
    const double atten = r.library.drives.attenuation_db();
    EXPECT_GE(atten, 11.9);  // 12.26 dB when pinned (oracle 15.47)
    EXPECT_LT(model_ceiling(s, table.st_vorl.nr_floor_coef).drives.attenuation_db() - atten, 0.5);  // 0.14 dB
    EXPECT_LE(r.library.outside.difference_db(), -75.0);  // -85.28 dB
    EXPECT_NEAR(r.library.outside.level_change_db(), 0.0, 0.05);
    // A 30 s take tells the fitter what the scene's own noise would.
    const SceneResult own = evaluate(s, fit_noise_table(s, vorl::default_table()), s.words);
    EXPECT_LT(own.library.drives.attenuation_db() - atten, 0.5);  // 12.36 dB: 0.10 more
}

// The same on a camera of the second design, on a scene recorded 18 dB under
// the calibration take: a fitted table holds at another recording level
// (the coefficients scale with the recording, a background template would
// not).
TEST(SceneKit, FittedTableHoldsOnAQuieterRecording) {
    const SceneResult r = fitted_run(SceneType::quiet, kFirstEnclosedCamera + 2).result;
    const double atten = r.library.drives.attenuation_db();
    EXPECT_GE(atten, 8.5);  // 9.53 dB when pinned (oracle 16.92; 5.73 when the fit scored at one level only)
    EXPECT_LE(r.library.outside.difference_db(), -60.0);  // -65.73 dB
}

// Where the motor is one source heard through a separate path by each
// capsule, a frame's difference power tells that frame's noise well and the
// engine's model comes near the oracle; so does a table fitted from a 30 s
// take, as near as one fitted from the scene's own noise, where the
// built-in table, made for other cameras, stays several dB away.
TEST(SceneKit, FittedTableNearsTheOracleWhereTheModelCan) {
    const auto [table, s, r] = fitted_run(SceneType::speech, kFirstSideCamera + 4);
    const double atten = r.library.drives.attenuation_db();
    EXPECT_GE(atten, 15.5);                                               // 15.89 dB when pinned
    EXPECT_LT(r.oracle.drives.attenuation_db() - atten, 1.0);             // oracle 16.18
    EXPECT_LE(r.library.outside.difference_db(), -75.0);                  // -87.12 dB
    const SceneResult own = evaluate(s, fit_noise_table(s, vorl::default_table()), s.words);
    EXPECT_LT(own.library.drives.attenuation_db() - atten, 0.3);          // 15.89 dB too
    const SceneResult built_in = evaluate(s, vorl::default_table(), s.words);
    EXPECT_GT(atten - built_in.library.drives.attenuation_db(), 2.0);     // 12.73 dB
}

// The difference model's reach lies under the oracle and over the built-in
// table; ignoring the content's own channel difference raises it. It comes
// close to the oracle when the scene is the same in both channels and the
// motor reaches one capsule as a scaled copy of the other: the difference
// power then tracks each frame's noise exactly, and there is no content
// difference to ignore.
TEST(SceneKit, DifferenceModelReachFollowsHowTheNoiseReachesTheCapsules) {
    const Scene s = make_scene({SceneType::music, 10, 1000}, 10.0);
    const SceneResult r = evaluate(s, vorl::default_table(), s.words);
    const double reach = model_ceiling(s, 0.03f).drives.attenuation_db();
    const double alike = model_ceiling(s, 0.03f, vorl::ContentDifference::ignored).drives.attenuation_db();
    EXPECT_LT(reach, r.oracle.drives.attenuation_db());
    EXPECT_GT(reach, r.library.drives.attenuation_db());
    EXPECT_GT(alike, reach + 0.1);  // 12.76 against 12.40 dB (oracle 15.47)
    EXPECT_LT(alike, r.oracle.drives.attenuation_db());

    Scene coherent = s;
    for (std::size_t n = 0; n < coherent.frames(); ++n) {
        const int noise = s.noisy[2 * n] - s.clean[2 * n];
        coherent.clean[2 * n + 1] = s.clean[2 * n];
        coherent.noisy[2 * n + 1] = static_cast<int16_t>(s.clean[2 * n] + noise / 2);
    }
    const double coherent_reach = model_ceiling(coherent, 0.03f).drives.attenuation_db();
    EXPECT_NEAR(model_ceiling(coherent, 0.03f, vorl::ContentDifference::ignored).drives.attenuation_db(),
                coherent_reach, 0.01);
    const double coherent_oracle = evaluate(coherent, vorl::default_table(), s.words).oracle.drives.attenuation_db();
    EXPECT_LT(coherent_oracle - coherent_reach, 1.2);                        // 0.64 dB when written
    EXPECT_GT(r.oracle.drives.attenuation_db() - reach, 2.5);               // 3.07 dB
}

}  // namespace
}  // namespace scenekit
