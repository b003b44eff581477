// vorl_eval: runs generated scenes through the library and the oracle and
// prints the figures of "vorl measure" per scene type.
#include <cmath>
#include <cstdio>
#include <exception>
#include <map>

#include "camera_fit.h"
#include "evaluate.h"
#include "scene_args.h"
#include "drive_detector.h"
#include "drive_schedule.h"
#include "table_store.h"

namespace {

using scenekit::DriveMeasure;
using scenekit::DriveWords;
using scenekit::SceneResult;

const char kUsage[] = R"(usage: vorl_eval [--table FILE] [--fit-seed N | --noise-table] [--types LIST] [--cameras LIST]
                 [--seeds LIST] [--seconds S] [--drive-dir DIR | --detect] [--per-scene]
                 [--no-prime] [--ceiling]

Generates each scene of the selection, processes its noisy recording with
the library exactly as "vorl process" does (time-aligned), and with the
oracle (the per-bin Wiener gain of the true content and noise, on frames
that overlap drives), and prints per scene type:
  drive atten    10 log10(E[noisy-clean] / E[processed-clean]) over driven
                 blocks (zoom or af word set), in dB
  oracle         the same for the oracle; below: how far the library is
                 under it
  quiet dist     10 log10(E[processed-noisy] / E[noisy]) outside drives
  level          10 log10(E[processed] / E[noisy]) outside drives
Energies are pooled over the scenes of a type. Drives are always those of
the scene's true words.

  --table FILE     tuning table (default: the built-in table)
  --fit-seed N     each camera's scenes get the table "vorl table fit" makes
                   from that camera's calibration take of seed N (as
                   vorl_scenes --calibration writes it), with --table or
                   the built-in table as its base; N should lie outside
                   the scenes' seeds (the held-out scenes use 1000-1002)
  --noise-table    each scene gets the table "vorl table fit" makes from
                   the scene's own drive noise (its zoom and autofocus
                   components alone, with its drive words), with --table
                   or the built-in table as its base: what a fit reaches
                   when it knows the very noise it will meet (slow: one fit
                   per scene)
  --types, --cameras, --seeds, --seconds   as for vorl_scenes (defaults:
                   every type on the held-out cameras 8-11, seeds 1000-1002)
  --drive-dir DIR  the library gets the drive words of DIR/NAME-drive.txt
                   (NAME as vorl_scenes names it) instead of the true ones
  --detect         the library gets the drive detector's words (informed
                   by --table when given); prints per type the detector's
                   block F1 of zoom blocks, its false drive time (% of the
                   blocks without drive), the drive attenuation with the
                   true words and with the detected words and their
                   difference, the quiet distortion with the detected
                   words and (true) with the true ones, the level change
                   with the detected words, and the F1 of wind blocks
  --ceiling        also the difference model's reach: the engine's gain
                   rule with each bin's ideal coefficient (the scene's own
                   ratio of channel noise to difference noise), the best
                   over-estimation and smoothing for the scene and the
                   table's floor; "model" is its drive attenuation and
                   "to model" how far the table is under it (the rest of
                   "below" is the model's, which no table can close);
                   "alike" is the model's reach with the content's own
                   channel difference ignored: its lead over "model" is
                   what the content's width costs the model, its distance
                   to the oracle what one frame's difference power cannot
                   tell of that frame's noise
  --per-scene      also one line per scene
  --no-prime       do not prime the library with the recording's start (as
                   vorl process --no-prime): its gain fades in over the
                   first blocks
Exit status: 0 success, 1 usage error, 2 input error.
)";

// What one scene type adds up to.
struct Totals {
    int scenes = 0;
    SceneResult given;            // with the words the library was given
    DriveMeasure true_words;      // --detect: the library with the true words
    DriveMeasure ceiling;         // --ceiling: the difference model's reach
    DriveMeasure alike;           // --ceiling: the same with the content's channel difference ignored
    int64_t zoom_hit = 0, zoom_false = 0, zoom_missed = 0;  // zoom blocks
    int64_t idle = 0, idle_driven = 0;                      // blocks without drive
    int64_t wind_hit = 0, wind_false = 0, wind_missed = 0;

    void add_detection(const std::vector<DriveWords> &truth, const std::vector<DriveWords> &found) {
        for (std::size_t b = 0; b < truth.size(); ++b) {
            const DriveWords f = b < found.size() ? found[b] : DriveWords{};
            const bool zt = truth[b].zoom != 0, zf = f.zoom != 0, wt = truth[b].wind != 0, wf = f.wind != 0;
            zoom_hit += zt && zf;
            zoom_false += !zt && zf;
            zoom_missed += zt && !zf;
            wind_hit += wt && wf;
            wind_false += !wt && wf;
            wind_missed += wt && !wf;
            if (!truth[b].driven()) {
                idle++;
                idle_driven += f.driven();
            }
        }
    }
};

double f1(int64_t hit, int64_t wrong, int64_t missed) {
    return hit + wrong + missed == 0 ? 1.0 : 2.0 * hit / static_cast<double>(2 * hit + wrong + missed);
}

void print_header(bool detect, bool ceiling) {
    if (detect)
        std::printf("%-18s %6s %8s %8s %11s %9s %7s %11s %9s %7s %7s\n", "type", "scenes", "zoom F1", "false %",
                    "atten true", "detected", "diff", "quiet dist", "(true)", "level", "wind F1");
    else
        std::printf("%-18s %6s %8s %12s %8s %8s%s %11s %7s\n", "type", "scenes", "drive s", "drive atten", "oracle",
                    "below", ceiling ? "    model to model    alike" : "", "quiet dist", "level");
}

