#include "fit_table.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <limits>
#include <map>
#include <set>
#include <string>

#include "appendf.h"
#include "division_table.h"
#include "drive_detector.h"
#include "engine_run.h"
#include "heldout_score.h"
#include "recording_faults.h"
#include "table_checksum.h"
#include "table_curves.h"
#include "table_rules.h"

namespace vorl::fit {

namespace {

constexpr int kNodes = tablekit::kBands, kGroups = tablekit::kGroups;
constexpr double kMinDriveSeconds = 2.0;
constexpr float kNodeMaxFactor = 4.0f;   // learning may go to four times the measured node
constexpr float kNodeMaxAtLeast = 2.0f;  // four times the ratio of independent paths
constexpr float kFloorShare = 0.5f;      // learning may go down to half the smallest node
// A band is measured only where the motor is at least as loud as the room.
// Below that the ratio rests on two small differences of noisy means (the
// motor's power less the room's, and likewise its difference power) and
// can come out at hundreds where the motor barely sounds; such a
// coefficient removes nothing of the motor but much of any scene with a
// little channel difference there (a motor 10 dB under the room took the
// bass out of music scenes on cameras whose motor is weak in the bass).
constexpr double kMeasurableShare = 1.0;
constexpr float kQuieterScene = 0.01f;   // division table reaches 20 dB under the take's quietest drive bins
// Over-estimation of the "AF" template during autofocus moves. The template
// is the moves' mean power, but a move's frames scatter far around it (gear
// clicks, the short ramps), so at the zoom's factor of 1-2 most of a move's
// noise-only bins stay above the floor. On the tuning cameras' autofocus
// scenes any factor from 3 to 12 came within 0.05 dB of the best, 0.4 dB
// closer to the oracle than the zoom's factor; 6 is the middle of that range.
constexpr float kAfOverEst = 6.0f;
// Below this share of a quiet take's zoom blocks found, the drive detector
// will miss much more under a scene. (Motors reaching the capsules through
// different paths: all found; one heard alike by both: none.)
constexpr double kDetectedShare = 0.9;
// Detected motor this far (43 ms) from any logged drive is not an edge the
// log and the sound place differently; this much of it (0.26 s) is a log
// that does not match the take.
constexpr std::size_t kLogSlackBlocks = 8;
constexpr int kUnloggedBlocks = 48;
// A ratio of channel to difference power above 8 means paths about 94 %
// coherent: a motor heard almost alike by both capsules.
constexpr float kCoherentRatio = 8.0f;
// The wind allowance: over-estimation times 4 over the two lowest bins
// (up to 140 Hz) while the wind word is set. There wind, independent between
// the capsules, lies far above the scene, and its difference power scatters
// like any noise's, so at the zoom's factor most of it stayed. On the
// tuning cameras' wind scenes factors 3-8 came within 0.08 dB of each
// other, 0.45 dB closer to the oracle than none; reaching up to 280 Hz
// (into voices) did 0.2 dB worse.
constexpr float kWindOverEst = 4.0f;
constexpr uint8_t kWindBins = 2;
// Under this the drives sit within a few steps of 16-bit rounding. A take
// scaled down on one of the tuning cameras fitted alike down to -70 dBFS,
// lost 0.2 dB at -80 and 0.7-1.3 dB at -90.
constexpr double kFaintDriveDbfs = -75.0;
// Fitted tables score 3-12 dB on the kit's takes; under this one does
// next to nothing.
constexpr double kLeastUsefulDb = 1.0;
constexpr int kLowBandBins[2] = {1, 5};    // 94-470 Hz

bool is_zoom(FrameKind k) { return k == FrameKind::zoom_in || k == FrameKind::zoom_out; }

// The bias the engine multiplies each zoom block's difference power by (its
// start value); a table whose bias is not positive is fitted as if it were 1.
float zoom_bias(const st_vorl &p) { return p.est_noise_bias_z_nor > 0.0f ? p.est_noise_bias_z_nor : 1.0f; }

// Sum over the bins around node b of w(i) * value(i), w the weight of node
// b in the linear interpolation between its neighbours.
template <class F> double hat_sum(const uint8_t *node_bin, int b, F value) {
    const int at = node_bin[b];
    double sum = value(at);
    if (b > 0)
        for (int i = node_bin[b - 1] + 1; i < at; ++i)
            sum += value(i) * (i - node_bin[b - 1]) / double(at - node_bin[b - 1]);
    if (b + 1 < kNodes)
        for (int i = at + 1; i < node_bin[b + 1]; ++i)
            sum += value(i) * (node_bin[b + 1] - i) / double(node_bin[b + 1] - at);
    return sum;
}

// The same over the bins within four of template group node g.
template <class F> double group_hat(int g, F value, double &weights) {
    const int at = tablekit::group_node_bin(g);
    double sum = 0.0;
    weights = 0.0;
    for (int i = at - 3; i <= at + 3; ++i) {
        if (i < 0 || i >= kBins) continue;
        const double w = 1.0 - std::abs(i - at) / 4.0;
        sum += w * value(i);
        weights += w;
    }
    return sum;
}

// The coefficient in force at each bin, as the core takes it.
std::array<float, kBins> engine_curve(const st_vorl &p, int ch) {
    tablekit::BinCurve z = tablekit::zoom_curve(p, ch);
    for (int i = p.zspec_comp_max_freq + 1; i < kBins; ++i) z[i] = p.zspec_comp_replace_value;
    return z;
}

void store_template(st_vorl &p, int which, int ch, const std::array<double, kGroups> &node) {
    float values[kGroups];
    for (int g = 0; g < kGroups; ++g) values[g] = static_cast<float>(node[g]);
    tablekit::set_group_nodes(p.back_ground_noise[which][ch], values);
}

class Fitter {
public:
    Fitter(const Take &take, const st_vorl_tbl &base, FitReport &report)
        : take_(take), base_(base), report_(report),
          analysis_(analyse_take(take, std::max<int>(1, base.st_vorl.i_block_counter))) {
        // Folds: every other zoom drive; a lone drive is split in halves.
        std::vector<const DriveRun *> zoom;
        for (const DriveRun &r : analysis_.runs)
            if (is_zoom(r.kind)) zoom.push_back(&r);
        zoom_runs_ = static_cast<int>(zoom.size());
        block_fold_.assign(take.words.size(), -1);
        auto mark = [&](std::size_t first, std::size_t end, int8_t fold) {
            for (std::size_t b = first; b < end && b < block_fold_.size(); ++b) block_fold_[b] = fold;
        };
        if (zoom.size() == 1) {
            const std::size_t mid = (zoom[0]->first_block + zoom[0]->end_block) / 2;
            mark(zoom[0]->first_block, mid, 0);
            mark(mid, zoom[0]->end_block, 1);
        } else {
            for (std::size_t k = 0; k < zoom.size(); ++k)
                mark(zoom[k]->first_block, zoom[k]->end_block, static_cast<int8_t>(k % 2));
        }
        quiet_ = robust_means(analysis_, [&](std::size_t f) { return analysis_.kind[f] == FrameKind::quiet; });
    }

