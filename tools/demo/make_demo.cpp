// Writes the demo: a 20-second stereo scene at 48 kHz with zoom drives in
// both directions and a stretch of wind (noisy.wav), the same scene without
// the drive and wind noise (clean.wav), and its drive file (drive.txt, one
// "zoom af wind" line per 256-frame block). Beside it, a calibration take of
// the same camera's motor in a quiet room (calibration.wav and
// calibration-drive.txt), from which the default table's zoom-noise
// coefficients were learned. Deterministic: the same files on every run.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "drive_schedule.h"
#include "scene_files.h"
#include "signals.h"

namespace {

namespace sk = scenekit;
using sk::Signal;

constexpr std::size_t kBlock = 256;
constexpr double kFarFieldDelay = 0.35;  // samples between the capsules

struct Drive {
    double start, end;  // seconds
    int zoom;           // 1 zoom-in, 2 zoom-out
};
constexpr double kZoomInSpeed = 1150.0, kZoomOutSpeed = 1020.0;  // motor revolutions per second

struct Take {
    double seconds;
    std::vector<Drive> drives;
    double wind_start, wind_end;  // equal: no wind
};

const Take kScene{20.0, {{2.0, 4.0, 1}, {6.0, 7.6, 2}, {12.0, 13.4, 1}, {16.5, 18.0, 2}}, 10.0, 15.5};
const Take kCalibration{12.0, {{0.5, 2.5, 1}, {3.5, 5.5, 2}, {6.5, 8.5, 1}, {9.5, 11.5, 2}}, 0.0, 0.0};

// The frames of the blocks whose first frame lies in [start, end): the rule
// "vorl process" uses for ranges, so the noise fills exactly the driven blocks.
std::size_t first_frame_at(double seconds) {
    return static_cast<std::size_t>(std::ceil(seconds * sk::kRate / kBlock)) * kBlock;
}

std::vector<sk::DriveWords> drive_words(const Take &take, std::size_t frames) {
    std::vector<sk::DriveWords> words(frames / kBlock);
    for (std::size_t b = 0; b < words.size(); ++b) {
        const double t = static_cast<double>(b * kBlock) / sk::kRate;
        for (const Drive &d : take.drives)
            if (d.start <= t && t < d.end) words[b].zoom = static_cast<uint32_t>(d.zoom);
        words[b].wind = take.wind_start <= t && t < take.wind_end ? 1 : 0;
    }
    return words;
}

// Adds the take's drive and wind noise to the scene and writes the files.
void write_take(const std::string &dir, const std::string &name, const Take &take, const Signal &scene,
                const sk::MotorPath paths[2], sk::Random &rng, const char *clean_name) {
    const std::size_t frames = scene.size();
    const Signal scene_r = sk::fractional_delay(scene, kFarFieldDelay);
    Signal l = scene, r = scene_r;
    for (const Drive &d : take.drives)
        sk::add_motor(l, r, paths, first_frame_at(d.start), first_frame_at(d.end),
                      sk::MotorSound{d.zoom == 1 ? kZoomInSpeed : kZoomOutSpeed}, rng);
    if (take.wind_end > take.wind_start)
        sk::add_wind(l, r, first_frame_at(take.wind_start), first_frame_at(take.wind_end), rng);
    if (clean_name != nullptr) sk::write_wav(dir + "/" + clean_name + ".wav", sk::to_pcm16(scene, scene_r));
    const std::string drive = dir + "/" + (name == "noisy" ? std::string("drive") : name + "-drive") + ".txt";
    sk::write_wav(dir + "/" + name + ".wav", sk::to_pcm16(l, r));
    vorl::write_drive_file(drive, drive_words(take, frames));
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr,
                     "usage: %s OUTDIR\nwrites noisy.wav, clean.wav, drive.txt, calibration.wav and "
                     "calibration-drive.txt into OUTDIR\n",
                     argv[0]);
        return 1;
    }
    const std::string dir = argv[1];
    sk::Random camera(7);  // the camera: the motor's paths to the two capsules
    const sk::MotorPath paths[2] = {sk::motor_path(camera), sk::motor_path(camera)};

    sk::Random rng(2021);
    const auto frames = static_cast<std::size_t>(kScene.seconds * sk::kRate);
    write_take(dir, "noisy", kScene, sk::far_field(frames, rng), paths, rng, "clean");

    sk::Random quiet_rng(11);  // a quiet room: room tone only
    const auto cal_frames = static_cast<std::size_t>(kCalibration.seconds * sk::kRate);
    write_take(dir, "calibration", kCalibration, sk::room_tone(cal_frames, quiet_rng), paths, quiet_rng, nullptr);
    return 0;
}
