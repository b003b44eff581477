// The fit report in text.
#include <cmath>
#include <cstdio>
#include <string>

#include "appendf.h"
#include "fit_table.h"
#include "table_curves.h"

namespace vorl::fit {

namespace {

// A mean bin power as the rms level of white noise giving it, in dBFS.
std::string level(double power) {
    if (!(power > 0.0)) return "   -inf";
    char s[16];
    std::snprintf(s, sizeof s, "%7.1f", 10.0 * std::log10(power / 256.0));
    return s;
}

const char *kind_name(FrameKind k) {
    switch (k) {
    case FrameKind::zoom_in: return "zoom-in";
    case FrameKind::zoom_out: return "zoom-out";
    case FrameKind::af: return "autofocus";
    default: return "other";
    }
}

}  // namespace

std::string format_report(const FitResult &fit) {
    const FitReport &r = fit.report;
    const st_vorl &p = fit.table.st_vorl;
    const double hz = r.rate / 512.0;
    const double block_s = 256.0 / r.rate;
    std::string out;
    appendf(out, "Calibration take: %d zoom-in and %d zoom-out frames used (%.2f s and %.2f s), %d autofocus, %d quiet\n",
        r.zoom_frames[0], r.zoom_frames[1], r.zoom_frames[0] * block_s, r.zoom_frames[1] * block_s, r.af_frames,
        r.quiet_frames);
    appendf(out, "Drives:\n");
    for (const DriveRun &run : r.runs)
        appendf(out, "  %-9s %7.2f - %7.2f s  %4d frames used\n", kind_name(run.kind), run.first_block * block_s,
            run.end_block * block_s, run.frames_used);
    if (r.af_frames == 0) appendf(out, "  (no autofocus moves: template 0 kept from the base table)\n");

    appendf(out, "\nPer band (levels in dBFS as white noise of that mean bin power; templates at the band's end bin):\n");
    appendf(out, "band  bins     Hz             coef L  coef R  motor L motor R   diff   room L  room R   WT L    WT R    TW L    TW R    AF L    AF R\n");
    for (const NodeFit &n : r.nodes) {
        const int first = tablekit::band_first_bin(p, n.band), last = p.zspec_comp_base_bin[n.band];
        const int g = (last + 3) / 4;
        appendf(out, "%4d  %3d-%3d  %5.0f-%5.0f  %7.3f %7.3f %s %s %s %s %s %s %s %s %s %s %s%s\n", n.band, first, last,
            first * hz, last * hz, n.value[0], n.value[1], level(n.motor[0]).c_str(), level(n.motor[1]).c_str(),
            level(n.diff).c_str(), level(n.room[0]).c_str(), level(n.room[1]).c_str(),
            level(r.templates[1][0][g]).c_str(), level(r.templates[1][1][g]).c_str(),
            level(r.templates[2][0][g]).c_str(), level(r.templates[2][1][g]).c_str(),
            level(r.templates[0][0][g]).c_str(), level(r.templates[0][1][g]).c_str(),
            n.measured ? "" : "  (not measured: base value)");
    }
    appendf(out, "Curve limits: node maximum 4 x the fitted value (at least 2), floor %.4f (half the smallest node), "
             "tolerances %.2f / %.2f\n",
        p.zspec_comp_min_floor_value, p.tolerance_range_zspec_max, p.tolerance_range_zspec_min);
    appendf(out, "Division table: bin powers %.3g (20 dB under the 2nd percentile of the drive frames) to 131072 (full "
             "scale) in steps of "
             "%.2f\n",
        r.division_low, r.division_ratio);

    appendf(out, "\nSuppression values by the held-out score (the noise attenuation of \"vorl measure\" on a speech-like\n"
             "probe scene added 10 dB under, at and 10 dB over the motor's level, the mix at the take's recording\n"
             "level and 20 dB under it, mean of the six; curves fitted %s):\n",
        r.split_drive() ? "on the first half of the drive, scored on the second" : "on every other drive, scored on the others");
    appendf(out, "  base:   over_est %.2f, nr_floor_coef %.2f, nr_gain_sm_coef %.2f\n", r.base.over_est, r.base.floor,
        r.base.smoothing);
    appendf(out, "  chosen: over_est %.2f, nr_floor_coef %.2f, nr_gain_sm_coef %.2f, coefficient cap ", r.chosen.over_est,
        r.chosen.floor, r.chosen.smoothing);
    out += r.chosen.ratio_cap >= kNoCap ? std::string("none") : std::to_string(r.chosen.ratio_cap).substr(0, 4);
    if (std::isnan(r.chosen.score_db))
        out += " (not scored)\n";
    else
        appendf(out, " (%.2f dB)\n", r.chosen.score_db);
    for (const std::string &s : r.search) out += "    " + s + "\n";
    appendf(out, "Wind: over-estimation times %.1f below %.0f Hz while the wind word is set\n", p.wind_nr_proc_bias,
        p.wind_nr_proc_freq * hz);
    if (r.af_over_est > 0)
        appendf(out, "Autofocus moves: the \"AF\" template with over_est_af %.2f (nr_floor_coef and smoothing as chosen)\n",
            r.af_over_est);
    if (r.compared)
        appendf(out,
            "Held-out comparison: base table %.2f dB, base table after the library's learning on the same drives "
            "%.2f dB (%u updates), fitted table %.2f dB\n",
            r.base_db, r.learned_db, r.learned_updates, r.fitted_db);
    if (!r.learned_nothing_because.empty())
        appendf(out, "  (the library learned nothing: %s)\n", r.learned_nothing_because.c_str());
    if (!r.warnings.empty()) {
        out += "\nWarnings:\n";
        for (const std::string &w : r.warnings) out += "  " + w + "\n";
    }
    return out;
}

}  // namespace vorl::fit