    const TakeAnalysis &analysis() const { return analysis_; }
    int zoom_runs() const { return zoom_runs_; }
    // The fold of block b: 0 fitted, 1 held out, -1 not in a zoom drive.
    int fold_of_block(std::size_t b) const { return b < block_fold_.size() ? block_fold_[b] : -1; }
    const BinStats &quiet() const { return quiet_; }

    // Drive frames of `kind` (any zoom if `kind` is unused) in drives of the
    // fold (0 or 1; -1 all).
    bool in_fold(std::size_t f, FrameKind kind, int fold) const {
        const FrameKind k = analysis_.kind[f];
        if (kind == FrameKind::unused ? !is_zoom(k) : k != kind) return false;
        if (fold < 0 || !is_zoom(k)) return true;
        return fold_of_block(f) == fold;
    }

    // The base table with every estimated field fitted from the drives of `fold`.
    st_vorl_tbl fit_curves(int fold, bool record, float cap) {
        st_vorl_tbl t = base_;
        st_vorl &p = t.st_vorl;
        const float bias = zoom_bias(p);
        const BinStats drive =
            robust_means(analysis_, [&](std::size_t f) { return in_fold(f, FrameKind::unused, fold); });
        auto motor = [&](const BinStats &s, int ch, int i) {
            return std::max(0.0, (ch == 0 ? s.left[i] : s.right[i]) - (ch == 0 ? quiet_.left[i] : quiet_.right[i]));
        };
        auto motor_diff = [&](const BinStats &s, int i) { return std::max(0.0, s.diff[i] - quiet_.diff[i]); };

        // Curve nodes.
        float z[2][kNodes], uncapped[2][kNodes];
        bool measured[kNodes];
        const st_vorl &b0 = base_.st_vorl;
        std::array<float, kBins> base_curve[2] = {engine_curve(b0, 0), engine_curve(b0, 1)};
        float smallest = std::numeric_limits<float>::max();
        for (int b = 0; b < kNodes; ++b) {
            const uint8_t *nb = p.zspec_comp_base_bin;
            const double d = hat_sum(nb, b, [&](int i) { return motor_diff(drive, i); });
            measured[b] = d > 0.0;
            for (int ch = 0; ch < 2; ++ch) {
                const double m = hat_sum(nb, b, [&](int i) { return motor(drive, ch, i); });
                const double room = hat_sum(nb, b, [&](int i) { return ch == 0 ? quiet_.left[i] : quiet_.right[i]; });
                measured[b] = measured[b] && m > 0.0 && m >= kMeasurableShare * room;
            }
            for (int ch = 0; ch < 2; ++ch) {
                const double m = hat_sum(nb, b, [&](int i) { return motor(drive, ch, i); });
                uncapped[ch][b] = measured[b] ? static_cast<float>(m / (bias * d)) : base_curve[ch][nb[b]];
                z[ch][b] = std::min(uncapped[ch][b], cap);
                if (measured[b]) smallest = std::min(smallest, z[ch][b]);
            }
        }
        if (smallest == std::numeric_limits<float>::max()) smallest = p.zspec_comp_min_floor_value / kFloorShare;

        // Limits from what was measured; nodes inside them.
        p.zspec_comp_min_floor_value = std::max(1e-3f, kFloorShare * smallest);
        float top = 0.0f;
        for (int ch = 0; ch < 2; ++ch)
            for (int b = 0; b < kNodes; ++b) {
                z[ch][b] = std::max(z[ch][b], p.zspec_comp_min_floor_value);
                uncapped[ch][b] = std::max(uncapped[ch][b], p.zspec_comp_min_floor_value);
                p.zspec_comp_coef_f_LR_d_max[ch][b] = std::max(kNodeMaxFactor * z[ch][b], kNodeMaxAtLeast);
                top = std::max(top, p.zspec_comp_coef_f_LR_d_max[ch][b]);
            }
        p.zspec_comp_max_floor_value = top;  // read by no stage; the dump shows the largest limit
        p.tolerance_range_zspec_max = 1.05f;  // room for the check's re-summing only
        p.tolerance_range_zspec_min = 0.95f;
        tablekit::set_linear_interpolation(p);
        std::array<float, kBins> full[2], curve[2];  // the coefficient in force without and with the cap
        for (int ch = 0; ch < 2; ++ch) {
            tablekit::set_zoom_nodes(p, ch, uncapped[ch]);
            full[ch] = engine_curve(p, ch);
            tablekit::set_zoom_nodes(p, ch, z[ch]);
            curve[ch] = engine_curve(p, ch);
        }

        // Background templates, per direction: the motor power the cap
        // takes from the curve. Not what the curve misses besides (a few per
        // cent between its nodes, or where the directions differ): a
        // template is an absolute power, right only at the take's recording
        // level, while the curve scales with the recording.
        const FrameKind dirs[2] = {FrameKind::zoom_in, FrameKind::zoom_out};
        BinStats per_dir[2];
        for (int d = 0; d < 2; ++d)
            per_dir[d] = robust_means(analysis_, [&](std::size_t f) { return in_fold(f, dirs[d], fold); });
        for (int d = 0; d < 2; ++d) {
            const BinStats &s = per_dir[d].frames > 0 ? per_dir[d] : per_dir[1 - d];
            for (int ch = 0; ch < 2; ++ch) {
                std::array<double, kGroups> node{};
                for (int g = 0; g < kGroups; ++g) {
                    double w;
                    const double r = group_hat(g, [&](int i) {
                        return static_cast<double>(full[ch][i] - curve[ch][i]) * bias * motor_diff(s, i);
                    }, w);
                    node[g] = w > 0.0 ? std::max(0.0, r / w) : 0.0;
                }
                store_template(p, 1 + d, ch, node);
                if (record) report_.templates[1 + d][ch] = node;
            }
        }
        const BinStats af = robust_means(analysis_, [&](std::size_t f) { return analysis_.kind[f] == FrameKind::af; });
        if (af.frames > 0)
            for (int ch = 0; ch < 2; ++ch) {
                std::array<double, kGroups> node{};
                for (int g = 0; g < kGroups; ++g) {
                    double w;
                    const double m = group_hat(g, [&](int i) { return motor(af, ch, i); }, w);
                    node[g] = w > 0.0 ? m / w : 0.0;
                }
                store_template(p, 0, ch, node);
                if (record) report_.templates[0][ch] = node;
            }

        fit_division(p, fold);
        if (record) {
            report_.nodes.clear();
            for (int b = 0; b < kNodes; ++b) {
                NodeFit n{b, {z[0][b], z[1][b]}, measured[b], {}, 0.0, {}};
                const uint8_t *nb = p.zspec_comp_base_bin;
                double w = hat_sum(nb, b, [](int) { return 1.0; });
                for (int ch = 0; ch < 2; ++ch) {
                    n.motor[ch] = hat_sum(nb, b, [&](int i) { return motor(drive, ch, i); }) / w;
                    n.room[ch] = hat_sum(nb, b, [&](int i) { return ch == 0 ? quiet_.left[i] : quiet_.right[i]; }) / w;
                }
                n.diff = hat_sum(nb, b, [&](int i) { return motor_diff(drive, i); }) / w;
                report_.nodes.push_back(n);
            }
            report_.zoom_frames[0] = per_dir[0].frames;
            report_.zoom_frames[1] = per_dir[1].frames;
            report_.af_frames = af.frames;
            if (af.frames == 0)
                for (int ch = 0; ch < 2; ++ch) {
                    const auto v = tablekit::group_curve(p.back_ground_noise[0][ch]);
                    for (int g = 0; g < kGroups; ++g) report_.templates[0][ch][g] = v[tablekit::group_node_bin(g)];
                }
        }
        tablekit::seal(t);
        return t;
    }

private:
    // Reciprocals accurate from 20 dB under the quietest drive bins (2nd
    // percentile of the take's drive-frame powers) up to full scale: a
    // scene may be recorded far louder than the calibration take (a coarse
    // table above the take's own powers cost loud scenes 1-5 dB of
    // attenuation) or far quieter (powers under the table's last threshold
    // are divided as if they were at it, so a scene recorded 18 dB under
    // the take kept 0.3 dB more of its noise). Lower still, the steps grow
    // coarse enough to cost the other scenes a little.
    void fit_division(st_vorl &p, int fold) {
        std::vector<float> powers;
        for (std::size_t f = 0; f < analysis_.powers.size(); ++f) {
            if (!in_fold(f, FrameKind::unused, fold)) continue;
            for (int i = p.nr_proc_min_freq_bin; i <= std::min<int>(p.nr_proc_max_freq_bin, kBins - 1); ++i) {
                powers.push_back(analysis_.powers[f].left[i]);
                powers.push_back(analysis_.powers[f].right[i]);
            }
        }
        if (powers.empty()) return;
        auto low = powers.begin() + static_cast<std::ptrdiff_t>(0.02 * static_cast<double>(powers.size() - 1));
        std::nth_element(powers.begin(), low, powers.end());
        report_.division_low = std::max(kQuieterScene * *low, 1e-12f);
        report_.division_ratio = tablekit::fill_division_table_down_to(p, report_.division_low);
    }

