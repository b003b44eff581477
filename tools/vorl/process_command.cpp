// vorl process: runs a recording through the noise reducer block by block.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include <sndfile.h>
#include <set>

#include "audio_io.h"
#include "background_io.h"
#include "cli.h"
#include "commands.h"
#include "drive_schedule.h"
#include "drive_detection.h"
#include "drive_options.h"
#include "engine_stream.h"
#include "host_session.h"
#include "pending_file.h"
#include "progress.h"
#include "recording_faults.h"
#include "rate_bridge.h"
#include "recordings.h"
#include "table_checksum.h"
#include "table_rules.h"
#include "table_store.h"
#include "video_files.h"

namespace vorl {

namespace {

constexpr std::size_t kReadFrames = 16384;  // per engine push

const char kHelp[] = R"(usage: vorl process IN OUT [options]

Removes lens-drive noise (zoom motor in both directions, autofocus, with a
wind allowance) from a stereo recording. IN may be any stereo file that
libsndfile reads (WAV, FLAC, AIFF, ...; .raw and .pcm files are header-less
16-bit little-endian stereo at 48 kHz), or "-" for standard input. OUT is
written in the format its extension or --type names, at IN's sample rate;
"-" writes standard output (--type needed). IN is never modified: OUT must
be another file, and it appears only when complete (it is written as an
unnamed file in OUT's folder, then moved into place, so even a killed run
leaves nothing behind). An existing OUT (or --learn table) is replaced only
with -y; a replaced file keeps its permissions, and a symbolic link OUT
has its target replaced.

The noise reducer takes 16-bit samples: 24-bit, 32-bit and float input is
reduced with TPDF dither, samples beyond full scale are clipped and
counted (NaN samples are read as 0, counted apart), and OUT keeps the
wider format where its container can hold it.
A WAV whose header has no real length (written to a pipe) is read to its
end; input shorter than its header says is processed and reported. Tables
are tuned for 48 kHz: input at another rate is resampled to 48 kHz for the
noise reducer and back (libsoxr), so OUT has IN's rate and length.

IN may also be a camera video (.mp4, .m4v, .mov, .mkv, their sound-only
.m4a and .mka, or a file FFmpeg finds to be one whose extension names no
audio format): its stereo audio stream is processed, and OUT, another
video file, gets every other stream copied untouched (not re-encoded), the
new audio in the original audio stream's place at the same start time, and
the container's and streams' metadata. A video's OUT may also be an audio
file.

Tuning table:
  --table FILE        tuning table to use (default: the built-in table); a
                      table that breaks a rule of "vorl table check" is
                      refused (exit 2, nothing written)
  --force             use such a table anyway (a damaged checksum or a
                      wrong version is still refused by the library)
  --learn OUT_TABLE   after the run, save the table with the zoom-noise
                      coefficients learned from this recording to OUT_TABLE
                      when they pass the library's plausibility check. If
                      they fail, the failing bands are listed, OUT_TABLE is
                      not written (an existing one is left as it was) and
                      the exit status is 3. OUT_TABLE may be the --table
                      file itself (with -y); no other table is modified.

Drive state (what the lens did; without any of these the drives are
detected from the recording itself, see "Drive detection" below):
  --drive FILE        one line per 256-frame block, "zoom af wind":
                        zoom  0 idle, 1 zoom-in ("WT"), 2 zoom-out ("TW")
                        af    autofocus drive, 0 idle, non-zero driving
                        wind  1 while wind is present, else 0
                      Words may be separated by spaces, tabs or commas;
                      # starts a note, a first line "zoom,af,wind" is a
                      header; blocks past the last line are idle.
  --zoom-in RANGES    zoom-in drive, e.g. --zoom-in 1.5-3.2,8-9.25
  --zoom-out RANGES   zoom-out drive
  --af RANGES         autofocus drive
  --wind RANGES       wind present
                      RANGES are START-END in seconds (or [H:]M:S, as in
                      1:02.5-1:04), comma-separated, and the options may
                      be repeated. Block b (frames 256b to
                      256b+255) is driven when its first frame lies in a
                      range: START <= 256*b/rate < END. Blocks are the
                      noise reducer's: at 48 kHz when IN is resampled.
                      Zoom-in and zoom-out ranges must not overlap; ranges
                      cannot be combined with --drive.
  Timing: the drive words of block b describe input block b and are handed
  to the library together with that block. The library analyses the audio
  768 frames behind its input, so block b's words take effect while it
  processes input blocks b-3 and b-2; a drive therefore reaches the
  analysis 2 to 3 blocks (about 11-16 ms at 48 kHz) before its own audio.
  Autofocus: when any block has its af word set, each block's af word
  switches the table's "AF" background template on (af blocks) or off
  (other blocks without zoom drive); without af words the table's own
  setting holds. The built-in table's "AF" template is a typical autofocus
  motor's; a table made for the camera with "vorl table fit" from a take
  with autofocus moves has that camera's own.


Drive detection (when no drive state is given):
  The zoom and autofocus motors sit a few centimetres from the two
  microphones, so while one runs the difference of the channels grows to
  about the level of their sum from 1.5 to 12 kHz, far above what the
  scene's own stereo gives. A first pass over IN finds those stretches
  (zoom drives; runs under 0.35 s count as autofocus) and wind (strong
  sound below 280 Hz that differs between the channels), then IN is
  processed with these words. The summary says how many drives were found.
  Direction: with the built-in table both zoom directions are treated the
  same and detected drives are reported as zoom-in (1); with a --table
  whose "WT" and "TW" templates differ, each drive gets the direction whose
  template fits it better.
  --no-detect         process without any drive: nothing is removed
                      (a warning says so)
  --drive-out FILE    write the drive words used (given or detected), one
                      line per block in the --drive format, so that a run
                      can be repeated or the detection corrected by hand

