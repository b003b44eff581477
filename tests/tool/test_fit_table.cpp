// The table fitter on generated calibration takes whose true coefficients
// and templates are known in closed form.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "default_table.h"
#include "engine_run.h"
#include "fit_table.h"
#include "table_checksum.h"
#include "table_curves.h"
#include "table_rules.h"

namespace {

using vorl::fit::BlockWords;
using vorl::fit::FitError;
using vorl::fit::Take;

constexpr double kPi = 3.14159265358979323846;
constexpr double kMotor = 400.0, kCommon = 200.0, kAf = 150.0, kRoom = 2.0;  // rms in LSB
constexpr double kRightGain = 0.5;  // the right capsule hears the motor at half, one sample late

// Quiet room; zoom-in, zoom-out, zoom-in, zoom-out of `drive_s` seconds
// with 1 s gaps, an autofocus move in each gap after the first. The motor m
// reaches the left capsule as m and the right one as 0.5 m delayed by one
// sample (or `right_gain` of it); during zoom-in a second, common-mode source reaches both alike;
// the autofocus motor sounds in the left channel only. The room may hum:
// a tone of amplitude `hum` at 3750 Hz (bin 40) in both channels.
struct GeneratedTake {
    std::vector<int16_t> samples;
    Take take;

    explicit GeneratedTake(double drive_s, bool identical = false, double hum = 0.0, double right_gain = kRightGain) {
        const std::size_t gap = 48000, drive = static_cast<std::size_t>(drive_s * 48000);
        const std::size_t frames = gap + 4 * (drive + gap);
        samples.resize(2 * frames);
        take.words.resize((frames + 255) / 256);
        std::mt19937 rng(7);
        std::normal_distribution<double> g(0.0, 1.0);
        double m_prev = 0.0;
        for (std::size_t n = 0; n < frames; ++n) {
            const std::size_t k = n < gap ? 0 : (n - gap) % (drive + gap), which = n < gap ? 4 : (n - gap) / (drive + gap);
            const bool zoom = which < 4 && k < drive;
            const bool af = which >= 1 && which < 4 && k >= drive + gap / 4 && k < drive + gap / 2;
            const uint32_t dir = zoom ? (which % 2 == 0 ? 1u : 2u) : 0u;
            const double m = zoom ? kMotor * g(rng) : 0.0;
            const double c = dir == 1 ? kCommon * g(rng) : 0.0;
            const double tone = hum * std::sin(2.0 * kPi * 3750.0 * static_cast<double>(n) / 48000.0);
            double l = kRoom * g(rng) + tone + m + c + (af ? kAf * g(rng) : 0.0);
            double r = identical ? l : kRoom * g(rng) + tone + right_gain * m_prev + c;
            m_prev = m;
            samples[2 * n] = static_cast<int16_t>(std::lround(l));
            samples[2 * n + 1] = static_cast<int16_t>(std::lround(r));
            BlockWords &w = take.words[n / 256];
            w.zoom = std::max(w.zoom, dir);
            w.af = w.af || af;
        }
        take.samples = samples.data();
        take.frames = frames;
    }
};

// White noise of rms s gives this bin power through the engine's analysis:
// s^2 x sum of the squared window (256 / 32768^2).
double bin_power(double rms) { return rms * rms * 256.0 / (32768.0 * 32768.0); }

st_vorl_tbl builtin() {
    st_vorl_tbl t;
    std::memcpy(&t, vorl::kDefaultTable, sizeof t);
    return t;
}

bool any_warning(const vorl::fit::FitReport &r, const std::string &part) {
    return std::any_of(r.warnings.begin(), r.warnings.end(),
                       [&](const std::string &w) { return w.find(part) != std::string::npos; });
}

// The difference model's true ratio at bin i for the given channel: motor
// power (the common-mode source counts half, as it sounds in half the
// drives) over the difference power |1 - 0.5 e^-jw|^2 m^2.
double true_coefficient(int bin, int channel) {
    const double w = kPi * bin / 256.0;
    const double diff = std::norm(1.0 - kRightGain * std::polar(1.0, -w));
    const double own = channel == 0 ? 1.0 : kRightGain * kRightGain;
    return (own + 0.5 * (kCommon * kCommon) / (kMotor * kMotor)) / diff;
}

TEST(FitTable, RecoversKnownCoefficientsTemplatesAndAutofocus) {
    const GeneratedTake g(3.0);
    vorl::fit::FitOptions quick;
    quick.choose_suppression = quick.compare_learning = false;
    const auto fit = vorl::fit::fit_table(g.take, builtin(), quick);
    const st_vorl &p = fit.table.st_vorl;

    // Coefficients within 6 % at every node below 20 kHz (the curve's
    // nodes interpolate a smooth truth), both channels.
    for (int ch = 0; ch < 2; ++ch) {
        const vorl::tablekit::BinCurve z = vorl::tablekit::zoom_curve(p, ch);
        for (int b = 1; b < 72; ++b) {
            const int bin = p.zspec_comp_base_bin[b];
            if (bin > 213) break;
            EXPECT_NEAR(z[bin] / true_coefficient(bin, ch), 1.0, 0.06) << "channel " << ch << " band " << b;
        }
    }
    // No zoom template without a cap on the coefficient, although zoom-in
    // has a common-mode source the shared curve explains only half of: a
    // template is an absolute power, the curve scales with the recording.
    for (int d = 1; d < 3; ++d)
        for (int ch = 0; ch < 2; ++ch) {
            const vorl::tablekit::BinCurve t = vorl::tablekit::group_curve(p.back_ground_noise[d][ch]);
            EXPECT_LT(*std::max_element(t.begin(), t.end()), 1e-6 * bin_power(kMotor)) << "template " << d;
        }
    // Autofocus template: the left channel's autofocus power, none on the right.
    const vorl::tablekit::BinCurve af_l = vorl::tablekit::group_curve(p.back_ground_noise[0][0]);
    const vorl::tablekit::BinCurve af_r = vorl::tablekit::group_curve(p.back_ground_noise[0][1]);
    for (int bin = 8; bin < 250; bin += 16) {
        EXPECT_NEAR(af_l[bin] / bin_power(kAf), 1.0, 0.2) << "bin " << bin;
        EXPECT_LT(af_r[bin], 0.05 * bin_power(kAf)) << "bin " << bin;
    }
    EXPECT_EQ(fit.report.runs.size(), 7u);  // four zoom drives, three autofocus moves
    EXPECT_GT(fit.report.af_frames, 0);
    // Nothing changes outside drives: the difference model and the
    // templates stay switched off there, as in the base table.
    EXPECT_EQ(p.zn_proc_flag, builtin().st_vorl.zn_proc_flag);
    EXPECT_EQ(p.bn_proc_flag & 1, 0);
    // Autofocus moves get their own over-estimation: the blend outside
    // zoom drives is over_est_af alone.
    EXPECT_GT(fit.report.af_over_est, 1.0f);
    EXPECT_EQ(p.over_est_af, fit.report.af_over_est);
    EXPECT_EQ(p.over_est_af_sm_coef, 0.0f);
}

// A room tone a few dB over the motor at one node: the ratio there would
// rest on the small difference of two noisy means, so the node keeps the
// base table's value and the report says so; its neighbours are measured.
TEST(FitTable, KeepsTheBaseValueWhereTheRoomIsLouderThanTheMotor) {
    const GeneratedTake g(3.0, false, 70.0);  // bin 40 about 3x the motor's power
    vorl::fit::FitOptions quick;
    quick.choose_suppression = quick.compare_learning = false;
    const auto fit = vorl::fit::fit_table(g.take, builtin(), quick);
    const st_vorl &p = fit.table.st_vorl;
    const auto &nodes = fit.report.nodes;
    const int hum = static_cast<int>(std::find(p.zspec_comp_base_bin, p.zspec_comp_base_bin + 72, 40) - p.zspec_comp_base_bin);
    ASSERT_LT(hum, 72);
    EXPECT_FALSE(nodes[static_cast<std::size_t>(hum)].measured);
    EXPECT_TRUE(nodes[static_cast<std::size_t>(hum - 1)].measured);
    EXPECT_TRUE(nodes[static_cast<std::size_t>(hum + 1)].measured);
    for (int ch = 0; ch < 2; ++ch)
        EXPECT_NEAR(vorl::tablekit::zoom_curve(p, ch)[40] / vorl::tablekit::zoom_curve(builtin().st_vorl, ch)[40], 1.0,
                    1e-3);
    const auto &w = fit.report.warnings;
    EXPECT_TRUE(std::any_of(w.begin(), w.end(), [](const std::string &s) {
        return s.find("1 band(s) without measurable motor noise") != std::string::npos;
    }));
}

TEST(FitTable, KeepsTheIdleBlendWhenTheBaseProcessesIdleBlocks) {
    // With the difference estimate on outside drives, over_est_af would
    // scale all idle sound, not only the autofocus moves.
    const GeneratedTake g(3.0);
    st_vorl_tbl base = builtin();
    base.st_vorl.zn_proc_flag |= 1u;
    vorl::tablekit::seal(base);
    vorl::fit::FitOptions quick;
    quick.choose_suppression = quick.compare_learning = false;
    const st_vorl &p = vorl::fit::fit_table(g.take, base, quick).table.st_vorl;
    EXPECT_EQ(p.over_est_af, base.st_vorl.over_est_af);
    EXPECT_EQ(p.over_est_af_sm_coef, base.st_vorl.over_est_af_sm_coef);
}

// The fitted table is sealed anew, so a damaged base or one that breaks a
// rule is refused rather than passed on as sound. A base with the
// zoom-noise estimate off during drives keeps the fit from doing anything;
// the fit says so rather than hand on a table that removes nothing.
TEST(FitTable, ChecksTheBaseTable) {
    const GeneratedTake g(2.5);
    vorl::fit::FitOptions scored;
    scored.choose_suppression = false;
    EXPECT_FALSE(any_warning(vorl::fit::fit_table(g.take, builtin(), scored).report, "removes only"));
    st_vorl_tbl off = builtin();
    off.st_vorl.zn_proc_flag = 0;
    EXPECT_THROW(vorl::fit::fit_table(g.take, off, scored), FitError);  // checksum
    vorl::tablekit::seal(off);
    const auto r = vorl::fit::fit_table(g.take, off, scored).report;
    EXPECT_TRUE(any_warning(r, "zn_proc_flag 0x0"));
    EXPECT_TRUE(any_warning(r, "removes only 0.0 dB"));

    st_vorl_tbl empty_range = builtin();
    empty_range.st_vorl.nr_proc_min_freq_bin = 200;
    empty_range.st_vorl.nr_proc_max_freq_bin = 10;
    vorl::tablekit::seal(empty_range);
    try {
        vorl::fit::fit_table(g.take, empty_range, scored);
        ADD_FAILURE() << "a base breaking a rule was taken";
    } catch (const FitError &e) {
        EXPECT_NE(std::string(e.what()).find("nr_proc_min_freq_bin"), std::string::npos) << e.what();
    }
}

TEST(FitTable, ChosenTablePassesEveryRuleAndAcceptsLaterLearning) {
    const GeneratedTake g(2.5);
    vorl::fit::FitOptions options;
    std::vector<std::pair<int, int>> scores;  // what a progress display is told
    options.on_score = [&](int done, int most) { scores.emplace_back(done, most); };
    const auto fit = vorl::fit::fit_table(g.take, builtin(), options);
    ASSERT_GE(scores.size(), 10u);
    for (std::size_t k = 0; k < scores.size(); ++k) {
        EXPECT_EQ(scores[k].first, static_cast<int>(k) + 1);
        EXPECT_EQ(scores[k].second, scores[0].second);
    }
    EXPECT_LE(scores.back().first, scores.back().second);  // the bound holds
    EXPECT_TRUE(vorl::tablekit::check_table_rules(fit.table).empty());
    EXPECT_TRUE(fit.report.compared);
    EXPECT_GE(fit.report.fitted_db, fit.report.base_db);
    EXPECT_GE(fit.report.fitted_db, fit.report.learned_db);
    // The library's own learning over the take, starting from the fitted
    // table, stays inside the limits the fit set.
    const auto run = vorl::fit::run_engine(fit.table, g.take.samples, g.take.frames, g.take.words);
    EXPECT_GT(run.updates, 0u);
    EXPECT_GE(run.tally.drive_passed, run.updates);
    EXPECT_TRUE(vorl::tablekit::learned_curve_faults(run.learned).empty());
    EXPECT_NE(vorl::fit::format_report(fit).find("Held-out comparison"), std::string::npos);
    EXPECT_EQ(fit.report.learned_updates == 0, !fit.report.learned_nothing_because.empty());
}

TEST(FitTable, ScoresALoneDriveOnItsSecondHalf) {
    GeneratedTake g(4.0);
    g.take.frames = 48000 + 4 * 48000 + 24000;  // the first zoom-in drive and half a gap after it
    g.take.words.resize((g.take.frames + 255) / 256);
    const auto fit = vorl::fit::fit_table(g.take, builtin());
    EXPECT_TRUE(fit.report.split_drive());
    EXPECT_FALSE(std::isnan(fit.report.chosen.score_db));
    // No autofocus move in this part of the take: its template is the base's.
    EXPECT_EQ(fit.report.af_frames, 0);
    EXPECT_EQ(std::count_if(fit.report.warnings.begin(), fit.report.warnings.end(),
                            [](const std::string &w) { return w.rfind("no autofocus moves", 0) == 0; }),
              1);
    for (int ch = 0; ch < 2; ++ch)
        EXPECT_EQ(std::memcmp(fit.table.st_vorl.back_ground_noise[0][ch], builtin().st_vorl.back_ground_noise[0][ch],
                              sizeof fit.table.st_vorl.back_ground_noise[0][ch]),
                  0);
    EXPECT_LT(fit.report.chosen.over_est, builtin().st_vorl.over_est);  // chosen, not the base's 8
    EXPECT_TRUE(vorl::tablekit::check_table_rules(fit.table).empty());
}

std::vector<std::string> coherence_warnings(const vorl::fit::FitReport &r) {
    std::vector<std::string> found;
    for (const std::string &w : r.warnings)
        if (w.find("almost alike in the two channels") != std::string::npos) found.push_back(w);
    return found;
}

// A motor that reaches the right capsule at 0.9 of the left: below about
// 2.9 kHz its difference carries under an eighth of a channel's power. The
// fit says so, and the level difference it names is where a scene's own
// sound, with no motor at all, is cut to the floor during a drive.
TEST(FitTable, WarnsWhereTheMotorSoundsAlikeInBothChannels) {
    vorl::fit::FitOptions quick;
    quick.choose_suppression = quick.compare_learning = false;
    EXPECT_TRUE(coherence_warnings(vorl::fit::fit_table(GeneratedTake(3.0).take, builtin(), quick).report).empty());

    const GeneratedTake g(3.0, false, 0.0, 0.9);
    const auto fit = vorl::fit::fit_table(g.take, builtin(), quick);
    const std::vector<std::string> found = coherence_warnings(fit.report);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_NE(found[0].find(" at 0-"), std::string::npos) << found[0];
    const std::size_t at = found[0].find("differ by ");
    ASSERT_NE(at, std::string::npos);
    const double named_db = std::atof(found[0].c_str() + at + 10);
    ASSERT_GT(named_db, 0.0);

    // A steady tone at 187.5 Hz (bin 2, a coefficient within 5 % of the
    // largest) through a drive that lasts the whole recording.
    auto cut_db = [&](double difference_db) {
        constexpr std::size_t kFrames = 48000;
        std::vector<int16_t> in(2 * kFrames);
        const double right = std::pow(10.0, -difference_db / 20.0);
        for (std::size_t n = 0; n < kFrames; ++n) {
            const double v = 3000.0 * std::sin(2.0 * kPi * 187.5 * static_cast<double>(n) / 48000.0);
            in[2 * n] = static_cast<int16_t>(std::lround(v));
            in[2 * n + 1] = static_cast<int16_t>(std::lround(right * v));
        }
        const std::vector<BlockWords> words(kFrames / 256, BlockWords{1u, false, false});
        const auto run = vorl::fit::run_engine(fit.table, in.data(), kFrames, words);
        double e_in = 0.0, e_out = 0.0;
        for (std::size_t i = 2 * 12000; i < 2 * 36000; ++i) {
            e_in += static_cast<double>(in[i]) * in[i];
            e_out += static_cast<double>(run.out[i]) * run.out[i];
        }
        return 10.0 * std::log10(e_in / e_out);
    };
    EXPECT_LT(cut_db(0.0), 0.1);              // alike in both channels: left alone
    EXPECT_LT(cut_db(0.5 * named_db), 6.0);   // half the named difference: a quarter of the estimate
    EXPECT_GT(cut_db(named_db), 15.0);        // the named difference: near the floor (30 dB)
}

// The drive detector finds a motor by its channel difference. A motor heard
// at 0.9 in the other channel never shows to it, even in a quiet take, and
// the fit says the camera's recordings need their drive log; one heard
// inverted there does.
TEST(FitTable, WarnsWhenTheDriveDetectorWouldMissTheMotor) {
    vorl::fit::FitOptions quick;
    quick.choose_suppression = quick.compare_learning = false;
    auto detector_warnings = [&](double right_gain) {
        int n = 0;
        for (const std::string &w : vorl::fit::fit_table(GeneratedTake(3.0, false, 0.0, right_gain).take, builtin(), quick)
                                        .report.warnings)
            n += w.find("drive detector") != std::string::npos && w.find("--drive") != std::string::npos;
        return n;
    };
    EXPECT_EQ(detector_warnings(-0.5), 0);
    EXPECT_EQ(detector_warnings(0.9), 1);
}

// A log 40 blocks (0.2 s) late leaves the start of the drives the detector
// hears sounding where it says idle; the fit says so, and not for the log
// in step.
TEST(FitTable, WarnsWhenTheLogIsOutOfStepWithTheTake) {
    vorl::fit::FitOptions quick;
    quick.choose_suppression = quick.compare_learning = false;
    GeneratedTake g(2.5);
    const std::string out_of_step = "where the drive log says the lens was idle";
    EXPECT_FALSE(any_warning(vorl::fit::fit_table(g.take, builtin(), quick).report, out_of_step));
    g.take.words.insert(g.take.words.begin(), 40, BlockWords{});
    g.take.words.resize(g.take.words.size() - 40);
    const auto r = vorl::fit::fit_table(g.take, builtin(), quick).report;
    EXPECT_TRUE(any_warning(r, out_of_step + " (")) << (r.warnings.empty() ? "" : r.warnings.front());
}

// A constant offset in the take changes nothing but a warning; a take
// recorded near the bottom of the 16-bit scale is warned about, and the
// drive detector's verdict on it is not given.
TEST(FitTable, TakesOutADcOffsetAndWarnsOfAFaintTake) {
    vorl::fit::FitOptions quick;
    quick.choose_suppression = quick.compare_learning = false;
    GeneratedTake g(2.5);
    const auto plain = vorl::fit::fit_table(g.take, builtin(), quick);
    EXPECT_FALSE(any_warning(plain.report, "DC offset"));
    EXPECT_FALSE(any_warning(plain.report, "dBFS"));
    for (std::size_t i = 0; i < g.samples.size(); ++i)
        g.samples[i] = static_cast<int16_t>(g.samples[i] + (i % 2 ? -3000 : 5000));
    const auto offset = vorl::fit::fit_table(g.take, builtin(), quick);
    EXPECT_EQ(std::memcmp(&plain.table, &offset.table, sizeof plain.table), 0);
    EXPECT_TRUE(any_warning(offset.report, "DC offset (left 5000, right -3000 of 32768)"));

    GeneratedTake faint(2.5);
    for (int16_t &s : faint.samples) s = static_cast<int16_t>(std::lround(s / 300.0));  // motor at -88 dBFS
    const auto r = vorl::fit::fit_table(faint.take, builtin(), quick).report;
    EXPECT_TRUE(any_warning(r, "dBFS"));
    EXPECT_FALSE(any_warning(r, "drive detector"));
}

// The room's low end (here a 200 Hz hum) reaches both capsules alike; with
// the right channel inverted the fit says so, and leaves out the detector's
// verdicts, which the inverted room would mislead.
TEST(FitTable, WarnsOfAnInvertedChannel) {
    vorl::fit::FitOptions quick;
    quick.choose_suppression = quick.compare_learning = false;
    GeneratedTake g(2.5);
    for (std::size_t n = 0; n < g.take.frames; ++n)
        for (int c = 0; c < 2; ++c)
            g.samples[2 * n + c] = static_cast<int16_t>(
                g.samples[2 * n + c] + std::lround(30.0 * std::sin(2.0 * kPi * 200.0 * static_cast<double>(n) / 48000.0)));
    EXPECT_FALSE(any_warning(vorl::fit::fit_table(g.take, builtin(), quick).report, "polarity"));
    for (std::size_t n = 0; n < g.take.frames; ++n) g.samples[2 * n + 1] = static_cast<int16_t>(-g.samples[2 * n + 1]);
    const auto r = vorl::fit::fit_table(g.take, builtin(), quick).report;
    EXPECT_TRUE(any_warning(r, "opposite polarity"));
    EXPECT_FALSE(any_warning(r, "drive detector"));
}

TEST(FitTable, RefusesTakesWithoutUsableDrive) {
    auto message = [](const Take &t) {
        try {
            vorl::fit::fit_table(t, builtin());
        } catch (const FitError &e) {
            return std::string(e.what());
        }
        return std::string("accepted");
    };
    GeneratedTake idle(3.0);
    for (BlockWords &w : idle.take.words) w = BlockWords{};
    EXPECT_NE(message(idle.take).find("no zoom drive"), std::string::npos);
    GeneratedTake windy(3.0);
    for (BlockWords &w : windy.take.words) w.wind = 1;
    EXPECT_NE(message(windy.take).find("has the wind word set"), std::string::npos);
    GeneratedTake silent(3.0);
    std::fill(silent.samples.begin(), silent.samples.end(), int16_t{0});
    EXPECT_NE(message(silent.take).find("digital silence"), std::string::npos);
    const GeneratedTake short_drives(0.4);  // 4 x 0.4 s, less the spin-up of each
    EXPECT_NE(message(short_drives.take).find("at least 2 s"), std::string::npos);
    const GeneratedTake mono_like(3.0, true);
    EXPECT_NE(message(mono_like.take).find("identical"), std::string::npos);
    GeneratedTake dead_right(3.0);
    for (std::size_t n = 0; n < dead_right.take.frames; ++n) dead_right.samples[2 * n + 1] = 0;
    EXPECT_NE(message(dead_right.take).find("right channel is silent"), std::string::npos);
}

}  // namespace