    const Take &take_;
    const st_vorl_tbl &base_;
    FitReport &report_;
    TakeAnalysis analysis_;
    std::vector<int8_t> block_fold_;
    int zoom_runs_ = 0;
    BinStats quiet_;
};

// The fold's table for a cap, made once per cap.
class FoldTables {
public:
    FoldTables(Fitter &fitter) : fitter_(fitter) {}
    const st_vorl_tbl &operator()(float cap) {
        auto it = made_.find(cap);
        if (it == made_.end()) it = made_.emplace(cap, fitter_.fit_curves(0, false, cap)).first;
        return it->second;
    }

private:
    Fitter &fitter_;
    std::map<float, st_vorl_tbl> made_;
};

void apply(st_vorl &p, const Suppression &s) {
    p.over_est = s.over_est;
    p.nr_floor_coef = s.floor;
    p.nr_gain_sm_coef = s.smoothing;
}

// The held-out search's grids; each value in turn takes the best of its
// grid, the others held, over kSearchRounds rounds.
constexpr float kCapGrid[] = {1.0f, 2.0f, 4.0f, 8.0f, kNoCap};
constexpr float kOverEstGrid[] = {0.5f, 0.75f, 1.0f, 1.25f, 1.5f, 2.0f, 2.5f, 3.0f};
constexpr float kFloorGrid[] = {0.03f, 0.06f, 0.1f, 0.18f, 0.3f};  // no lower: musical noise
constexpr float kSmoothingGrid[] = {0.0f, 0.2f, 0.35f, 0.5f, 0.65f, 0.8f};
constexpr int kSearchRounds = 2;
// The most scores a search makes: its start, then every grid value in
// every round (fewer when a value was already tried).
constexpr int kSearchScores =
    1 + kSearchRounds * static_cast<int>(std::size(kCapGrid) + std::size(kOverEstGrid) + std::size(kFloorGrid) +
                                         std::size(kSmoothingGrid));

// `skipped` is told of each grid value not scored again, so a progress
// count of kSearchScores still ends at its total.
Suppression choose_suppression(FoldTables &fold, const Suppression &start, const HeldOutScore &score,
                               const std::vector<BlockWords> &words, std::vector<std::string> &log,
                               const std::function<void()> &skipped) {
    auto score_of = [&](const Suppression &s) {
        st_vorl_tbl t = fold(s.ratio_cap);
        apply(t.st_vorl, s);
        tablekit::seal(t);
        return score(t, words);
    };
    Suppression best = start;
    best.score_db = score_of(best);
    struct Axis {
        const char *name;
        float Suppression::*field;
        const float *grid;
        int n;
    } axes[] = {{"coefficient cap", &Suppression::ratio_cap, kCapGrid, static_cast<int>(std::size(kCapGrid))},
                {"over_est", &Suppression::over_est, kOverEstGrid, static_cast<int>(std::size(kOverEstGrid))},
                {"nr_floor_coef", &Suppression::floor, kFloorGrid, static_cast<int>(std::size(kFloorGrid))},
                {"nr_gain_sm_coef", &Suppression::smoothing, kSmoothingGrid,
                 static_cast<int>(std::size(kSmoothingGrid))}};
    std::set<std::array<float, 4>> tried = {{best.ratio_cap, best.over_est, best.floor, best.smoothing}};
    for (int round = 0; round < kSearchRounds; ++round)
        for (const Axis &a : axes) {
            for (int k = 0; k < a.n; ++k) {
                Suppression trial = best;
                trial.*a.field = a.grid[k];
                if (!tried.insert({trial.ratio_cap, trial.over_est, trial.floor, trial.smoothing}).second) {
                    skipped();
                    continue;
                }
                trial.score_db = score_of(trial);
                char line[96];
                if (a.grid[k] >= kNoCap)
                    std::snprintf(line, sizeof line, "%s none: %.2f dB", a.name, trial.score_db);
                else
                    std::snprintf(line, sizeof line, "%s %.2f: %.2f dB", a.name, a.grid[k], trial.score_db);
                log.push_back(line);
                if (trial.score_db > best.score_db + 0.01) best = trial;
            }
        }
    return best;
}

std::string seconds(std::size_t block, int rate) {
    char s[32];
    std::snprintf(s, sizeof s, "%.2f s", static_cast<double>(block * kBlock) / rate);
    return s;
}

void check_take(const Take &take, const Fitter &fitter, FitReport &r) {
    const TakeAnalysis &a = fitter.analysis();
    if (fitter.zoom_runs() == 0) {
        const bool windy_zoom = std::any_of(take.words.begin(), take.words.end(),
                                            [](const BlockWords &w) { return w.zoom != 0; });
        throw FitError(windy_zoom ? "every zoom drive block in the drive log has the wind word set, and wind blocks "
                                    "are left out of a fit: nothing to fit (record the take without wind)"
                                  : "no zoom drive blocks in the drive log: nothing to fit");
    }
    const int used = r.zoom_frames[0] + r.zoom_frames[1];
    const double usable = static_cast<double>(used) * kBlock / take.rate;
    if (usable < kMinDriveSeconds) {
        char m[200];
        std::snprintf(m, sizeof m,
                      "only %.2f s of usable zoom drive (after leaving out spin-up and wind); a calibration take "
                      "needs at least %.0f s, e.g. zoom in and out for 2-4 s each",
                      usable, kMinDriveSeconds);
        throw FitError(m);
    }
    double power[2] = {0.0, 0.0}, diff = 0.0;
    for (std::size_t f = 0; f < a.powers.size(); ++f)
        if (is_zoom(a.kind[f]))
            for (int i = 0; i < kBins; ++i) {
                power[0] += a.powers[f].left[i];
                power[1] += a.powers[f].right[i];
                diff += a.powers[f].diff[i];
            }
    const double both = power[0] + power[1];
    if (both == 0.0) throw FitError("the take is digital silence during the drives: nothing to fit");
    if (diff <= kSilentRatio * both)
        throw FitError("the two channels are identical during the drives: the difference model cannot be fitted "
                       "(a stereo take from the camera's own two capsules is needed)");
    // A dead capsule (or one channel of a mono take padded to stereo): the
    // difference is then the other channel itself.
    for (int c = 0; c < 2; ++c)
        if (power[c] <= kSilentRatio * power[1 - c])
            throw FitError(std::string("the ") + (c == 0 ? "left" : "right") +
                           " channel is silent during the drives (over 60 dB under the other): the difference "
                           "model cannot be fitted (a stereo take from the camera's own two capsules is needed)");
}

// Sound from afar (room tone, a hum, a voice) reaches two capsules a few
// centimetres apart nearly alike below 500 Hz, whatever its direction: the
// normalised cross-power of the channels there, from the bin powers as
// (|L|^2 + |R|^2 - |L-R|^2) / 2 over sqrt(|L|^2 |R|^2), is near 1 (0.96 in
// every kit camera's room), and near -1 when one channel is inverted.
// Returns true, after warning, for an inverted channel.
bool warn_about_polarity(const BinStats &quiet, FitReport &r) {
    if (quiet.frames < 40) return false;
    double cross = 0.0, left = 0.0, right = 0.0;
    for (int i = kLowBandBins[0]; i <= kLowBandBins[1]; ++i) {
        cross += 0.5 * (quiet.left[i] + quiet.right[i] - quiet.diff[i]);
        left += quiet.left[i];
        right += quiet.right[i];
    }
    const double coherence = left > 0.0 && right > 0.0 ? cross / std::sqrt(left * right) : 0.0;
    if (coherence >= kInvertedCorrelation) return false;
    char m[320];
    std::snprintf(m, sizeof m,
                  "the room sounds in opposite polarity in the two channels below 470 Hz (correlation %.2f): one "
                  "channel seems inverted, and then far sound reads as motor noise during drives; check the "
                  "capsule's wiring or the recording chain",
                  coherence);
    r.warnings.push_back(m);
    return true;
}

// Mean power of the louder channel over the zoom blocks, in dB of full scale.
double drive_level_dbfs(const Take &take) {
    double power[2] = {0.0, 0.0};
    std::size_t frames = 0;
    for (std::size_t b = 0; b < take.words.size() && b * kBlock < take.frames; ++b) {
        if (take.words[b].zoom == 0 || take.words[b].wind) continue;
        for (std::size_t n = b * kBlock; n < std::min(take.frames, (b + 1) * kBlock); ++n, ++frames)
            for (int c = 0; c < 2; ++c) power[c] += static_cast<double>(take.samples[2 * n + c]) * take.samples[2 * n + c];
    }
    const double louder = std::max(power[0], power[1]) / (32768.0 * 32768.0 * static_cast<double>(frames ? frames : 1));
    return louder > 0.0 ? 10.0 * std::log10(louder) : -200.0;
}

void warn_about_take(const Take &take, double level_db, const Fitter &fitter, const st_vorl &fitted, FitReport &r) {
    const TakeAnalysis &a = fitter.analysis();
    if (a.clipped_samples > 0)
        r.warnings.push_back(std::to_string(a.clipped_samples) +
                             " samples at full scale: clipped motor noise gives wrong powers; record lower");
    if (level_db < kFaintDriveDbfs) {
        char m[240];
        std::snprintf(m, sizeof m,
                      "the drives sound at only %.0f dBFS, a few steps of the 16-bit scale: the estimates rest on "
                      "rounding noise and the held-out choices lose their footing; record with more gain",
                      level_db);
        r.warnings.push_back(m);
    }
    for (const DriveRun &run : a.runs)
        if (is_zoom(run.kind) && run.frames_used == 0)
            r.warnings.push_back("zoom drive at " + seconds(run.first_block, take.rate) +
                                 " is too short to measure (spin-up only); left out");
    for (int d = 0; d < 2; ++d)
        if (r.zoom_frames[d] == 0)
            r.warnings.push_back(std::string("no usable zoom-") + (d == 0 ? "in" : "out") + " frames: its template is the zoom-" +
                                 (d == 0 ? "out" : "in") + " one");
    if (r.af_frames == 0)
        r.warnings.push_back("no autofocus moves in the drive log: the autofocus template is the base table's, not this "
                             "camera's; record a few autofocus moves (af word 1) to fit it");
    if (fitter.quiet().frames < 40)
        r.warnings.push_back("under 0.2 s of quiet (drive-free) take: the room is taken as silent");

    // A drive much louder than the others had something else sounding.
    std::vector<double> level(a.runs.size(), 0.0);
    std::vector<int> count(a.runs.size(), 0);
    for (std::size_t f = 0; f < a.powers.size(); ++f) {
        if (a.run[f] < 0 || !is_zoom(a.kind[f])) continue;
        double e = 0.0;
        for (int i = 0; i < kBins; ++i) e += a.powers[f].left[i] + a.powers[f].right[i];
        level[static_cast<std::size_t>(a.run[f])] += e;
        ++count[static_cast<std::size_t>(a.run[f])];
    }
    std::vector<double> means;
    for (std::size_t k = 0; k < level.size(); ++k)
        if (count[k] > 0) means.push_back(level[k] / count[k]);
    if (means.size() >= 2) {
        std::vector<double> sorted = means;
        std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2), sorted.end());
        const double median = sorted[sorted.size() / 2];
        for (std::size_t k = 0; k < level.size(); ++k)
            if (count[k] > 0 && level[k] / count[k] > 4.0 * median) {
                char m[160];
                std::snprintf(m, sizeof m,
                              "zoom drive at %s is %.1f dB louder than the median drive: a loud scene under the "
                              "drive biases the estimates; record in a quiet room",
                              seconds(a.runs[k].first_block, take.rate).c_str(),
                              10.0 * std::log10(level[k] / count[k] / median));
                r.warnings.push_back(m);
            }
    }
    int unmeasured = 0, loud_room = 0;
    for (const NodeFit &n : r.nodes) {
        // Bands wholly above zspec_comp_max_freq take the fixed replacement
        // value whatever was measured (and lie above a 44.1 kHz take's band).
        unmeasured += !n.measured && tablekit::band_first_bin(fitted, n.band) <= fitted.zspec_comp_max_freq;
        loud_room += n.measured && (n.room[0] > 0.1 * n.motor[0] || n.room[1] > 0.1 * n.motor[1]);
    }
    if (unmeasured > 0)
        r.warnings.push_back(std::to_string(unmeasured) +
                             " band(s) without measurable motor noise keep the base table's coefficient");
    if (loud_room > kNodes / 4)
        r.warnings.push_back("the quiet periods are within 10 dB of the motor in " + std::to_string(loud_room) +
                             " bands: a loud room or scene biases the estimates");
}

