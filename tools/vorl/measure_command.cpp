// vorl measure: how much drive noise a processed recording lost, and how
// much the recording changed where no drive ran.
#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "drive_measure.h"
#include "drive_options.h"
#include "measure_figures.h"
#include "recordings.h"
#include "table_store.h"
#include "time_alignment.h"

namespace vorl {

namespace {

constexpr int kBlock = 256;

const char kHelp[] = R"(usage: vorl measure CLEAN NOISY PROCESSED (--drive FILE | ranges)
                    [--align] [--ceiling [--table FILE]] [--no-resample] [--json]

Compares a processed recording with the recording it came from (NOISY) and
with the same scene without drive noise (CLEAN). The three files must be
stereo, time-aligned (as "vorl process" writes them by default) and of one
length and sample rate; a recording that runs late or early against NOISY
(found by correlation, up to 1 s), or holds its channels swapped or in
opposite polarity, is refused. The drive state is given as for "vorl
process" (--drive FILE, or --zoom-in/--zoom-out/--af/--wind RANGES); a
block is "driven" when its zoom or af word is non-zero.

Figures, summed over both channels and all samples of the blocks concerned:
  during drives:
    noise attenuation = 10 log10( E[noisy - clean] / E[processed - clean] )
                        in dB, positive when the drive noise was reduced
                        (E[x] is the energy, the sum of squared samples)
  outside drives (blocks that are not driven):
    level change      = 10 log10( E[processed] / E[noisy] ) in dB
    difference energy = 10 log10( E[processed - noisy] / E[noisy] ) in dB,
                        how far below the recording the change lies
  during wind outside drives (when there is any):
    noise attenuation, as during drives

  --ceiling     also, during drives, the noise attenuation of yardsticks
                that know the noise (NOISY - CLEAN), on the engine's framing
                (512-point sine-window frames, hop 256) over the frames that
                overlap drives:
                  oracle: the per-bin Wiener gain |S|^2 / (|S|^2 + |N|^2)
                    of the true content S and noise N;
                  engine's reach: the engine's own gain rule with each
                    bin's ideal zoom-noise coefficient (the recording's ratio
                    of channel noise to the noise's channel difference), at
                    the over-estimation (0.75-3) and smoothing best for this
                    recording. No table does better on average: what lies
                    between it and the oracle is the engine's model, what
                    lies below it the table's.
                  reach, scene mono: the same with the content's own
                    channel difference ignored; its gain over the reach is
                    what the scene's width costs the engine's model.
  --table FILE  the floor of FILE's table for the engine's reach (default:
                the built-in table's)
  --no-resample for recordings at another rate than 48000 Hz: the drive
                file counts blocks at their own rate, as for "vorl process
                --no-resample" (by default it counts the 48 kHz blocks that
                "vorl process" resamples them to)
  --align       take out the lag of a recording that runs late or early
                (the output of a host that does not make up for a plugin's
                latency, or of "vorl process --raw") and measure over the
                whole blocks that all three share; lengths may then differ

  --json        the figures as one JSON object for scripts, e.g.
                {"during_drives": {"blocks": 638, "seconds": 3.4,
                 "noise_attenuation_db": 12.9, ...}, "outside_drives":
                {..., "level_change_db": 0.0, "difference_energy_db": ...}};
                a figure that is infinite (nothing left to compare) is null

The figures go to standard output, one per line (or as JSON).
Exit status: 0 success, 1 usage error, 2 input error.
)";

// The stretch of the three recordings (CLEAN, NOISY, PROCESSED) that is
// compared: where it starts in each, how long it is, and the block of
// NOISY (whose time the drive state follows) at which it starts.
struct Span {
    const int16_t *start[3];
    std::size_t frames;
    std::size_t first_block;
};

// Refuses CLEAN or PROCESSED when it runs late or early against NOISY, or
// with `align` takes its lag out; then the frames all three share, from a
// block boundary of NOISY on.
Span aligned_span(const std::vector<int16_t> (&recordings)[3], const std::vector<std::string> &names, int rate,
                  bool align) {
    const auto frames_of = [&](int i) { return static_cast<int64_t>(recordings[i].size() / 2); };
    int64_t lag[3] = {0, 0, 0};
    for (const int i : {0, 2}) {
        const auto shared = static_cast<std::size_t>(std::min(frames_of(i), frames_of(1)));
        const auto found = find_lag(recordings[1].data(), recordings[i].data(), shared, rate);
        if (!found) continue;
        const std::string what = describe_lag(*found, rate, cli::input_name(names[i]), cli::input_name(names[1]));
        if (!align)
            cli::input_error(what + ": the recordings must be time-aligned. A host that does not make up for a "
                             "plugin's latency, or \"vorl process --raw\", delays its output so; --align takes "
                             "the lag out");
        cli::warn(what + "; measured with the lag taken out");
        lag[i] = found->frames;
    }
    if (!align) {
        if (frames_of(0) != frames_of(1) || frames_of(2) != frames_of(1))
            cli::input_error("the three recordings differ in length (" + std::to_string(frames_of(0)) + ", " +
                             std::to_string(frames_of(1)) + ", " + std::to_string(frames_of(2)) +
                             " frames); --align measures over the blocks they share");
        return {{recordings[0].data(), recordings[1].data(), recordings[2].data()},
                static_cast<std::size_t>(frames_of(1)), 0};
    }
    // Frame t of NOISY is frame t + lag[i] of recording i.
    int64_t first = 0, end = frames_of(1);
    for (int i = 0; i < 3; ++i) {
        first = std::max(first, -lag[i]);
        end = std::min(end, frames_of(i) - lag[i]);
    }
    first = (first + kBlock - 1) / kBlock * kBlock;
    if (end - first < kBlock)
        cli::input_error("the three recordings share less than one block once aligned; nothing to measure");
    if (first != 0 || end != frames_of(1))
        cli::warn("measured over frames " + std::to_string(first) + ".." + std::to_string(end - 1) + " of the " +
                  std::to_string(frames_of(1)) + " of " + cli::input_name(names[1]) +
                  ", the whole blocks that all three recordings share");
    Span span{};
    for (int i = 0; i < 3; ++i) span.start[i] = recordings[i].data() + 2 * (first + lag[i]);
    span.frames = static_cast<std::size_t>(end - first);
    span.first_block = static_cast<std::size_t>(first / kBlock);
    return span;
}

// Refuses CLEAN or PROCESSED with its channels swapped or in opposite
// polarity against NOISY: the figures compare the recordings channel by channel.
void check_channels(const Span &span, const std::vector<std::string> &names) {
    for (const int i : {0, 2})
        if (const std::string fault = describe_channel_fault(span.start[1], span.start[i], span.frames,
                                                             cli::input_name(names[i]), cli::input_name(names[1]));
            !fault.empty())
            cli::input_error(fault + ": the figures compare the recordings channel by channel");
}

}  // namespace

