// vorl process: runs a recording through the noise reducer block by block.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

#include "audio_io.h"
#include "cli.h"
#include "commands.h"
#include "drive_schedule.h"
#include "drive_options.h"
#include "host_session.h"
#include "pending_file.h"
#include "progress.h"
#include "table_checksum.h"
#include "table_rules.h"
#include "table_store.h"

namespace vorl {

namespace {

constexpr int kBlock = VORL_BLOCK_FRAMES;
constexpr int kDelayBlocks = VORL_DELAY_FRAMES / VORL_BLOCK_FRAMES;  // 3
constexpr int kTunedRate = 48000;

const char kHelp[] = R"(usage: vorl process IN OUT [options]

Removes lens-drive noise (zoom motor in both directions, autofocus, with a
wind allowance) from a stereo recording. IN may be any stereo file that
libsndfile reads (WAV, FLAC, AIFF, ...). OUT is written as 16-bit PCM in the
format its extension names (.wav, .flac, .aiff, ...), at IN's sample rate.
IN is never modified: OUT must be another file, and it appears only when
complete (it is written beside OUT under a temporary name, then renamed).

Input that is not 16-bit is rounded to 16 bits; samples beyond full scale
are clipped and counted. The built-in table is tuned for 48 kHz; other
rates are processed with a warning.

Tuning table:
  --table FILE        tuning table to use (default: the built-in table)
  --learn OUT_TABLE   after the run, save the table with the zoom-noise
                      coefficients learned from this recording to OUT_TABLE
                      when they pass the library's plausibility check. If
                      they fail, the failing bands are listed, OUT_TABLE is
                      not written (an existing one is left as it was) and
                      the exit status is 3. OUT_TABLE may be the --table
                      file itself; no other table file is ever modified.

Drive state (what the lens did; without any of these the file is idle):
  --drive FILE        one line per 256-frame block, "zoom af wind":
                        zoom  0 idle, 1 zoom-in ("WT"), 2 zoom-out ("TW")
                        af    autofocus drive, 0 idle, non-zero driving
                        wind  1 while wind is present, else 0
                      Empty lines and lines starting with # are skipped;
                      blocks past the last line are idle.
  --zoom-in RANGES    zoom-in drive, e.g. --zoom-in 1.5-3.2,8-9.25
  --zoom-out RANGES   zoom-out drive
  --af RANGES         autofocus drive
  --wind RANGES       wind present
                      RANGES are START-END in seconds, comma-separated, and
                      the options may be repeated. Block b (frames 256b to
                      256b+255) is driven when its first frame lies in a
                      range: START <= 256*b/rate < END. Zoom-in and zoom-out
                      ranges must not overlap; ranges cannot be combined
                      with --drive.
  Timing: the drive words of block b describe input block b and are handed
  to the library together with that block. The library analyses the audio
  768 frames behind its input, so block b's words take effect while it
  processes input blocks b-3 and b-2; a drive therefore reaches the
  analysis 2 to 3 blocks (about 11-16 ms at 48 kHz) before its own audio.
  Autofocus: when any block has its af word set, each block's af word
  switches the table's "AF" background template on (af blocks) or off
  (other blocks without zoom drive); without af words the table's own
  setting holds. The built-in table's "AF" template is empty, so autofocus
  noise is removed only with a table that has one, e.g. a table made for
  the camera with "vorl table fit" from a take with autofocus moves.

Processing:
  --pulse             run the library's click (pulse) filter on the input
  --dc-cut            run the DC-cut high-pass (35.7 Hz at 48 kHz) on the
                      input before the noise reducer
  --raw               do not compensate the library's delay: OUT is the raw
                      stream, 768 frames late (its first 768 frames come
                      from silence) and padded to a whole number of blocks
                      (alias --no-align). By default OUT is time-aligned
                      with IN and has IN's length: three blocks of silence
                      are fed after the input and the first 768 output
                      frames are dropped. A last partial block is padded
                      with silence either way.
  -q, --quiet         no summary line and no warnings (errors still shown)
  -h, --help          this text

A progress bar is drawn on standard error when it is a terminal; at the end
one summary line goes to standard error. Nothing is written to standard
output.

Exit status: 0 success, 1 usage error, 2 input, output or table error,
3 OUT was written but the learned table was discarded (--learn).
)";

struct Options {
    std::string in, out, table, learn;
    DriveSchedule drive;
    bool pulse = false, dc_cut = false, raw = false, quiet = false;
};

Options parse(int argc, char **argv, int first) {
    const cli::ParsedArgs args =
        cli::parse_args(argc, argv, first,
                        with_drive_options({{"table", true}, {"learn", true}, {"pulse"}, {"dc-cut"}, {"raw"},
                                            {"no-align"}, {"quiet", false, 'q'}}),
                        "process");
    if (args.help) {
        std::fputs(kHelp, stdout);
        std::exit(cli::kExitOk);
    }
    cli::expect_positional(args, 2, "process", "IN OUT [options]");
    for (const char *once : {"table", "learn"})
        if (args.all(once).size() > 1) cli::usage_error(std::string("--") + once + " given more than once");
    Options o;
    o.in = args.positional[0];
    o.out = args.positional[1];
    o.table = args.value("table");
    o.learn = args.value("learn");
    o.pulse = args.has("pulse");
    o.dc_cut = args.has("dc-cut");
    o.raw = args.has("raw") || args.has("no-align");
    o.quiet = args.has("quiet");
    o.drive = drive_from_args(args);
    return o;
}

// Refuses any run that would write over one of its own inputs.
void check_paths(const Options &o) {
    if (o.in == o.out || same_file(o.in, o.out))
        cli::usage_error(o.out + ": is the input file; choose another output name (IN is never overwritten)");
    if (!o.table.empty() && (o.out == o.table || same_file(o.out, o.table)))
        cli::usage_error(o.out + ": is the tuning table given with --table; choose another output name");
    if (!o.learn.empty()) {
        if (o.learn == o.in || same_file(o.learn, o.in))
            cli::usage_error(o.learn + ": --learn would overwrite the input recording");
        if (o.learn == o.out || same_file(o.learn, o.out))
            cli::usage_error(o.learn + ": --learn names the same file as the output recording");
    }
    if (format_for_extension(o.out) == 0)
        cli::usage_error(o.out + ": cannot tell the audio format from the file name; use .wav, .flac, .aiff, ...");
}

// Says what became of the learning run; returns the exit code.
int report_learning(const Options &o, HostSession &session) {
    const LearnVerdict v = session.learned_table();
    if (v.passed) {
        session.save_table(o.learn);
        if (!o.quiet)
            std::fprintf(stderr, "vorl: learned table saved to %s (%u update%s)\n", o.learn.c_str(), v.updates,
                         v.updates == 1 ? "" : "s");
        return cli::kExitOk;
    }
    // Reported even with -q: the user asked for the table.
    std::set<int> bands;
    for (const auto &f : v.faults) bands.insert(f.band);
    std::fprintf(stderr,
                 "vorl: learning discarded (%u update%s): the learned zoom-noise curve failed the plausibility "
                 "check in %zu band%s; %s %s\n",
                 v.updates, v.updates == 1 ? "" : "s", bands.size(), bands.size() == 1 ? "" : "s",
                 o.learn.c_str(), file_exists(o.learn) ? "was left as it was" : "was not written");
    constexpr std::size_t kShown = 8;
    const st_vorl &p = session.working_parameters();
    for (std::size_t i = 0; i < v.faults.size() && i < kShown; ++i)
        std::fprintf(stderr, "vorl:   %s\n", tablekit::describe(v.faults[i], p).c_str());
    if (v.faults.size() > kShown) std::fprintf(stderr, "vorl:   ... and %zu more\n", v.faults.size() - kShown);
    return cli::kExitLearningDiscarded;
}

}  // namespace