// The drive detector (vorl process without a drive log) tells a motor by
// its channel difference rising to the level of the channel sum. A motor
// that reaches both capsules nearly alike never lifts it there, even in
// this quiet take; that camera's recordings need their drive log.
void warn_about_detection(const Take &take, FitReport &r) {
    const std::vector<DriveWords> found = detect_drives(take.samples, take.frames);
    // Motor sound the log does not cover, in a quiet room: a log of another
    // take, ranges typed wrong, a log out of step with the audio. (Then the
    // share below would measure the log, not the detector.)
    std::vector<bool> near_logged(found.size(), false);
    for (std::size_t b = 0; b < take.words.size(); ++b)
        if (take.words[b].zoom != 0 || take.words[b].af)
            for (std::size_t k = b > kLogSlackBlocks ? b - kLogSlackBlocks : 0;
                 k <= b + kLogSlackBlocks && k < near_logged.size(); ++k)
                near_logged[k] = true;
    int unlogged = 0, stretches = 0;
    std::size_t first = 0, first_end = 0;
    for (std::size_t b = 0; b < found.size(); ++b) {
        if (!found[b].driven() || near_logged[b]) continue;
        ++unlogged;
        if (b == 0 || !found[b - 1].driven() || near_logged[b - 1]) {
            if (stretches++ == 0) first = b;
        }
        if (stretches == 1) first_end = b + 1;
    }
    if (unlogged >= kUnloggedBlocks) {
        char m[320];
        std::snprintf(m, sizeof m,
                      "the drive detector hears a motor where the drive log says the lens was idle (%.2f s in %d "
                      "stretch(es), the first at %s-%s): check that the log belongs to this take and is in step "
                      "with it",
                      static_cast<double>(unlogged) * kBlock / take.rate, stretches, seconds(first, take.rate).c_str(),
                      seconds(first_end, take.rate).c_str());
        r.warnings.push_back(m);
        return;
    }
    int driven = 0, detected = 0;
    for (std::size_t b = 0; b < take.words.size() && b < found.size(); ++b)
        if (take.words[b].zoom != 0 && !take.words[b].wind) {
            ++driven;
            detected += found[b].zoom != 0;
        }
    if (driven == 0 || detected >= kDetectedShare * driven) return;
    char m[320];
    std::snprintf(m, sizeof m,
                  "the drive detector (vorl process without --drive) finds %.0f %% of this take's zoom drive blocks "
                  "although the room is quiet: this motor's channel difference stays under the level that marks a "
                  "drive, so give this camera's recordings their drive log (--drive) or ranges",
                  100.0 * detected / driven);
    r.warnings.push_back(m);
}

