// vorl table fit: a tuning table for the user's camera from a calibration take.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "drive_options.h"
#include "fit_table.h"
#include "pending_file.h"
#include "progress.h"
#include "recordings.h"
#include "resampler.h"
#include "table_checksum.h"
#include "table_store.h"

namespace vorl {

const char kTableFitHelp[] = R"(usage: vorl table fit CAL_AUDIO (--drive FILE | --zoom-in R --zoom-out R [--af R]) -o OUT_TABLE
                      [--base TABLE] [--report FILE] [--quick] [--no-resample]
                      [-y|-n] [-q]

Makes a tuning table for a camera from a calibration take: the camera's own
stereo recording of its motor in a quiet room, zoom in and zoom out for a
few seconds each (2 s of drive at least; 3-4 s per direction is better),
with quiet gaps of a second or more between the drives, optionally with
autofocus moves, and the drive log that says when the lens moved (same
options as "vorl process"; a drive file must have one line per block of
the take, counted at 48000 Hz as for "vorl process"). CAL_AUDIO may also be
the camera's video of the take (.mp4, .mov, .mkv; its sound is used), and
a video's coded sound may be up to 8 blocks longer or shorter than the log.

Everything is measured with the library's own analysis (window, transform
and bin powers of the noise reducer): per band and channel the zoom-noise
coefficient (motor power over difference power, at the bias in force during
zoom), per drive direction and channel the background template (the motor
power a cap on the coefficient takes from the curve, if one is chosen),
template 0 ("AF") from autofocus moves, the division table over the powers
the drives show, and the curve's limits so that later learning (vorl
process --learn) passes the library's check.
Over-estimation, floor and gain smoothing are chosen by a held-out score:
curves fitted on every other drive (the first half of a lone drive),
values scored on the others (its second half; see the report). Autofocus
moves (if the take has some) get over-estimation 6, and wind below 140 Hz
an allowance of 4. Every other value comes from the base table.

  -o, --output OUT_TABLE  the fitted table (written atomically; checked;
                          "-": standard output)
  --base TABLE            start from TABLE (default: the built-in table;
                          "-": standard input)
  --report FILE           write the fit report to FILE ("-": standard output):
                          per band frequencies, coefficients, motor, room
                          and template levels, the frames behind them, the
                          choices made and warnings about the take
  --quick                 skip the held-out search and comparison (keeps
                          the base table's suppression values)
  --no-resample           measure a take at another rate than 48000 Hz as it
                          is, for a table used with "vorl process
                          --no-resample" (by default the take is resampled
                          to 48000 Hz, as vorl process resamples recordings,
                          and a drive file counts blocks at 48000 Hz)
  -y, --overwrite         replace an existing OUT_TABLE or report
  -n, --no-overwrite      never replace them (default: ask on a terminal,
                          else refuse)
  -q, --quiet             no summary or warnings on standard error

Refused (exit status 2): a take that is not stereo or is cut short, a drive
log without zoom drive, a drive file whose length is not the take's, under
2 s of usable drive, channels that do not differ, a silent channel.
)";

namespace {


// The take resampled to the tables' rate, of the length that rate gives it.
std::vector<int16_t> to_table_rate(const std::vector<int16_t> &samples, int rate) {
    std::vector<float> in(samples.begin(), samples.end()), out;
    Resampler resampler(rate, kTunedRate);
    resampler.push(in.data(), in.size() / 2, out);
    resampler.finish(out);
    const auto frames = static_cast<std::size_t>(frames_at_rate(static_cast<int64_t>(in.size() / 2), rate, kTunedRate));
    out.resize(2 * frames, 0.0f);
    std::vector<int16_t> result(out.size());
    for (std::size_t i = 0; i < out.size(); ++i)
        result[i] = static_cast<int16_t>(std::lround(std::clamp(out[i], -32768.0f, 32767.0f)));
    return result;
}

}  // namespace

