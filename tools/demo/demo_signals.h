// Building blocks of the synthetic demo scene: a deterministic noise source,
// simple filters, and the far-field and near-field sounds.
#pragma once

#include <cstdint>
#include <vector>

namespace demo {

constexpr double kRate = 48000.0;
constexpr double kPi = 3.14159265358979323846;

// xorshift64*: the same numbers on every machine, unlike std distributions.
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15ull + 1) {}
    double uniform();   // [0, 1)
    double gaussian();  // mean 0, variance 1
private:
    uint64_t state_;
};

// Second-order resonant band-pass (constant peak gain 1), direct form I.
class BandPass {
public:
    BandPass(double freq, double q);
    double step(double x);
private:
    double b0_, b2_, a1_, a2_, x1_ = 0, x2_ = 0, y1_ = 0, y2_ = 0;
};

// One-pole low-pass.
class LowPass {
public:
    explicit LowPass(double freq);
    double step(double x);
private:
    double a_, y_ = 0;
};

using Signal = std::vector<double>;

// The far-field scene: a plucked melody over soft room tone (mono).
Signal far_field(std::size_t frames, Random &rng);

// Soft low-passed noise of a quiet room (mono).
Signal room_tone(std::size_t frames, Random &rng);

// Delays a signal by a fraction of a sample (windowed-sinc interpolation).
Signal fractional_delay(const Signal &x, double delay);

// Near-field zoom-motor noise while the motor runs: whine harmonics, gear
// clicks and brush hiss, each capsule hearing the motor through its own
// acoustic path (fixed for the camera), plus a faint low rumble common to
// both capsules.
struct MotorPath {
    double taps[16];    // impulse response of the path to one capsule
    double click_freq;  // resonance the gear clicks excite on this side
    double click_gain;
};
MotorPath motor_path(Random &rng);
void add_motor(Signal &left, Signal &right, const MotorPath path[2], std::size_t begin, std::size_t end,
               double speed_hz, Random &rng);

// Wind on both capsules (independent turbulence), gusting.
void add_wind(Signal &left, Signal &right, std::size_t begin, std::size_t end, Random &rng);

}  // namespace demo