// Where the motor sounds almost alike in the two channels, its difference
// is small and the fitted coefficient large, and the scene's own difference
// between the channels (a source off centre, capsules of unequal
// sensitivity) is multiplied by it too.
void warn_about_coherent_bands(const st_vorl &fitted, FitReport &r) {
    // The engine multiplies the difference power by coefficient x bias.
    const float bias = zoom_bias(fitted);
    auto ratio = [&](std::size_t k) {
        return r.nodes[k].measured ? bias * std::max(r.nodes[k].value[0], r.nodes[k].value[1]) : 0.0f;
    };
    const double hz = r.rate / 512.0;
    std::string bands;
    float largest = 0.0f;
    int runs = 0;
    for (std::size_t k = 0; k < r.nodes.size();) {
        if (ratio(k) <= kCoherentRatio) {
            ++k;
            continue;
        }
        const std::size_t first = k;
        for (; k < r.nodes.size() && ratio(k) > kCoherentRatio; ++k) largest = std::max(largest, ratio(k));
        const int low = tablekit::band_first_bin(fitted, r.nodes[first].band);
        const int high = fitted.zspec_comp_base_bin[r.nodes[k - 1].band];
        appendf(bands, "%s%.0f-%.0f Hz", runs++ ? ", " : "", low * hz, high * hz);
    }
    if (runs == 0) return;
    // The gain meets the floor f when oe z |1 - g|^2 >= 1 - f for content
    // whose right channel is g times its left; with oe z under 1 - f no
    // content alike in phase does.
    const double step = std::sqrt((1.0 - fitted.nr_floor_coef) / (fitted.over_est * largest));
    if (!(step < 1.0)) return;
    const double level_db = -20.0 * std::log10(1.0 - step);
    std::string m = "the motor sounds almost alike in the two channels at " + bands;
    appendf(m,
            " (coefficients up to %.1f), so during drives the scene's own difference between the channels there "
            "reads as motor noise: scene sound whose channels differ by %.1f dB is cut to the floor where the "
            "coefficient is largest (check a scene; lowering the curve there with to-json --curves and from-json "
            "trades motor removal for it)",
            largest / bias, level_db);
    r.warnings.push_back(m);
}

