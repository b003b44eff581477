// The Python module's native part (vorl._vorl): the vorl tool's processing
// and table kit on numpy arrays and bytes.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "recordings.h"
#include "cli.h"
#include "fit_table.h"
#include "drive_detector.h"
#include "engine_stream.h"
#include "host_session.h"
#include "table_checksum.h"
#include "table_curves.h"
#include "table_json.h"
#include "table_rules.h"
#include "measure_figures.h"
#include "time_alignment.h"
#include "table_store.h"

namespace py = pybind11;

namespace {

constexpr py::ssize_t kBlock = VORL_BLOCK_FRAMES;
constexpr py::ssize_t kDelay = VORL_DELAY_FRAMES;
constexpr py::ssize_t kBins = 256;

using Pcm = py::array_t<int16_t, py::array::c_style | py::array::forcecast>;
using Words = py::array_t<int64_t, py::array::c_style | py::array::forcecast>;

// A table's bytes from bytes or anything bytes() takes (bytearray,
// memoryview, a numpy uint8 array); a path is named as the likely mistake.
std::string table_bytes(const py::object &table) {
    if (!py::isinstance<py::str>(table) && !py::isinstance<py::int_>(table))
        if (PyObject *bytes = PyBytes_FromObject(table.ptr())) return py::reinterpret_steal<py::bytes>(bytes);
    PyErr_Clear();
    const std::string type = py::str(py::type::of(table).attr("__name__"));
    throw py::type_error("a table must be a tuning table's bytes, got " + type +
                         (py::isinstance<py::str>(table) || py::hasattr(table, "__fspath__")
                              ? " (read_table(path) reads a table file)"
                              : ""));
}

st_vorl_tbl table_of(const py::object &table) {
    if (table.is_none()) return vorl::default_table();
    const std::string bytes = table_bytes(table);
    if (bytes.size() != sizeof(st_vorl_tbl))
        throw py::value_error("a tuning table has " + std::to_string(sizeof(st_vorl_tbl)) + " bytes, not " +
                              std::to_string(bytes.size()));
    st_vorl_tbl t;
    std::memcpy(&t, bytes.data(), sizeof t);
    return t;
}

// As `vorl process` takes a table file: one that breaks a rule is refused
// unless forced; a damaged one (wrong checksum) the library refuses itself.
st_vorl_tbl usable_table(const py::object &table, bool force) {
    const st_vorl_tbl t = table_of(table);
    if (force || vorl::tablekit::checksum(t) != t.check_sum) return t;
    if (const auto broken = vorl::tablekit::check_table_rules(t); !broken.empty())
        throw vorl::cli::Failure(vorl::cli::kExitInput, "table: " + vorl::tablekit::summarise(broken) +
                                                            " (check_table lists them); force=True uses it anyway");
    return t;
}

// Stereo audio is (frames, 2); a channels-first array is the usual slip.
void check_stereo(const Pcm &audio) {
    if (audio.ndim() == 2 && audio.shape(1) == 2) return;
    std::string shape;
    for (py::ssize_t d = 0; d < audio.ndim(); ++d) shape += (d ? ", " : "") + std::to_string(audio.shape(d));
    if (audio.ndim() == 1) shape += ",";
    throw py::value_error("audio has shape (" + shape + "), not (frames, 2) of a stereo recording" +
                          (audio.ndim() == 2 && audio.shape(0) == 2 ? "; channels first? pass audio.T" : ""));
}

py::bytes bytes_of(const st_vorl_tbl &t) { return py::bytes(reinterpret_cast<const char *>(&t), sizeof t); }

// Drive words per block, checked as the tool checks a drive file.
std::vector<vorl::DriveWords> words_of(const py::object &drive) {
    std::vector<vorl::DriveWords> words;
    if (drive.is_none()) return words;
    // Floats (np.loadtxt gives them) are taken when they hold whole numbers;
    // a cast would turn 1.5 into 1 without a word.
    const py::array given = py::array::ensure(drive);
    if (!given) throw py::value_error("drive must be an array of whole numbers, shape (blocks, 3)");
    const char kind = given.dtype().kind();
    if (kind == 'f') {
        const auto values = given.cast<py::array_t<double, py::array::c_style | py::array::forcecast>>();
        const double *v = values.data();
        for (py::ssize_t i = 0; i < values.size(); ++i)
            if (!(std::isfinite(v[i]) && v[i] == std::floor(v[i]))) {
                char text[96];
                std::snprintf(text, sizeof text, "drive block %zd holds %g, not a whole number", i / 3, v[i]);
                throw py::value_error(text);
            }
    } else if (kind != 'i' && kind != 'u' && kind != 'b') {
        throw py::value_error("drive must be an array of whole numbers, shape (blocks, 3)");
    }
    const Words a = given.cast<Words>();
    if (a.ndim() != 2 || a.shape(1) != 3) throw py::value_error("drive must have shape (blocks, 3): zoom, af, wind");
    const auto r = a.unchecked<2>();
    for (py::ssize_t b = 0; b < a.shape(0); ++b) {
        const int64_t zoom = r(b, 0), af = r(b, 1), wind = r(b, 2);
        if (zoom < 0 || zoom > 2 || af < 0 || af > 0xffffffffLL || (wind != 0 && wind != 1))
            throw py::value_error("drive block " + std::to_string(b) +
                                  ": zoom must be 0..2, af a non-negative 32-bit value, wind 0 or 1");
        words.push_back({static_cast<uint32_t>(zoom), static_cast<uint32_t>(af), static_cast<uint32_t>(wind)});
    }
    return words;
}

// Runs a recording as `vorl process` does (time-aligned, as long as the
// input). Returns (output, gains, warnings): with `gains`, the suppression
// gain of every block (gains[b] is the gain of the frame made of input
// blocks b and b+1, centred on input frame 256*(b+1)), else None; and what
// the tool would warn of in the input.
py::object process(const Pcm &audio, const py::object &drive, const py::object &table, bool pulse, bool dc_cut,
                   double strength, bool prime, bool gains, bool force) {
    check_stereo(audio);
    if (!(strength >= 0.0 && strength <= 1.0)) throw py::value_error("strength must be between 0 and 1");
    const vorl::DriveSchedule schedule = vorl::DriveSchedule::from_words(words_of(drive));
    vorl::HostSession session(usable_table(table, force), table.is_none() ? "built-in table" : "table", pulse);
    if (schedule.has_af()) session.follow_autofocus_word();

    const py::ssize_t frames = audio.shape(0);
    const py::ssize_t blocks = (frames + kBlock - 1) / kBlock;
    Pcm out({frames, py::ssize_t{2}});
    py::array_t<float> gain({blocks, py::ssize_t{2}, kBins});
    int16_t *next = out.mutable_data();
    float *g = gain.mutable_data();
    std::vector<std::string> faults;
    {
        py::gil_scoped_release unlocked;
        vorl::EngineStream stream(session, schedule, 48000, dc_cut, false, [&](const int16_t *s, std::size_t n) {
            next = std::copy(s, s + 2 * n, next);
        });
        if (strength < 1.0) stream.mix(strength, nullptr);
        if (prime) stream.prime_at_start();
        // The frame the library analyses with block b holds input blocks b-3 and b-2.
        if (gains)
            stream.after_each_block([&](int64_t b) {
                if (b >= 3 && b - 3 < blocks)
                    std::memcpy(g + (b - 3) * 2 * kBins, session.workspace().gain_prev, sizeof(float) * 2 * kBins);
            });
        stream.push(audio.data(), static_cast<std::size_t>(frames));
        stream.finish();
        faults = stream.input_check().warnings();
    }
    py::list warnings;
    for (const std::string &f : faults) warnings.append(f);
    return py::make_tuple(out, gains ? py::object(gain) : py::none(), warnings);
}

// Drive words as an array, one row "zoom af wind" per block.
Words array_of(const std::vector<vorl::DriveWords> &found) {
    Words words({static_cast<py::ssize_t>(found.size()), py::ssize_t{3}});
    auto w = words.mutable_unchecked<2>();
    for (std::size_t b = 0; b < found.size(); ++b) {
        const auto i = static_cast<py::ssize_t>(b);
        w(i, 0) = found[b].zoom, w(i, 1) = found[b].af, w(i, 2) = found[b].wind;
    }
    return words;
}

// The drive words the tool detects when it is given none (vorl process
// without drive options), one row "zoom af wind" per block.
Words detect(const Pcm &audio, const py::object &table) {
    check_stereo(audio);
    const st_vorl_tbl t = table_of(table);
    std::vector<vorl::DriveWords> found;
    {
        py::gil_scoped_release unlocked;
        found = vorl::detect_drives(audio.data(), static_cast<std::size_t>(audio.shape(0)),
                                    table.is_none() ? nullptr : &t);
    }
    return array_of(found);
}

// Every rule a usable table keeps (checksum and version included).
std::vector<std::pair<std::string, std::string>> check_table(const py::object &table) {
    std::vector<std::pair<std::string, std::string>> found;
    for (const auto &v : vorl::tablekit::check_table_rules(table_of(table))) found.emplace_back(v.where, v.problem);
    return found;
}

// The rules a table breaks in the tool's words ("breaks N table rules,
// first WHERE: PROBLEM"), "" when none.
std::string rule_summary(const py::object &table) {
    const auto broken = vorl::tablekit::check_table_rules(table_of(table));
    return broken.empty() ? "" : vorl::tablekit::summarise(broken);
}

// A drive file as the tool reads it: (blocks, 3) words "zoom af wind".
Words read_drive(const std::string &path) {
    const vorl::DriveSchedule schedule = vorl::DriveSchedule::from_file(path);
    std::vector<vorl::DriveWords> words(schedule.file_blocks());
    for (std::size_t b = 0; b < words.size(); ++b)
        words[b] = schedule.at(static_cast<int64_t>(b), 48000.0);  // a file's words: the rate plays no part
    return array_of(words);
}

// The words of the drive file `name` for each block of a recording called
// `audio`, of `frames` frames at `rate` Hz that is processed at
// `engine_rate` (48 kHz where vorl process resamples it), read as vorl
// measure reads them; and what does not fit, in vorl process's words.
std::pair<Words, std::vector<std::string>> drive_for_recording(const py::object &drive, const std::string &name,
                                                               int64_t frames, int rate, const std::string &audio,
                                                               int engine_rate) {
    const auto schedule = vorl::DriveSchedule::from_words(words_of(drive), name);
    std::vector<vorl::DriveWords> words(static_cast<std::size_t>((frames + 255) / 256));
    for (std::size_t b = 0; b < words.size(); ++b)
        words[b] = schedule.at_engine_rate(static_cast<int64_t>(b), rate, engine_rate);
    return {array_of(words),
            schedule.mismatches(vorl::frames_at_rate(frames, rate, engine_rate), engine_rate, audio, rate)};
}

// The words of the tool's drive ranges ({"zoom-in": "1.5-3.2,8-9", ...})
// for each block of a recording called `audio`, of `frames` frames at
// `rate` Hz, and the ranges that reach past its end, in vorl process's
// words. Malformed or overlapping ranges raise Error.
std::pair<Words, std::vector<std::string>> drive_from_range_options(const std::map<std::string, std::string> &ranges,
                                                                    int64_t frames, int rate,
                                                                    const std::string &audio) {
    vorl::DriveSchedule schedule;
    for (const auto &[option, value] : ranges) {
        if (option == "zoom-in") schedule.add_zoom_in(value, option);
        else if (option == "zoom-out") schedule.add_zoom_out(value, option);
        else if (option == "af") schedule.add_af(value, option);
        else if (option == "wind") schedule.add_wind(value, option);
        else throw py::value_error("no drive option --" + option);
    }
    schedule.check_conflicts();
    std::vector<vorl::DriveWords> words(static_cast<std::size_t>((frames + kBlock - 1) / kBlock));
    for (std::size_t b = 0; b < words.size(); ++b) words[b] = schedule.at(static_cast<int64_t>(b), rate);
    return {array_of(words), schedule.mismatches(frames, rate, audio)};
}

// The figures of "vorl measure --json" for three time-aligned recordings
// of one length at `rate` Hz and their drive words per block (blocks past
// the drive's end idle); with `ceiling` the yardsticks that know the noise,
// at the floor of `table`.
std::string measure(const Pcm &clean, const Pcm &noisy, const Pcm &processed, const py::object &drive, int rate,
                    bool ceiling, const py::object &table) {
    for (const Pcm *a : {&clean, &noisy, &processed}) check_stereo(*a);
    if (clean.shape(0) != noisy.shape(0) || processed.shape(0) != noisy.shape(0))
        throw py::value_error("clean, noisy and processed must be of one length (" + std::to_string(clean.shape(0)) +
                              ", " + std::to_string(noisy.shape(0)) + ", " + std::to_string(processed.shape(0)) +
                              " frames)");
    vorl::check_sample_rate(rate, "audio");
    const vorl::DriveSchedule schedule = vorl::DriveSchedule::from_words(words_of(drive));
    const float floor = table_of(table).st_vorl.nr_floor_coef;
    const auto frames = static_cast<std::size_t>(noisy.shape(0));
    const vorl::BlockWordsAt words = [&](std::size_t b) { return schedule.at(static_cast<int64_t>(b), rate); };
    py::gil_scoped_release unlocked;
    const vorl::DriveMeasure m = vorl::measure_drives(clean.data(), noisy.data(), processed.data(), frames, words);
    return vorl::measure_figures(
               m, rate, ceiling ? vorl::ceiling_figures(clean.data(), noisy.data(), frames, words, floor)
                                : vorl::NamedFigures{})
        .json();
}

// Why `other` is not time-aligned with `reference` (as "vorl measure" says
// it), or "" when it is or no lag stands out.
std::string misalignment(const Pcm &reference, const Pcm &other, int rate, const std::string &name,
                         const std::string &reference_name) {
    const auto frames = static_cast<std::size_t>(std::min(reference.shape(0), other.shape(0)));
    const auto lag = vorl::find_lag(reference.data(), other.data(), frames, rate);
    return lag ? vorl::describe_lag(*lag, rate, name, reference_name) : "";
}

// Whether `other` holds `reference`'s channels swapped or in opposite
// polarity (as "vorl measure" says it), or "".
std::string channel_fault(const Pcm &reference, const Pcm &other, const std::string &name,
                          const std::string &reference_name) {
    const auto frames = static_cast<std::size_t>(std::min(reference.shape(0), other.shape(0)));
    return vorl::describe_channel_fault(reference.data(), other.data(), frames, name, reference_name);
}

// A whole recording as 16-bit stereo: an audio file or a video's sound;
// with what the way to 16 bits changed, in the tool's words.
py::tuple read_audio(const std::string &path) {
    const vorl::WholeRecording in = vorl::read_whole_recording(path);
    Pcm a({static_cast<py::ssize_t>(in.frames()), py::ssize_t{2}});
    std::memcpy(a.mutable_data(), in.samples.data(), in.samples.size() * sizeof(int16_t));
    return py::make_tuple(a, in.rate, vorl::conversion_warnings(in.name, in.clipped, in.not_numbers));
}

// A table fitted to a calibration take, as `vorl table fit` makes it:
// (table bytes, report text).
py::tuple fit_table(const Pcm &audio, const py::object &drive, const py::object &base, bool quick, int rate) {
    check_stereo(audio);
    vorl::check_sample_rate(rate, "take");
    const std::vector<vorl::DriveWords> words = words_of(drive);
    const std::size_t blocks = static_cast<std::size_t>((audio.shape(0) + kBlock - 1) / kBlock);
    if (words.size() != blocks)
        throw vorl::cli::Failure(vorl::cli::kExitInput, "drive has " + std::to_string(words.size()) +
                                                            " blocks, the take " + std::to_string(blocks));
    vorl::fit::Take take;
    take.samples = audio.data();
    take.frames = static_cast<std::size_t>(audio.shape(0));
    take.rate = rate;
    for (const auto &w : words) take.words.push_back(vorl::fit::block_words(w));
    vorl::fit::FitOptions options;
    options.choose_suppression = options.compare_learning = !quick;
    vorl::fit::FitResult result;
    {
        py::gil_scoped_release unlocked;
        result = vorl::fit::fit_table(take, table_of(base), options);
    }
    return py::make_tuple(bytes_of(result.table), vorl::fit::format_report(result));
}

}  // namespace

