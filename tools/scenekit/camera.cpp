#include "camera.h"

namespace scenekit {

namespace {

// A uniform value in [lo, hi).
double between(Random &rng, double lo, double hi) { return lo + (hi - lo) * rng.uniform(); }

MotorSound autofocus_motor(Random &rng) {
    MotorSound af{between(rng, 2600.0, 4200.0)};
    af.whine = between(rng, 0.010, 0.020);
    af.click = between(rng, 0.05, 0.12);
    af.hiss = between(rng, 0.004, 0.008);
    af.rumble = 0.002;
    af.harmonics = 3;
    af.tilt = 1.5;
    af.revs_per_click = between(rng, 10.0, 20.0);
    af.hiss_cutoff = 12000.0;
    af.ramp_s = 0.004;
    af.spinup_s = 0.01;
    return af;
}

// A motor beside one capsule: each capsule hears the one source through its
// own path (nothing shared), the far one 3-9 dB down.
EnclosurePath side_path(Random &rng) {
    EnclosurePath p = enclosure_path(rng, 0.0);
    const double far_gain = between(rng, 0.35, 0.7);
    for (double &v : p.ir[rng.uniform() < 0.5 ? 0 : 1]) v *= far_gain;
    return p;
}

}  // namespace

Camera make_camera(int id) {
    Camera cam{};
    cam.id = id;
    if (id == 0) {  // the demo camera: its paths and speeds, the default motor sound
        Random paths(7);
        cam.zoom_path[0] = motor_path(paths);
        cam.zoom_path[1] = motor_path(paths);
        cam.zoom[0] = MotorSound{1150.0};
        cam.zoom[1] = MotorSound{1020.0};
        Random af(8);
        cam.af_path[0] = motor_path(af);
        cam.af_path[1] = motor_path(af);
        cam.af = autofocus_motor(af);
        return cam;
    }
    Random rng(0xCA3E7A00ull + static_cast<uint64_t>(id));
    cam.zoom_path[0] = motor_path(rng);
    cam.zoom_path[1] = motor_path(rng);
    cam.af_path[0] = motor_path(rng);
    cam.af_path[1] = motor_path(rng);
    MotorSound in{between(rng, 600.0, 1700.0)};
    const double level = between(rng, 0.6, 1.6);  // about +-4 dB around the demo motor
    in.whine = 0.028 * level * between(rng, 0.6, 1.5);
    in.click = 0.28 * level * between(rng, 0.5, 1.5);
    in.hiss = 0.011 * level * between(rng, 0.6, 1.5);
    in.rumble = 0.008 * level;
    in.harmonics = 3 + static_cast<int>(rng.uniform() * 8);
    in.tilt = between(rng, 0.7, 1.5);
    in.wobble = between(rng, 0.005, 0.04);
    in.revs_per_click = between(rng, 5.0, 14.0);
    in.hiss_cutoff = between(rng, 5000.0, 12000.0);
    in.rumble_freq = between(rng, 120.0, 300.0);
    in.spinup_s = between(rng, 0.02, 0.08);
    // Driven the other way the motor runs a little slower or faster and its
    // gears mesh on the other flank.
    MotorSound out = in;
    out.speed_hz = in.speed_hz * between(rng, 0.82, 1.12);
    out.click = in.click * between(rng, 0.7, 1.3);
    out.hiss = in.hiss * between(rng, 0.85, 1.15);
    out.revs_per_click = in.revs_per_click * between(rng, 0.9, 1.1);
    cam.zoom[0] = in;
    cam.zoom[1] = out;
    cam.af = autofocus_motor(rng);
    if (id >= kFirstSideCamera) {
        cam.enclosed = true;
        cam.zoom_enclosure = side_path(rng);
        cam.af_enclosure = side_path(rng);
    } else if (id >= kFirstEnclosedCamera) {
        cam.enclosed = true;
        cam.zoom_enclosure = enclosure_path(rng, between(rng, 0.3, 0.9));
        cam.af_enclosure = enclosure_path(rng, between(rng, 0.3, 0.9));
    }
    return cam;
}

}  // namespace scenekit