// A constant offset (a capsule's bias, an interface's DC) sits in bin 0,
// leaks into bins 1-2 through the window, and swamps the held-out score,
// which weighs the take's whole power: a take offset by 15 % of full scale
// chose over_est 0.5 and its table lost 4-7 dB on scenes. From 0.1 % of
// full scale on, the fit works on the take less each channel's mean
// (rounded); smaller offsets are harmless and left. Returns that mean, or
// {0, 0} when it is left.
std::array<long, 2> dc_offset(const Take &take) {
    std::array<long, 2> offset{};
    if (take.frames == 0) return offset;
    for (int ch = 0; ch < 2; ++ch) {
        int64_t sum = 0;
        for (std::size_t n = 0; n < take.frames; ++n) sum += take.samples[2 * n + ch];
        offset[ch] = std::lround(static_cast<double>(sum) / static_cast<double>(take.frames));
    }
    if (std::max(std::labs(offset[0]), std::labs(offset[1])) < kNoticeableOffset) return {0, 0};
    return offset;
}

// `take` less `offset`, its samples held in `centred`.
void take_out(const std::array<long, 2> &offset, Take &take, std::vector<int16_t> &centred) {
    centred.resize(2 * take.frames);
    for (std::size_t i = 0; i < centred.size(); ++i)
        centred[i] = static_cast<int16_t>(std::clamp<long>(take.samples[i] - offset[i % 2], -32768, 32767));
    take.samples = centred.data();
}