int run_measure(int argc, char **argv, int first) {
    const cli::ParsedArgs args = cli::parse_args(
        argc, argv, first, with_drive_options({{"ceiling"}, {"table", true}, {"align"}, {"no-resample"}, {"json"}}), "measure");
    if (args.help) {
        std::fputs(kHelp, stdout);
        return cli::kExitOk;
    }
    cli::expect_positional(args, 3, "measure", "CLEAN NOISY PROCESSED (--drive FILE | ranges)");
    cli::one_standard_input({args.positional[0], args.positional[1], args.positional[2], args.value("drive"),
                             args.value("table")});
    if (!drive_given(args)) cli::usage_error("give the drive state: --drive FILE or --zoom-in/--zoom-out/--af RANGES");
    const DriveSchedule drive = drive_from_args(args);
    if (args.has("table") && !args.has("ceiling")) cli::usage_error("--table is read only with --ceiling");

    int rates[3];
    std::vector<int16_t> recordings[3];
    for (std::size_t i = 0; i < 3; ++i) {
        WholeRecording r = read_whole_recording(args.positional[i]);
        for (const std::string &w : conversion_warnings(r.name, r.clipped, r.not_numbers)) cli::warn(w);
        rates[i] = r.rate;
        recordings[i] = std::move(r.samples);
    }
    for (int i = 1; i < 3; ++i)
        if (rates[i] != rates[0])
            cli::input_error(args.positional[static_cast<std::size_t>(i)] + ": sample rate " + std::to_string(rates[i]) +
                             " differs from " + args.positional[0] + "'s " + std::to_string(rates[0]));
    const Span span = aligned_span(recordings, args.positional, rates[0], args.has("align"));
    check_channels(span, args.positional);
    const int16_t *clean = span.start[0], *noisy = span.start[1], *processed = span.start[2];
    const std::size_t frames = span.frames;

    // A drive file counts the blocks "vorl process" runs the engine on.
    const int engine_rate = args.has("no-resample") ? rates[0] : kTunedRate;
    const auto noisy_frames = static_cast<int64_t>(recordings[1].size() / 2);
    for (const auto &p : drive.mismatches(frames_at_rate(noisy_frames, rates[0], engine_rate), engine_rate,
                                          args.positional[1], rates[0]))
        cli::warn(p);
    const auto words = [&](std::size_t b) {
        return drive.at_engine_rate(static_cast<int64_t>(b + span.first_block), rates[0], engine_rate);
    };
    const DriveMeasure m = measure_drives(clean, noisy, processed, frames, words);
    if (m.drives.blocks > 0 && m.drives.noise <= 0.0)
        cli::warn(cli::input_name(args.positional[1]) + " equals " + cli::input_name(args.positional[0]) +
                  " during the drives: there is no drive noise to measure (is NOISY the recording before removal?)");
    NamedFigures yardsticks;
    if (args.has("ceiling")) {
        const float floor =
            (args.has("table") ? read_table(args.value("table")) : default_table()).st_vorl.nr_floor_coef;
        yardsticks = ceiling_figures(clean, noisy, frames, words, floor);
    }
    const MeasureFigures figures = measure_figures(m, rates[0], std::move(yardsticks));
    const std::string text = args.has("json") ? figures.json() : figures.text();
    std::fputs(text.c_str(), stdout);
    return cli::kExitOk;
}

}  // namespace vorl