  --strict            a drive file whose length differs from IN's, or a
                      range reaching past IN's end, is an error (exit 2,
                      nothing written) instead of a warning given before
                      processing starts

Video output (OUT .mp4, .m4v, .mov, .mkv, .m4a or .mka):
  --audio-codec NAME  the new audio's FFmpeg encoder, e.g. aac, alac, flac,
                      pcm_s16le (default: PCM stays the same PCM, other
                      audio becomes AAC)
  --audio-bitrate R   its bit rate, e.g. 256k (default: the original
                      stream's, or 192k when the file does not state it)

How much is removed:
  --strength S        0..1 (default 1): OUT = IN + S x (processed - IN),
                      sample by sample, time-aligned; 1 is the library's
                      output exactly, 0 gives back IN's 16-bit samples (at
                      another rate: as resampled there and back)
  --removed FILE      also write what was removed (IN - OUT) to FILE, in
                      the format its name says, to listen to (IN at 48 kHz
                      or with --no-resample)
  --output WHAT       what OUT holds: "cleaned" (default) or "removed"

Processing:
  --no-resample       process other rates as they are (with a warning: the
                      table's bands then lie at other frequencies)
  --pulse             run the library's click (pulse) filter on the input
  --dc-cut            run the DC-cut high-pass (35.7 Hz at 48 kHz) on the
                      input before the noise reducer
  --no-prime          give the library's plain output at the start: by
                      default the library is first run over the opening
                      blocks (with the first block's drive words) and its
                      input and output cleared again, so that its gain
                      does not fade in over the first 20 ms; the blocks
                      after that are processed by the library as always.
                      A --learn run is never primed (priming would count
                      towards learning).
  --raw               do not compensate the library's delay: OUT is the raw
                      stream, 768 frames late (its first 768 frames come
                      from silence) and padded to a whole number of blocks
                      (alias --no-align). By default OUT is time-aligned
                      with IN and has IN's length: three blocks of silence
                      are fed after the input and the first 768 output
                      frames are dropped. A last partial block is padded
                      with silence either way.
  -y, --overwrite     replace an existing OUT or --learn table (without
                      it the tool asks on a terminal, else refuses)
  -n, --no-overwrite  never replace an existing file
  -t, --type TYPE     OUT's container (wav, flac, aiff, au, caf, w64, ...)
                      instead of its extension; needed for OUT "-", and
                      the container of a --removed "-"
  -q, --quiet         no summary line and no warnings (errors and a
                      premature end of the input still shown)
  -h, --help          this text

A progress bar is drawn on standard error when it is a terminal; at the end
one summary line goes to standard error. Nothing but the outputs named "-"
is written to standard output: OUT, or --learn, --drive-out or --removed
(one of them). "-" as --table or --drive reads standard input (when IN is
not "-").

Exit status: 0 success, 1 usage error, 2 input, output or table error,
3 OUT was written but the learned table was discarded (--learn).
)";

struct Options {
    std::string in, out, table, learn, type, removed, drive_out, drive_file;
    double strength = 1;
    bool out_is_removed = false;
    AudioEncoding encoding;
    DriveSchedule drive;
    bool drive_given = false, no_detect = false;
    bool pulse = false, dc_cut = false, raw = false, prime = true, quiet = false, strict = false, no_resample = false, force = false;
    Replace replace = Replace::Ask;
};

Options parse(int argc, char **argv, int first) {
    const cli::ParsedArgs args =
        cli::parse_args(argc, argv, first,
                        with_drive_options(with_overwrite_options({{"table", true}, {"learn", true}, {"pulse"}, {"dc-cut"}, {"raw"},
                                            {"no-align"}, {"no-prime"}, {"quiet", false, 'q'}, {"type", true, 't'}, {"strict"}, {"no-resample"}, {"force"},
                                            {"audio-codec", true}, {"audio-bitrate", true}, {"strength", true},
                                            {"removed", true}, {"output", true},
                                            {"no-detect"}, {"drive-out", true}})),
                        "process");
    if (args.help) {
        std::fputs(kHelp, stdout);
        std::exit(cli::kExitOk);
    }
    cli::expect_positional(args, 2, "process", "IN OUT [options]");
    for (const char *once :
         {"table", "learn", "type", "audio-codec", "audio-bitrate", "strength", "removed", "output", "drive-out"})
        if (args.all(once).size() > 1) cli::usage_error(std::string("--") + once + " given more than once");
    cli::one_standard_input({args.positional[0], args.value("table"), args.value("drive")});
    Options o;
    o.in = args.positional[0];
    o.out = args.positional[1];
    o.table = args.value("table");
    o.learn = args.value("learn");
    o.type = args.value("type");
    o.pulse = args.has("pulse");
    o.dc_cut = args.has("dc-cut");
    o.raw = args.has("raw") || args.has("no-align");
    o.prime = !args.has("no-prime");
    o.quiet = args.has("quiet");
    o.strict = args.has("strict");
    o.no_resample = args.has("no-resample");
    o.force = args.has("force");
    o.drive = drive_from_args(args);
    o.drive_file = args.value("drive");
    o.drive_given = drive_given(args);
    o.no_detect = args.has("no-detect");
    o.drive_out = args.value("drive-out");
    if (o.drive_given && o.no_detect) cli::usage_error("--no-detect with a given drive state: nothing is detected anyway");
    o.replace = replace_policy(args);
    o.removed = args.value("removed");
    o.encoding.codec = args.value("audio-codec");
    if (args.has("audio-bitrate") && (o.encoding.bit_rate = parse_bit_rate(args.value("audio-bitrate"))) == 0)
        cli::usage_error("--audio-bitrate " + args.value("audio-bitrate") + ": not a bit rate (e.g. 192k)");
    if (args.has("strength")) {
        const std::string text = args.value("strength");
        char *end = nullptr;
        o.strength = std::strtod(text.c_str(), &end);
        if (end == text.c_str() || *end != '\0' || !(o.strength >= 0 && o.strength <= 1))
            cli::usage_error("--strength " + text + ": must be a number from 0 to 1");
    }
    const std::string what = args.has("output") ? args.value("output") : "cleaned";
    if (what != "cleaned" && what != "removed") cli::usage_error("--output " + what + ": must be cleaned or removed");
    o.out_is_removed = what == "removed";
    return o;
}

// Refuses any run that would write over one of its own inputs.
void check_paths(const Options &o) {
    // What an output would overwrite among the run's inputs, or null.
    const auto overwritten_input = [&](const std::string &path) -> const char * {
        if (writes_over(path, o.in)) return "the input recording";
        if (writes_over(path, o.table)) return "the tuning table given with --table";
        if (writes_over(path, o.drive_file)) return "the drive file given with --drive";
        return nullptr;
    };
    if (writes_over(o.out, o.in))
        cli::usage_error(o.out + ": is the input file; choose another output name (IN is never overwritten)");
    if (const char *input = overwritten_input(o.out))
        cli::usage_error(o.out + ": is " + input + "; choose another output name");
    if (!o.learn.empty()) {
        // The learned table may replace the --table file: learning in place.
        if (writes_over(o.learn, o.in) || writes_over(o.learn, o.drive_file))
            cli::usage_error(o.learn + ": --learn would overwrite " + overwritten_input(o.learn));
        if (same_output(o.learn, o.out))
            cli::usage_error(cli::output_name(o.learn) + ": --learn names the same place as the output recording");
    }
    // A side output writes over no input and goes nowhere another output goes.
    const auto check_side = [&](const std::string &side, const char *option,
                                std::initializer_list<std::string> other_outputs) {
        bool clash = overwritten_input(side) != nullptr;
        for (const std::string &other : other_outputs) clash = clash || same_output(side, other);
        if (clash)
            cli::usage_error(cli::output_name(side) + ": " + option +
                             " names a place the run reads or writes; choose another");
    };
    if (!o.removed.empty()) check_side(o.removed, "--removed", {o.out, o.learn});
    if (!o.drive_out.empty()) check_side(o.drive_out, "--drive-out", {o.out, o.learn, o.removed});
    check_replace(o.out, o.replace);
    if (!o.learn.empty()) {
        check_table_destination(o.learn);
        check_replace(o.learn, o.replace);
    }
    if (!o.removed.empty()) check_replace(o.removed, o.replace);
    if (!o.drive_out.empty()) check_replace(o.drive_out, o.replace);
    if (!o.type.empty() && format_for_type(o.type) == 0)
        cli::usage_error("--type " + o.type + ": unknown audio type; use wav, flac, aiff, ...");
    if (o.type.empty() && (o.out == "-" || o.removed == "-"))
        cli::usage_error("standard output needs the audio type: -t wav, -t flac, ...");
    const bool video_in = is_video_container(o.in);
    for (const std::string &out : {o.out, o.removed}) {
        const bool typed = out == o.out && !o.type.empty();
        if (out.empty() || out == "-" || typed) continue;
        if (is_video_container(out) && !video_in)
            cli::usage_error(out + ": an MP4, MOV or Matroska output is the input video with its sound replaced, "
                                   "so it needs such an input; for sound alone write .wav, .flac, .ogg, .opus "
                                   "or .mp3");
        if (!is_video_container(out) && format_for_extension(out) == 0)
            cli::usage_error(out + ": cannot tell the format from the file name; use .wav, .flac, .aiff, .mp4, ... or --type");
    }
    if ((!o.encoding.codec.empty() || o.encoding.bit_rate > 0) && !is_video_container(o.out) &&
        !is_video_container(o.removed))
        cli::usage_error("--audio-codec and --audio-bitrate apply to a video output (.mp4, .mov, .mkv, .m4a, ...)");
}

// True when `path` is written as a video: named so, and not typed with -t.
bool is_video_output(const Options &o, const std::string &path) {
    return path != "-" && (path != o.out || o.type.empty()) && is_video_container(path);
}

// An audio output's format: the container --type (for OUT) or the name's
// extension says, holding 16-bit PCM, or an audio file IN's wider sample
// format where the container can; the compressed containers hold their
// codec (Opus for .opus, else IN's own Ogg codec or Vorbis); 0 for a video
// output.
int output_format(const Options &o, const std::string &path, const SampleReader &in) {
    if (is_video_output(o, path)) return 0;
    const bool typed = !o.type.empty() && (path == o.out || path == "-");
    const std::string type = typed ? o.type : lower_extension(path);
    const int major = format_for_type(type);
    const auto *file = dynamic_cast<const AudioReader *>(&in);
    std::vector<int> subs;
    if (major == SF_FORMAT_RAW) {
        if (in.sample_rate() != kRawRate)
            cli::usage_error(cli::output_name(path) + ": a header-less file holds 16-bit stereo at " +
                             std::to_string(kRawRate) + " Hz only, and " + in.name() + " is at " +
                             std::to_string(in.sample_rate()) + " Hz; use .wav, .flac, ...");
        return raw_format();
    } else if (major == SF_FORMAT_MPEG) {
        subs = {SF_FORMAT_MPEG_LAYER_III};
    } else if (major == SF_FORMAT_OGG) {
        const bool ogg_in = file != nullptr && (file->format() & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG;
        subs = {type == "opus" ? SF_FORMAT_OPUS : ogg_in ? file->format() & SF_FORMAT_SUBMASK : SF_FORMAT_VORBIS};
    } else {
        if (file != nullptr && file->is_wider_than_16bit()) subs.push_back(file->format() & SF_FORMAT_SUBMASK);
        subs.push_back(SF_FORMAT_PCM_16);
    }
    for (int sub : subs) {
        SF_INFO info{};
        info.samplerate = in.sample_rate();
        info.channels = 2;
        info.format = major | sub;
        if (sf_format_check(&info)) return info.format;
    }
    cli::usage_error(cli::output_name(path) + ": this container cannot hold stereo audio at " +
                     std::to_string(in.sample_rate()) + " Hz; use .wav, .flac, .aiff, ...");
}

// An output recording: a copy of the video IN with the new audio, or an
// audio file in `format` (output_format's).
std::unique_ptr<SampleWriter> open_output(const Options &o, const std::string &path, const SampleReader &in,
                                          int format) {
    if (is_video_output(o, path))
        return open_video_output(in, path, in.sample_rate(), o.encoding);
    return std::make_unique<AudioWriter>(path, in.sample_rate(), format);
}

// Says what became of the learning run; returns the exit code.
int report_learning(const Options &o, HostSession &session, const EngineStream &engine) {
    const LearnVerdict v = session.learned_table();
    if (v.passed) {
        session.save_table(o.learn);
        if (!o.quiet)
            std::fprintf(stderr, "vorl: learned table saved to %s (%u update%s)\n", o.learn.c_str(), v.updates,
                         v.updates == 1 ? "" : "s");
        const LearningTally &tally = session.learning_tally();
        if (v.updates == 0 && !o.quiet) {
            cli::warn("nothing was learned: " + tally.why_nothing(session.working_parameters()));
            // An offset adds to every period's power, so no reference is
            // quiet and no drive looks like motor noise alone.
            const InputCheck &input = engine.input_check();
            if (std::max(std::abs(input.offset(0)), std::abs(input.offset(1))) >= kNoticeableOffset) {
                char m[200];
                std::snprintf(m, sizeof m,
                              "%s has a DC offset (left %.0f, right %.0f of 32768), which the learning tests take "
                              "for sound; --dc-cut takes it out",
                              o.in.c_str(), input.offset(0), input.offset(1));
                cli::warn(m);
            } else if (tally.motor_test_failed()) {
                cli::warn("\"vorl table fit\" makes a table for a camera from a calibration take");
            }
        }
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

// Feeds IN to the engine at IN's rate; the engine writes OUT directly.
void run_at_input_rate(ReadAhead &in, EngineStream &engine, Progress &progress) {
    const int16_t *frames = nullptr;
    while (const std::size_t n = in.read_in_place(frames, kReadFrames)) {
        engine.push(frames, n);
        progress.update(in.frames_read());
    }
}

}  // namespace

int run_process(int argc, char **argv, int first) {
    const Options o = parse(argc, argv, first);
    check_paths(o);

    const std::unique_ptr<SampleReader> source = open_recording(o.in, /*dither=*/true);
    SampleReader &in = *source;
    const auto *file_in = dynamic_cast<const AudioReader *>(source.get());
    in.require_stereo();
    const int rate = in.sample_rate();
    const bool resample = rate != kTunedRate && !o.no_resample;
    const int engine_rate = resample ? kTunedRate : rate;
    if (!o.quiet) {
        if (file_in != nullptr && file_in->loses_in_16bit())
            cli::warn(in.name() + ": " + file_in->format_name() + " input is reduced to 16-bit for the noise reducer" +
                      (file_in->is_wider_than_16bit() || resample ? " (TPDF dither)" : ""));
        if (rate != kTunedRate && !resample)
            cli::warn(in.name() + ": sample rate " + std::to_string(rate) + " Hz processed as it is (--no-resample); " +
                      (o.table.empty() ? "the built-in table is tuned for 48000 Hz"
                                       : "make sure " + o.table + " is tuned for it"));
    }

    // Drive state that does not fit the recording is found before any work.
    // A drive file counts the engine's blocks (at 48 kHz when resampled).
    const auto engine_frames = [&](int64_t frames) { return frames_at_rate(frames, rate, engine_rate); };
    // A video's coded sound is known only to within a codec frame or two of
    // what was recorded: its drive log may be that far off, and is no error.
    const auto drive_problems = [&](int64_t frames) {
        auto problems = o.drive.mismatches(engine_frames(frames), engine_rate, in.name(), rate);
        const int64_t blocks = (engine_frames(frames) + VORL_BLOCK_FRAMES - 1) / VORL_BLOCK_FRAMES;
        const bool coded = file_in == nullptr && o.drive.uses_file() && o.drive.file_within(blocks, kCodedLengthSlack);
        for (std::string &p : problems) p += coded ? " (within a coded stream's precision)" : "";
        return std::make_pair(problems, coded);
    };
    if (in.frames() >= 0) {
        const auto [problems, coded] = drive_problems(in.frames());
        for (std::size_t i = 0; i < problems.size(); ++i) {
            if (coded) {
                if (!o.quiet) cli::warn(problems[i]);
                continue;
            }
            if (o.strict && i + 1 == problems.size()) cli::input_error(problems[i] + " (--strict)");
            if (o.strict)
                std::fprintf(stderr, "vorl: %s\n", problems[i].c_str());
            else if (!o.quiet)
                cli::warn(problems[i]);
        }
    }

    const st_vorl_tbl table = o.table.empty() ? default_table() : read_table(o.table);
    const std::string table_name = o.table.empty() ? "built-in table" : o.table;
    // A table that breaks a rule is refused before any output exists; a
    // damaged one (wrong checksum) the library refuses even with --force.
    if (!o.table.empty()) {
        const std::string what = broken_rules(o.table, table);
        if (!what.empty()) {
            if (!o.force) cli::input_error(what + "; --force uses it anyway");
            if (!o.quiet) cli::warn(what);
        }
    }
    DriveSchedule drive = o.drive;
    const bool detecting = !o.drive_given && !o.no_detect;
    DriveTally detected;
    if (detecting) {
        // A first pass: standard input from its spooled copy, rewound after;
        // a file through a reader of its own.
        const st_vorl_tbl *informs = o.table.empty() ? nullptr : &table;
        std::vector<DriveWords> words;
        if (o.in == "-") {
            words = detect_input_drives(in, informs, engine_rate);
            dynamic_cast<AudioReader &>(in).rewind();
        } else {
            const std::unique_ptr<SampleReader> pass = open_recording(o.in, /*dither=*/true);
            words = detect_input_drives(*pass, informs, engine_rate);
        }
        detected = tally_drives(words, engine_rate);
        drive = DriveSchedule::from_words(words);
        if (detected.drives == 0 && !o.quiet)
            cli::warn(in.name() + ": no drives detected, so the noise reducer removes nothing; if the lens motor "
                      "ran, give --drive or ranges (the detector knows a motor by the channel difference it adds, "
                      "and \"vorl table fit\" warns when a camera's motor does not show that way)");
    } else if (!o.drive_given && !o.quiet) {
        cli::warn("no drive state and --no-detect: the noise reducer removes nothing");
    }
    HostSession session(table, table_name, o.pulse);
    if (drive.has_af()) session.follow_autofocus_word();

    if (resample && !o.removed.empty())
        cli::usage_error("--removed needs IN at 48000 Hz or --no-resample; --output removed gives the removed "
                         "sound at " + std::to_string(rate) + " Hz in a run of its own");
    const int format = output_format(o, o.out, in);
    const std::unique_ptr<SampleWriter> out_file = open_output(o, o.out, in, format);
    const std::unique_ptr<SampleWriter> removed_file =
        o.removed.empty() ? nullptr : open_output(o, o.removed, in, output_format(o, o.removed, in));
    // Files are read, decoded, encoded and written while the engine works.
    WriteBehind out(*out_file, kFileChunkFrames);
    const std::unique_ptr<WriteBehind> removed =
        removed_file ? std::make_unique<WriteBehind>(*removed_file, kFileChunkFrames) : nullptr;
    ReadAhead ahead(in, kFileChunkFrames);
    Progress progress(!o.quiet, in.frames(), rate);
    const auto started = std::chrono::steady_clock::now();
    std::unique_ptr<RateBridge> bridge;
    if (resample)
        bridge = std::make_unique<RateBridge>(rate, kTunedRate, !o.raw, out,
                                              format != 0 && (format & SF_FORMAT_SUBMASK) != SF_FORMAT_PCM_16);
    const EngineStream::Sink to_out = [&](const int16_t *p, std::size_t n) {
        bridge ? bridge->take(p, n) : out.write(p, n);
    };
    EngineStream engine(session, drive, engine_rate, o.dc_cut, o.raw,
                        o.out_is_removed ? [](const int16_t *, std::size_t) {} : to_out);
    if (o.strength < 1 || removed || o.out_is_removed)
        engine.mix(o.strength, o.out_is_removed ? to_out
                               : removed        ? [&](const int16_t *p, std::size_t n) { removed->write(p, n); }
                                                : EngineStream::Sink());
    if (o.prime && o.learn.empty()) engine.prime_at_start();
    if (bridge)
        bridge->run(ahead, engine, progress, kReadFrames);
    else
        run_at_input_rate(ahead, engine, progress);
    if (in.frames_read() == 0) cli::input_error(in.name() + ": holds no audio samples");
    if (!bridge) engine.finish();
    progress.finish();
    out.commit();
    if (removed) removed->commit();

    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const int64_t frames = in.frames_read();
    // The recording's blocks, as many as its drive file has lines (the
    // engine runs a few more to flush its latency).
    const int64_t blocks = (engine_frames(frames) + VORL_BLOCK_FRAMES - 1) / VORL_BLOCK_FRAMES;
    if (!o.drive_out.empty()) {
        std::vector<DriveWords> used(static_cast<std::size_t>(blocks));
        for (int64_t b = 0; b < blocks; ++b) used[static_cast<std::size_t>(b)] = drive.at(b, engine_rate);
        write_drive_file(o.drive_out, used);
    }
    const uint32_t updates = session.learn_count();
    const std::string premature = in.premature_end();
    if (!premature.empty()) cli::warn(in.name() + ": " + premature);
    if (!o.quiet) {
        const uint64_t clipped = in.clipped() + (bridge ? bridge->input_clipped() : 0);
        for (const std::string &w : conversion_warnings(in.name(), clipped, in.not_numbers())) cli::warn(w);
        if (engine.saturated() > 0)
            cli::warn(std::to_string(engine.saturated()) +
                      " output sample(s) at full scale where the input was not (the noise reducer saturates there)");
        if (bridge && bridge->output_clipped() > 0)
            cli::warn(std::to_string(bridge->output_clipped()) + " output sample(s) clipped after resampling back");
        for (const std::string &w : engine.input_check().warnings()) cli::warn(in.name() + ": " + w);
        if (frames != in.frames())  // the length became known, or proved shorter, only now
            for (const auto &p : drive_problems(frames).first) cli::warn(p);
        const double duration = static_cast<double>(frames) / rate;
        const std::string out_name = cli::output_name(o.out);
        std::string notes;
        if (detecting) {
            char found[64];
            std::snprintf(found, sizeof found, ", drives detected: %d, %.1f s", detected.drives, detected.seconds);
            notes += found;
        }
        if (resample) notes += ", resampled " + std::to_string(rate) + " Hz -> 48000 Hz and back";
        if (const std::string encoding = out_file->encoding(); !encoding.empty())
            notes += ", new audio " + encoding;
        std::fprintf(stderr, "vorl: %s -> %s: %.2f s, %lld blocks, %.1fx real time, %u learning update%s%s\n",
                     in.name().c_str(), out_name.c_str(), duration, static_cast<long long>(blocks),
                     seconds > 0 ? duration / seconds : 0.0, updates, updates == 1 ? "" : "s", notes.c_str());
    }
    return o.learn.empty() ? cli::kExitOk : report_learning(o, session, engine);
}

}  // namespace vorl