// The per-bin curves the engine rebuilds from a table's increments (the
// table kit's running sums): zoom-noise coefficient [channel][bin] with the
// fixed value above zspec_comp_max_freq, background templates
// [template][channel][bin] and the equaliser [bin], both clipped at 0 as
// the core applies them.
py::tuple table_curves(const py::object &table) {
    const st_vorl p = table_of(table).st_vorl;
    namespace kit = vorl::tablekit;
    py::array_t<float> coef({py::ssize_t{2}, kBins}), background({py::ssize_t{3}, py::ssize_t{2}, kBins}),
        equaliser({kBins});
    auto clipped = [](float v) { return v > 0.0f ? v : 0.0f; };
    for (int ch = 0; ch < 2; ++ch) {
        const kit::BinCurve z = kit::zoom_curve(p, ch);
        for (int i = 0; i < kBins; ++i)
            coef.mutable_at(ch, i) = i > p.zspec_comp_max_freq ? p.zspec_comp_replace_value : z[i];
        for (int d = 0; d < 3; ++d) {
            const kit::BinCurve b = kit::group_curve(p.back_ground_noise[d][ch]);
            for (int i = 0; i < kBins; ++i) background.mutable_at(d, ch, i) = clipped(b[i]);
        }
    }
    const kit::BinCurve e = kit::group_curve(p.eq_gain);
    for (int i = 0; i < kBins; ++i) equaliser.mutable_at(i) = clipped(e[i]);
    return py::make_tuple(coef, background, equaliser);
}