void warn_about_offset(const std::array<long, 2> &offset, FitReport &r) {
    if (offset[0] == 0 && offset[1] == 0) return;
    char m[200];
    std::snprintf(m, sizeof m,
                  "the take has a DC offset (left %ld, right %ld of 32768); it was taken out before fitting",
                  offset[0], offset[1]);
    r.warnings.push_back(m);
}

// A base table may switch off what the fit sets; the fitted values are then
// kept but take no effect, and the table removes next to nothing.
void warn_about_base(const st_vorl &base, const Suppression &chosen, FitReport &r) {
    char m[240];
    if ((base.zn_proc_flag & 2u) == 0) {
        std::snprintf(m, sizeof m,
                      "the base table leaves the zoom-noise estimate off during zoom drives (zn_proc_flag 0x%x): the "
                      "fitted curve takes no effect; set bit 1 (zn_proc_flag 2) to use it",
                      base.zn_proc_flag);
        r.warnings.push_back(m);
    }
    if (chosen.score_db < kLeastUsefulDb) {
        std::snprintf(m, sizeof m,
                      "the fitted table removes only %.1f dB of the motor on the take's held-out drives: check the "
                      "base table's switches and processing range, and the take",
                      std::fabs(chosen.score_db) < 0.05 ? 0.0 : chosen.score_db);  // no "-0.0"
        r.warnings.push_back(m);
    }
}

}  // namespace

