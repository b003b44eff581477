// Fits a tuning table to a camera from a calibration take: the camera's
// motor recorded in a quiet room (zoom in, zoom out, a few seconds each,
// optionally autofocus moves) with its drive log.
//
// What is estimated, on the engine's own bin powers (take_analysis.h):
// - the zoom-noise curve: at each band node b and channel, the ratio the
//   engine's model N = z x (|L-R|^2 x bias_z) needs, z_b = sum w M / (bias_z
//   sum w D), M the channel's motor power and D the difference power (each a
//   mean over the drive frames less the same over the quiet frames, frames
//   with a knock or a stall left out),
//   w the linear-interpolation weights of node b over the bins between its
//   neighbours; stored as the per-bin increments the core's running sums
//   rebuild (and the learning step writes), so later learning continues
//   from it;
// - per direction and channel the background template: the motor power the
//   cap below takes from the curve, (z_uncapped - z) x bias_z x D, averaged
//   around every fourth bin; without a cap, none. A template is an absolute
//   power, right only at the take's recording level, while the curve
//   scales with the recording: the few per cent the linear curve misses
//   between its nodes, kept as a template, took 0.5-2 dB of quiet scenes
//   (recorded 18 dB lower) on the held-out cameras;
// - template 0 ("AF") from the autofocus frames, if the take has any: their
//   motor power (the difference model is off outside zoom drives);
// - the division table, accurate from 20 dB under the quietest drive bins
//   up to full scale;
// - the curve's limits (four times each node, at least 2; the floor half the
//   smallest node), so the library's plausibility check accepts learning;
// - a cap on the coefficient: where the motor is nearly the same in both
//   channels (a whine through a common path) the ratio runs to 10 and more,
//   and the difference model then takes the scene's own small channel
//   difference for motor noise; above the cap the rest of the motor power
//   goes to the direction's template instead (steady, and per direction);
// - over-estimation for autofocus moves and the wind allowance: fixed
//   values (fit_table.cpp says why);
// - the cap, over-estimation, floor and gain smoothing by the held-out score
//   (heldout_score.h): curves fitted on every other drive (the first half
//   of a lone drive), values scored on the others (its second half), each
//   value in turn the best of its grid (two rounds).
#pragma once

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "fit_error.h"
#include "take_analysis.h"
#include "vorl.h"

namespace vorl::fit {

struct FitOptions {
    bool choose_suppression = true;  // the held-out search (up to 49 held-out scores)
    bool compare_learning = true;    // also score the base table and its learning
    // Called after each held-out score (nearly all of a fit's time), and for
    // each search step that needs none, with the steps done and their total.
    std::function<void(int done, int most)> on_score;
};

struct NodeFit {
    int band;
    float value[2];   // fitted curve value at the node, left and right
    bool measured;    // false: motor not above the room here, base value kept
    double motor[2];  // motor power per channel (mean bin power)
    double diff;      // motor difference power
    double room[2];   // quiet-period power per channel
};

constexpr float kNoCap = 1e9f;

struct Suppression {
    float over_est, floor, smoothing;
    float ratio_cap;  // largest coefficient the difference model takes (kNoCap: none)
    double score_db;  // held-out score, NaN when not measured
};

struct FitReport {
    int rate = 48000;
    std::vector<NodeFit> nodes;                    // 72
    int zoom_frames[2] = {0, 0};                   // zoom-in, zoom-out frames used
    int af_frames = 0, quiet_frames = 0;
    std::vector<DriveRun> runs;
    std::array<std::array<std::array<double, 65>, 2>, 3> templates{};  // node values [AF,WT,TW][ch][g]
    float division_low = 0, division_ratio = 0;    // division table: lowest threshold, step
    Suppression base{}, chosen{};
    float af_over_est = 0;                         // over_est_af set for autofocus moves (0: base kept)
    std::vector<std::string> search;               // "over_est 2.5: 9.1 dB", ...
    bool split_drive() const;                      // one zoom drive: held out is its second half
    bool compared = false;
    double base_db = 0, learned_db = 0, fitted_db = 0;  // held-out scores
    uint32_t learned_updates = 0;
    std::string learned_nothing_because;  // with no update: why the library learned nothing
    std::vector<std::string> warnings;
};

struct FitResult {
    st_vorl_tbl table;  // complete and sealed
    FitReport report;
};

// Throws FitError when the take cannot give a table: no zoom drive, under
// two seconds of usable drive, or channels that do not differ.
FitResult fit_table(const Take &take, const st_vorl_tbl &base, const FitOptions &options = {});

// The report as text: per band its frequencies, coefficients, motor, room
// and template levels and the frames behind them; then the choices made,
// the comparison and the warnings.
std::string format_report(const FitResult &fit);

}  // namespace vorl::fit