void print_row(const std::string &label, const Totals &t, bool detect, bool ceiling) {
    const DriveMeasure &lib = t.given.library;
    const double atten = lib.drives.attenuation_db(), ideal = t.given.oracle.drives.attenuation_db();
    if (detect) {
        const double with_truth = t.true_words.drives.attenuation_db();
        const bool windy = t.wind_hit + t.wind_missed > 0;
        char wind[16] = "-";
        if (windy) std::snprintf(wind, sizeof wind, "%.3f", f1(t.wind_hit, t.wind_false, t.wind_missed));
        std::printf("%-18s %6d %8.3f %8.2f %8.2f dB %9.2f %7.2f %8.2f dB %9.2f %7.2f %7s\n", label.c_str(), t.scenes,
                    f1(t.zoom_hit, t.zoom_false, t.zoom_missed), t.idle ? 100.0 * t.idle_driven / t.idle : 0.0,
                    with_truth, atten, with_truth - atten, lib.outside.difference_db(),
                    t.true_words.outside.difference_db(), lib.outside.level_change_db(), wind);
        return;
    }
    char reach[48] = "";
    if (ceiling) {
        const double model = t.ceiling.drives.attenuation_db();
        std::snprintf(reach, sizeof reach, " %8.2f %8.2f %8.2f", model, model - atten,
                      t.alike.drives.attenuation_db());
    }
    std::printf("%-18s %6d %8.1f %9.2f dB %8.2f %8.2f%s %8.2f dB %7.2f\n", label.c_str(), t.scenes,
                lib.drives.blocks * 256.0 / scenekit::kSampleRate, atten, ideal, ideal - atten, reach,
                lib.outside.difference_db(), lib.outside.level_change_db());
}

}  // namespace

int main(int argc, char **argv) {
    using namespace scenekit;
    const Args args = parse_args(argc, argv, {"table", "fit-seed", "types", "cameras", "seeds", "seconds", "drive-dir"},
                                 {"per-scene", "detect", "no-prime", "ceiling", "noise-table"}, kUsage);
    if (!args.positional.empty()) usage_error("unexpected argument " + args.positional[0], kUsage);
    const bool detect = args.has("detect"), per_scene = args.has("per-scene"), ceiling = args.has("ceiling");
    if (detect && ceiling) usage_error("--detect and --ceiling exclude each other", kUsage);
    const bool noise_table = args.has("noise-table");
    if (args.has("fit-seed") && noise_table) usage_error("--fit-seed and --noise-table exclude each other", kUsage);
    if (detect && args.has("drive-dir")) usage_error("--detect and --drive-dir exclude each other", kUsage);
    const SceneSelection sel = parse_selection(args, kUsage);
    try {
        const st_vorl_tbl given = args.has("table") ? vorl::read_table(args.get("table", "")) : vorl::default_table();
        const bool fitted = args.has("fit-seed");
        const uint64_t fit_seed = fitted ? parse_seed(args, "fit-seed", kUsage) : 0;
        std::map<int, st_vorl_tbl> camera_tables;
        std::map<SceneType, Totals> by_type;
        if (per_scene) print_header(detect, ceiling);
        for (const SceneId &id : sel.ids()) {
            if (fitted && !camera_tables.count(id.camera))
                camera_tables.emplace(id.camera, fit_camera_table(id.camera, fit_seed, given));
            const Scene scene = make_scene(id, sel.seconds);
            const st_vorl_tbl table = noise_table ? fit_noise_table(scene, given)
                                      : fitted    ? camera_tables.at(id.camera)
                                                  : given;
            std::vector<DriveWords> words = scene.words;
            if (args.has("drive-dir")) {
                const auto given = vorl::DriveSchedule::from_file(args.get("drive-dir", "") + "/" + id.name() + "-drive.txt");
                for (std::size_t b = 0; b < words.size(); ++b) words[b] = given.at(static_cast<int64_t>(b), kSampleRate);
            }
            if (detect) words = vorl::detect_drives(scene.noisy.data(), scene.frames(), &table);
            const bool prime = !args.has("no-prime");
            Totals one;
            one.scenes = 1;
            one.given = evaluate(scene, table, words, prime);
            if (ceiling) {
                one.ceiling = model_ceiling(scene, table.st_vorl.nr_floor_coef);
                one.alike = model_ceiling(scene, table.st_vorl.nr_floor_coef, vorl::ContentDifference::ignored);
            }
            if (detect) {
                const Pcm truth_run = run_library(table, scene.noisy, scene.words, prime);
                one.true_words = vorl::measure_drives(scene.clean.data(), scene.noisy.data(), truth_run.data(),
                                                      scene.frames(), [&](std::size_t b) { return scene.words[b]; });
                one.add_detection(scene.words, words);
            }
            Totals &sum = by_type[id.type];
            sum.scenes++;
            sum.given.library += one.given.library;
            sum.given.oracle += one.given.oracle;
            sum.true_words += one.true_words;
            sum.ceiling += one.ceiling;
            sum.alike += one.alike;
            sum.zoom_hit += one.zoom_hit;
            sum.zoom_false += one.zoom_false;
            sum.zoom_missed += one.zoom_missed;
            sum.idle += one.idle;
            sum.idle_driven += one.idle_driven;
            sum.wind_hit += one.wind_hit;
            sum.wind_false += one.wind_false;
            sum.wind_missed += one.wind_missed;
            if (per_scene) print_row(id.name(), one, detect, ceiling);
        }
        if (per_scene) std::printf("\n");
        print_header(detect, ceiling);
        for (const auto &[type, sum] : by_type) print_row(name_of(type), sum, detect, ceiling);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "vorl_eval: %s\n", e.what());
        return 2;
    }
    return 0;
}
