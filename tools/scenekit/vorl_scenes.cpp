// vorl_scenes: writes synthetic test scenes (or calibration takes) as WAV
// and drive files.
#include <cstdio>
#include <exception>

#include "scene_args.h"
#include "drive_schedule.h"
#include "scene_files.h"

namespace {

const char kUsage[] = R"(usage: vorl_scenes OUTDIR [--types LIST] [--cameras LIST] [--seeds LIST] [--seconds S]
       vorl_scenes OUTDIR --calibration [--cameras LIST] [--seeds LIST]

Writes every scene of the selection (scene type x camera x seed) into
OUTDIR as NAME-clean.wav (content only), NAME-zoom.wav, NAME-af.wav,
NAME-wind.wav (the noise components), NAME-noisy.wav (their sum) and
NAME-drive.txt (the true drive words, the format of vorl process --drive),
NAME being TYPE-cCAMERA-sSEED. 16-bit stereo at 48 kHz.

  --types LIST     speech,music,mixed,quiet,loud,wind,af or all (default all)
  --cameras LIST   camera ids, e.g. 1,3,8-11 (default: held out, 8-11)
  --seeds LIST     scene seeds (default: held out, 1000-1002)
  --seconds S      scene length (default 20)
  --calibration    instead: a 30 s calibration take per camera and seed
                   (quiet room, zoom-in and zoom-out drives, autofocus moves),
                   named calibration-cCAMERA-sSEED
See docs/scenes.md for which cameras and seeds are for tuning.
)";

}  // namespace

int main(int argc, char **argv) {
    using namespace scenekit;
    const Args args = parse_args(argc, argv, {"types", "cameras", "seeds", "seconds"}, {"calibration"}, kUsage);
    if (args.positional.size() != 1) usage_error("give one output folder", kUsage);
    const SceneSelection sel = parse_selection(args, kUsage);
    const std::string dir = args.positional[0];
    try {
        if (args.has("calibration")) {
            for (int camera : sel.cameras)
                for (uint64_t seed : sel.seeds) {
                    Scene take = make_calibration(camera, seed);
                    const std::string base = dir + "/calibration-c" + std::to_string(camera) + "-s" + std::to_string(seed);
                    write_wav(base + ".wav", take.noisy);
                    vorl::write_drive_file(base + "-drive.txt", take.words);
                }
            return 0;
        }
        for (const SceneId &id : sel.ids())
            write_scene(dir, make_scene(id, sel.seconds));
    } catch (const std::exception &e) {
        std::fprintf(stderr, "vorl_scenes: %s\n", e.what());
        return 2;
    }
    return 0;
}