int run_process(int argc, char **argv, int first) {
    const Options o = parse(argc, argv, first);
    check_paths(o);

    AudioReader in(o.in);
    in.require_stereo();
    if (!o.quiet) {
        if (!in.is_16bit()) cli::warn(o.in + ": " + in.format_name() + " input is converted to 16-bit");
        if (in.sample_rate() != kTunedRate)
            cli::warn(o.in + ": sample rate " + std::to_string(in.sample_rate()) + " Hz; " +
                      (o.table.empty() ? "the built-in table is tuned for 48000 Hz"
                                       : "make sure " + o.table + " is tuned for it"));
    }

    const st_vorl_tbl table = o.table.empty() ? default_table() : read_table(o.table);
    const std::string table_name = o.table.empty() ? "built-in table" : o.table;
    // A damaged table is refused by the library below; others get a warning.
    if (!o.quiet && !o.table.empty() && tablekit::checksum(table) == table.check_sum) {
        const auto broken = tablekit::check_table_rules(table);
        if (!broken.empty())
            cli::warn(o.table + ": breaks " + std::to_string(broken.size()) +
                      " table rule(s), results may be meaningless (see: vorl table check " + o.table + ")");
    }
    HostSession session(table, table_name, o.pulse);
    if (o.drive.has_af()) session.follow_autofocus_word();

    AudioWriter out(o.out, in.sample_rate());
    VORLDcCutState dc;
    VORLDcCutInit(&dc);

    const int64_t frames = in.frames();
    const int64_t input_blocks = (frames + kBlock - 1) / kBlock;
    const int64_t blocks = input_blocks + (o.raw ? 0 : kDelayBlocks);
    const int64_t skip = o.raw ? 0 : VORL_DELAY_FRAMES;  // output frames before the input's first
    const int64_t keep = o.raw ? input_blocks * kBlock : frames;
    Progress progress(!o.quiet, frames, in.sample_rate());
    const auto started = std::chrono::steady_clock::now();

    int16_t block_in[2 * kBlock], block_out[2 * kBlock];
    int64_t produced = 0;
    for (int64_t b = 0; b < blocks; ++b) {
        const std::size_t got = b < input_blocks ? in.read(block_in, kBlock) : 0;
        std::memset(block_in + 2 * got, 0, (kBlock - got) * 2 * sizeof(int16_t));
        if (o.dc_cut) VORLDcCutProc(block_in, &dc, kBlock);
        session.process(block_in, block_out, o.drive.at(b, in.sample_rate()));
        // Output frame `produced + i` is input frame `produced + i - skip`.
        const int64_t from = std::max<int64_t>(0, skip - produced);
        const int64_t upto = std::min<int64_t>(kBlock, skip + keep - produced);
        if (upto > from) out.write(block_out + 2 * from, static_cast<std::size_t>(upto - from));
        produced += kBlock;
        progress.update(std::min(b * kBlock, frames));
    }
    progress.finish();
    out.commit();

    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const uint32_t updates = session.learn_count();
    if (!o.quiet) {
        if (in.clipped() > 0)
            cli::warn(o.in + ": " + std::to_string(in.clipped()) + " sample(s) clipped converting to 16-bit");
        if (o.drive.uses_file() && static_cast<int64_t>(o.drive.file_blocks()) != input_blocks)
            cli::warn("drive file has " + std::to_string(o.drive.file_blocks()) + " block lines, the input has " +
                      std::to_string(input_blocks) + " blocks");
        const double duration = static_cast<double>(frames) / in.sample_rate();
        std::fprintf(stderr, "vorl: %s -> %s: %.2f s, %lld blocks, %.1fx real time, %u learning update%s\n",
                     o.in.c_str(), o.out.c_str(), duration, static_cast<long long>(blocks),
                     seconds > 0 ? duration / seconds : 0.0, updates, updates == 1 ? "" : "s");
    }
    return o.learn.empty() ? cli::kExitOk : report_learning(o, session);
}

}  // namespace vorl
