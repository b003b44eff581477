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

#include <sndfile.h>

#include "demo_signals.h"

namespace {

using demo::Signal;

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
    return static_cast<std::size_t>(std::ceil(seconds * demo::kRate / kBlock)) * kBlock;
}

bool write_wav(const std::string &path, const Signal &l, const Signal &r) {
    SF_INFO info;
    std::memset(&info, 0, sizeof info);
    info.samplerate = static_cast<int>(demo::kRate);
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE *f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (f == nullptr) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), sf_strerror(nullptr));
        return false;
    }
    std::vector<short> pcm(2 * l.size());
    for (std::size_t n = 0; n < l.size(); ++n)
        for (int c = 0; c < 2; ++c) {
            const double v = std::round((c == 0 ? l[n] : r[n]) * 32768.0);
            pcm[2 * n + c] = static_cast<short>(std::max(-32768.0, std::min(32767.0, v)));
        }
    const auto frames = static_cast<sf_count_t>(l.size());
    const bool ok = sf_writef_short(f, pcm.data(), frames) == frames;
    return sf_close(f) == 0 && ok;
}

bool write_drive_file(const std::string &path, const Take &take, std::size_t frames) {
    std::ofstream out(path);
    out << "# zoom af wind, one line per 256-frame block\n";
    for (std::size_t b = 0; b < frames / kBlock; ++b) {
        const double t = static_cast<double>(b * kBlock) / demo::kRate;
        int zoom = 0;
        for (const Drive &d : take.drives)
            if (d.start <= t && t < d.end) zoom = d.zoom;
        const int wind = take.wind_start <= t && t < take.wind_end ? 1 : 0;
        out << zoom << " 0 " << wind << "\n";
    }
    return static_cast<bool>(out);
}

// Adds the take's drive and wind noise to the scene and writes the files.
bool write_take(const std::string &dir, const std::string &name, const Take &take, const Signal &scene,
                const demo::MotorPath paths[2], demo::Random &rng, const char *clean_name) {
    const std::size_t frames = scene.size();
    const Signal scene_r = demo::fractional_delay(scene, kFarFieldDelay);
    Signal l = scene, r = scene_r;
    for (const Drive &d : take.drives)
        demo::add_motor(l, r, paths, first_frame_at(d.start), first_frame_at(d.end),
                        d.zoom == 1 ? kZoomInSpeed : kZoomOutSpeed, rng);
    if (take.wind_end > take.wind_start)
        demo::add_wind(l, r, first_frame_at(take.wind_start), first_frame_at(take.wind_end), rng);
    if (clean_name != nullptr && !write_wav(dir + "/" + clean_name + ".wav", scene, scene_r)) return false;
    const std::string drive = dir + "/" + (name == "noisy" ? std::string("drive") : name + "-drive") + ".txt";
    if (!write_wav(dir + "/" + name + ".wav", l, r) || !write_drive_file(drive, take, frames)) {
        std::fprintf(stderr, "%s: cannot write the %s files\n", dir.c_str(), name.c_str());
        return false;
    }
    return true;
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
    demo::Random camera(7);  // the camera: the motor's paths to the two capsules
    const demo::MotorPath paths[2] = {demo::motor_path(camera), demo::motor_path(camera)};

    demo::Random rng(2021);
    const auto frames = static_cast<std::size_t>(kScene.seconds * demo::kRate);
    if (!write_take(dir, "noisy", kScene, demo::far_field(frames, rng), paths, rng, "clean")) return 1;

    demo::Random quiet_rng(11);  // a quiet room: room tone only
    const auto cal_frames = static_cast<std::size_t>(kCalibration.seconds * demo::kRate);
    if (!write_take(dir, "calibration", kCalibration, demo::room_tone(cal_frames, quiet_rng), paths, quiet_rng, nullptr))
        return 1;
    return 0;
}