bool FitReport::split_drive() const {
    return std::count_if(runs.begin(), runs.end(), [](const DriveRun &r) { return is_zoom(r.kind); }) == 1;
}

FitResult fit_table(const Take &given, const st_vorl_tbl &base, const FitOptions &options) {
    // What the fit keeps of the base must already be a working table; the
    // fitted table is sealed anew, so a damaged base would pass for sound.
    if (tablekit::checksum(base) != base.check_sum) throw FitError("the base table is damaged (checksum wrong)");
    if (const auto broken = tablekit::check_table_rules(base); !broken.empty())
        throw FitError("the base table " + tablekit::summarise(broken) + "; a base table must pass every rule");
    if (given.words.empty()) throw FitError("the drive log is empty: nothing to fit");
    Take take = given;
    std::vector<int16_t> centred;
    const std::array<long, 2> offset = dc_offset(given);
    if (offset[0] != 0 || offset[1] != 0) take_out(offset, take, centred);
    FitResult result;
    FitReport &r = result.report;
    r.rate = take.rate;
    Fitter fitter(take, base, r);
    r.runs = fitter.analysis().runs;
    r.quiet_frames = fitter.quiet().frames;
    st_vorl_tbl table = fitter.fit_curves(-1, true, kNoCap);
    check_take(take, fitter, r);
    warn_about_offset(offset, r);
    const double level_db = drive_level_dbfs(take);
    warn_about_take(take, level_db, fitter, table.st_vorl, r);
    // The detector's verdict means nothing on a take too faint for its
    // statistic's floor, or with a channel inverted (the room itself then
    // reads as a motor); both get their own warning.
    if (!warn_about_polarity(fitter.quiet(), r) && level_db >= kFaintDriveDbfs) warn_about_detection(take, r);

    const st_vorl &b = base.st_vorl;
    r.base = {b.over_est, b.nr_floor_coef, b.nr_gain_sm_coef, kNoCap, std::numeric_limits<double>::quiet_NaN()};
    r.chosen = r.base;
    if (options.choose_suppression || options.compare_learning) {
        // Fit on fold 0, score on fold 1.
        std::vector<bool> scored(take.words.size(), false);
        std::vector<BlockWords> fit_words = take.words;
        for (std::size_t k = 0; k < scored.size(); ++k)
            if (fitter.fold_of_block(k) == 1) {
                scored[k] = true;
                fit_words[k].zoom = 0;
            }
        const int most = (options.choose_suppression ? kSearchScores : 1) + (options.compare_learning ? 2 : 0);
        int done = 0;
        const auto count_one = [&] {
            if (options.on_score) options.on_score(++done, most);
        };
        const HeldOutScore score(take, scored, count_one);
        FoldTables fold(fitter);
        if (options.choose_suppression)
            r.chosen = choose_suppression(fold, r.base, score, take.words, r.search, count_one);
        else
            r.chosen.score_db = score(fold(kNoCap), take.words);
        if (options.compare_learning) {
            r.compared = true;
            r.fitted_db = r.chosen.score_db;
            r.base_db = score(base, take.words);
            // The library's own learning over the same drives the fit saw.
            const EngineRun learning = run_engine(base, take.samples, take.frames, fit_words);
            st_vorl_tbl learned = base;
            r.learned_updates = learning.updates;
            if (learning.updates == 0) r.learned_nothing_because = learning.tally.why_nothing(learning.learned);
            if (tablekit::learned_curve_faults(learning.learned).empty()) learned.st_vorl = learning.learned;
            tablekit::seal(learned);
            r.learned_db = score(learned, take.words);
        }
    }
    if (r.chosen.ratio_cap < kNoCap) table = fitter.fit_curves(-1, true, r.chosen.ratio_cap);
    apply(table.st_vorl, r.chosen);
    // Outside zoom drives the library uses the blend of over_est and
    // over_est_af; with the difference estimate and the templates off there,
    // only autofocus moves (the host's switch of the "AF" template) see it.
    if (r.af_frames > 0 && (b.zn_proc_flag & 1u) == 0 && (b.bn_proc_flag & 1u) == 0) {
        table.st_vorl.over_est_af = kAfOverEst;
        table.st_vorl.over_est_af_sm_coef = 0.0f;
        r.af_over_est = kAfOverEst;
    }
    warn_about_coherent_bands(table.st_vorl, r);
    warn_about_base(b, r.chosen, r);
    table.st_vorl.wind_nr_proc_bias = kWindOverEst;
    table.st_vorl.wind_nr_proc_freq = kWindBins;
    tablekit::seal(table);
    const auto broken = tablekit::check_table_rules(table);
    if (!broken.empty())
        throw FitError("the fitted table breaks a table rule (" + broken.front().where + ": " + broken.front().problem +
                       "); the take's values are out of the table's range");
    result.table = table;
    return result;
}

}  // namespace vorl::fit