int run_table_fit(int argc, char **argv, int first) {
    const cli::ParsedArgs args = cli::parse_args(
        argc, argv, first,
        with_overwrite_options(
            with_drive_options({{"output", true, 'o'}, {"base", true}, {"report", true}, {"quick"}, {"no-resample"},
                                {"quiet", false, 'q'}})),
        "table fit");
    if (args.help) {
        std::fputs(kTableFitHelp, stdout);
        std::exit(cli::kExitOk);
    }
    cli::expect_positional(args, 1, "table fit", "CAL_AUDIO --drive FILE -o OUT_TABLE");
    for (const char *once : {"output", "base", "report"})
        if (args.all(once).size() > 1) cli::usage_error(std::string("--") + once + " given more than once");
    cli::one_standard_input({args.positional[0], args.value("drive"), args.value("base")});
    const std::string audio = args.positional[0], out = args.value("output"), base_path = args.value("base"),
                      report_path = args.value("report");
    const bool quiet = args.has("quiet");
    if (out.empty()) cli::usage_error("table fit: the output table is missing (-o OUT_TABLE)");
    if (!drive_given(args))
        cli::usage_error("table fit: the drive log is missing (--drive FILE, or --zoom-in/--zoom-out RANGES)");
    for (const std::string &output : {out, report_path})
        for (const std::string &input : {audio, args.value("drive"), base_path})
            if (writes_over(output, input))
                cli::usage_error(output + ": is an input of the fit; choose another output name");
    if (same_output(report_path, out))
        cli::usage_error(report_path == "-" ? "the report and the table cannot both go to standard output"
                                            : report_path + ": the report would overwrite the output table");
    const Replace replace = replace_policy(args);
    check_table_destination(out);
    check_replace(out, replace);
    if (!report_path.empty()) check_replace(report_path, replace);
    const DriveSchedule drive = drive_from_args(args);
    const st_vorl_tbl base = base_path.empty() ? default_table() : read_table(base_path);
    if (!base_path.empty() && tablekit::checksum(base) != base.check_sum)
        cli::input_error(cli::input_name(base_path) + ": checksum wrong, the base table is damaged");
    // What the fit keeps of the base must already be a working table.
    if (!base_path.empty()) {
        const std::string broken = broken_rules(base_path, base);
        if (!broken.empty()) cli::input_error(broken + "; a base table must pass it");
    }

    WholeRecording in = read_whole_recording(audio);
    if (!quiet)  // the fit's own report counts the samples at full scale
        for (const std::string &w : conversion_warnings(in.name, 0, in.not_numbers)) cli::warn(w);
    // As "vorl process" does, a take at another rate is measured at the
    // tables' rate, so the table fits what the engine will see.
    const bool resample = in.rate != kTunedRate && !args.has("no-resample");
    if (resample) in.samples = to_table_rate(in.samples, in.rate);
    const int rate = resample ? kTunedRate : in.rate;
    const std::size_t got = in.frames();
    const std::size_t blocks = (got + fit::kBlock - 1) / fit::kBlock;
    if (drive.uses_file() && drive.file_blocks() != blocks) {
        const std::string counts = cli::input_name(args.value("drive")) + ": " + std::to_string(drive.file_blocks()) +
                                   " block lines, but " + in.name + " has " + std::to_string(blocks) +
                                   " blocks of 256 frames" + (resample ? " at 48000 Hz" : "");
        if (in.exact_length || !drive.file_within(static_cast<int64_t>(blocks), kCodedLengthSlack))
            cli::input_error(counts + ": the drive log does not belong to this take");
        if (!quiet)
            cli::warn(counts + ", within a coded stream's precision; blocks past the log's end are idle");
    }
    if (!quiet && !drive.uses_file())
        for (const std::string &problem : drive.mismatches(static_cast<int64_t>(got), rate, in.name))
            cli::warn(problem);
    if (!quiet && rate != kTunedRate)
        cli::warn(in.name + ": sample rate " + std::to_string(rate) +
                  " Hz measured as it is (--no-resample); the table will be right for this rate only");

    fit::Take take;
    take.samples = in.samples.data();
    take.frames = got;
    take.rate = rate;
    for (std::size_t b = 0; b < blocks; ++b) take.words.push_back(fit::block_words(drive.at(static_cast<int64_t>(b), take.rate)));
    fit::FitOptions options;
    options.choose_suppression = options.compare_learning = !args.has("quick");
    std::optional<Progress> progress;  // on a terminal: the held-out search takes seconds
    options.on_score = [&](int done, int most) {
        if (!progress) progress.emplace(!quiet, most, "choosing suppression values on held-out drives");
        progress->update(done);
    };
    fit::FitResult fit;
    try {
        fit = fit::fit_table(take, base, options);
    } catch (const fit::FitError &e) {
        if (progress) progress->finish();
        cli::input_error(in.name + ": " + e.what());
    }
    if (progress) progress->finish();
    write_table(out, fit.table);

    const std::string report = fit::format_report(fit);
    if (!report_path.empty()) write_output(report_path, report.data(), report.size());
    if (!quiet) {
        for (const std::string &w : fit.report.warnings) cli::warn(in.name + ": " + w);
        std::fprintf(stderr, "vorl: %s -> %s: fitted from %d zoom frames", in.name.c_str(),
                     cli::output_name(out).c_str(),
                     fit.report.zoom_frames[0] + fit.report.zoom_frames[1]);
        if (fit.report.compared)
            std::fprintf(stderr, "; held-out score %.1f dB (base %.1f, base learned %.1f)", fit.report.fitted_db,
                         fit.report.base_db, fit.report.learned_db);
        std::fputc('\n', stderr);
    }
    return cli::kExitOk;
}

}  // namespace vorl
