// Synthetic cameras: the lens motors of one camera model and the acoustic
// paths by which they reach the two capsules a few centimetres away.
#pragma once

#include "signals.h"

namespace scenekit {

struct Camera {
    int id;
    MotorSound zoom[2];       // [0] zoom-in (drive word 1), [1] zoom-out (2)
    MotorSound af;            // autofocus motor: short, higher-pitched bursts
    MotorPath zoom_path[2];   // zoom motor to the left and right capsule
    MotorPath af_path[2];     // autofocus motor, mounted elsewhere
    bool enclosed = false;    // the second and third designs: the paths below instead
    EnclosurePath zoom_enclosure, af_enclosure;
};

constexpr int kFirstEnclosedCamera = 100;
constexpr int kFirstSideCamera = 200;

// Camera `id` (0 and up). Camera 0 is the demo's camera; the others draw
// their motor design (whine fundamental and harmonics, drift, gear ratio,
// hiss, spin-up, direction differences) and paths from the id. Cameras from
// kFirstEnclosedCamera on are of the second design (add_enclosed_motor):
// the same motors, each one source heard through the lens barrel. Cameras
// from kFirstSideCamera on are of the third: each motor one source beside
// one capsule, heard through a separate path by each (nothing shared).
Camera make_camera(int id);

}  // namespace scenekit
