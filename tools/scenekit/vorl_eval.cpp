// vorl_eval: runs generated scenes through the library and the oracle and
// prints the figures of "vorl measure" per scene type.
#include <cmath>
#include <cstdio>
#include <exception>
#include <map>

#include "evaluate.h"
#include "scene_args.h"
#include "drive_schedule.h"
#include "table_store.h"

namespace {

const char kUsage[] = R"(usage: vorl_eval [--table FILE] [--types LIST] [--cameras LIST] [--seeds LIST]
                 [--seconds S] [--drive-dir DIR] [--per-scene]

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
  --types, --cameras, --seeds, --seconds   as for vorl_scenes (defaults:
                   every type on the held-out cameras 8-11, seeds 1000-1002)
  --drive-dir DIR  the library gets the drive words of DIR/NAME-drive.txt
                   (NAME as vorl_scenes names it) instead of the true ones
  --per-scene      also one line per scene
Exit status: 0 success, 1 usage error, 2 input error.
)";

void print_header() {
    std::printf("%-18s %6s %8s %12s %8s %8s %11s %7s\n", "type", "scenes", "drive s", "drive atten", "oracle", "below",
                "quiet dist", "level");
}

void print_row(const std::string &label, int scenes, const scenekit::SceneResult &r) {
    const double atten = r.library.drives.attenuation_db(), ideal = r.oracle.drives.attenuation_db();
    std::printf("%-18s %6d %8.1f %9.2f dB %8.2f %8.2f %8.2f dB %7.2f\n", label.c_str(), scenes,
                r.library.drives.blocks * 256.0 / scenekit::kSampleRate, atten, ideal, ideal - atten,
                r.library.outside.difference_db(), r.library.outside.level_change_db());
}

}  // namespace

int main(int argc, char **argv) {
    using namespace scenekit;
    const Args args =
        parse_args(argc, argv, {"table", "types", "cameras", "seeds", "seconds", "drive-dir"}, {"per-scene"}, kUsage);
    if (!args.positional.empty()) usage_error("unexpected argument " + args.positional[0], kUsage);
    const SceneSelection sel = parse_selection(args, kUsage);
    try {
        const st_vorl_tbl table = args.has("table") ? vorl::read_table(args.get("table", "")) : vorl::default_table();
        std::map<SceneType, std::pair<int, SceneResult>> by_type;
        if (args.has("per-scene")) print_header();
        for (const SceneId &id : sel.ids()) {
            const Scene scene = make_scene(id, sel.seconds);
            std::vector<DriveWords> words = scene.words;
            if (args.has("drive-dir")) {
                const auto given = vorl::DriveSchedule::from_file(args.get("drive-dir", "") + "/" + id.name() + "-drive.txt");
                for (std::size_t b = 0; b < words.size(); ++b) words[b] = given.at(static_cast<int64_t>(b), kSampleRate);
            }
            const SceneResult r = evaluate(scene, table, words);
            auto &sum = by_type[id.type];
            sum.first++;
            sum.second.library += r.library;
            sum.second.oracle += r.oracle;
            if (args.has("per-scene")) print_row(id.name(), 1, r);
        }
        if (args.has("per-scene")) std::printf("\n");
        print_header();
        for (const auto &[type, sum] : by_type) print_row(name_of(type), sum.first, sum.second);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "vorl_eval: %s\n", e.what());
        return 2;
    }
    return 0;
}