PYBIND11_MODULE(_vorl, m) {
    m.doc() = "libvorl's native part: processing and the table kit";
    static py::exception<vorl::cli::Failure> error(m, "Error", PyExc_ValueError);
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const vorl::cli::Failure &e) {
            error(e.what());
        } catch (const vorl::tablekit::JsonError &e) {
            error(e.what());
        } catch (const vorl::fit::FitError &e) {
            error(e.what());
        }
    });
    m.attr("BLOCK_FRAMES") = kBlock;
    m.attr("DELAY_FRAMES") = kDelay;
    m.attr("TABLE_BYTES") = sizeof(st_vorl_tbl);
    m.def("process", &process, py::arg("audio"), py::arg("drive") = py::none(), py::arg("table") = py::none(),
          py::arg("pulse") = false, py::arg("dc_cut") = false, py::arg("strength") = 1.0, py::arg("prime") = true, py::arg("gains") = false,
          py::arg("force") = false);
    m.def("read_audio", &read_audio, py::arg("path"));
    m.def("read_drive", &read_drive, py::arg("path"));
    m.def("misalignment", &misalignment);
    m.def("measure", &measure);
    m.def("channel_fault", &channel_fault);
    m.def("drive_for_recording", &drive_for_recording);
    m.def("drive_from_range_options", &drive_from_range_options);
    m.def("parse_ranges", [](const std::string &value, const std::string &option) {
        std::vector<std::pair<double, double>> out;
        for (const auto &r : vorl::parse_ranges(value, option)) out.emplace_back(r.start, r.end);
        return out;
    });
    m.def("fit_table", &fit_table, py::arg("audio"), py::arg("drive"), py::arg("base") = py::none(),
          py::arg("quick") = false, py::arg("rate") = 48000);
    m.def("detect", &detect, py::arg("audio"), py::arg("table") = py::none());
    m.def("default_table", [] { return bytes_of(vorl::default_table()); });
    m.def("table_to_json", [](const py::object &t) { return vorl::tablekit::table_to_json(table_of(t)); });
    m.def("table_from_json", [](const std::string &text) { return bytes_of(vorl::tablekit::table_from_json(text)); });
    m.def("check_table", &check_table);
    m.def("rule_summary", &rule_summary);
    m.def("table_curves", &table_curves, py::arg("table") = py::none());
    m.def("seal_table", [](const py::object &t) {
        st_vorl_tbl table = table_of(t);
        vorl::tablekit::seal(table);
        return bytes_of(table);
    });
}
