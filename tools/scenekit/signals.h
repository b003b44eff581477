// Building blocks of the synthetic scenes: a deterministic noise source,
// simple filters, and the far-field and near-field sounds.
#pragma once

#include <cstdint>
#include <vector>

namespace scenekit {

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

// A sum of harmonics: sample n is sum over k of a_k(n) sin(k w n), where
// w = 2 pi f0 / rate and each amplitude a_k decays by its own factor per
// sample. Phasor and Chebyshev recurrences, no sine per sample.
class Harmonics {
public:
    static constexpr int kMaxPartials = 16;
    Harmonics(double f0, int count, const double *amp, const double *decay);
    double step();
private:
    int count_;
    double amp_[kMaxPartials], decay_[kMaxPartials];
    double rot_c_, rot_s_, c1_ = 1.0, s1_ = 0.0;
};

using Signal = std::vector<double>;

// Full scale 1.0 to 16 bits: rounded, saturated, interleaved (left first).
std::vector<int16_t> to_pcm16(const Signal &left, const Signal &right);

// A plucked melody on a pentatonic scale in phrases with rests (mono);
// `pitch` scales every note's frequency, `level` its loudness.
Signal plucked_melody(std::size_t frames, Random &rng, double pitch = 1.0, double level = 1.0);

// The demo's far-field scene: a plucked melody over soft room tone (mono).
Signal far_field(std::size_t frames, Random &rng);

// Soft low-passed noise of a quiet room (mono).
Signal room_tone(std::size_t frames, Random &rng);

// Delays a signal by a fraction of a sample (windowed-sinc interpolation).
Signal fractional_delay(const Signal &x, double delay);

// How a lens motor sounds while it runs: whine harmonics of the rotation,
// gear clicks, brush hiss and a faint low rumble common to both capsules.
struct MotorSound {
    double speed_hz;               // revolutions per second at full speed
    double whine = 0.028, click = 0.28, hiss = 0.011, rumble = 0.008;  // levels
    int harmonics = 6;             // whine harmonics, at most kMaxHarmonics
    double tilt = 1.0;             // harmonic k has amplitude 1 / k^tilt
    double wobble = 0.02;          // relative speed drift, at 3-5 Hz
    double revs_per_click = 8.0;   // a gear tooth strikes about this often
    double hiss_cutoff = 9000.0, rumble_freq = 180.0;
    double ramp_s = 0.015;         // level fade at start and end
    double spinup_s = 0.0;         // speed rises from 40 % to full over this time
};
constexpr int kMaxHarmonics = 12;

// Each capsule hears a motor through its own acoustic path (fixed for the
// camera), so the motor's sound differs between the channels.
struct MotorPath {
    double taps[16];    // impulse response of the path to one capsule
    double click_freq;  // resonance the gear clicks excite on this side
    double click_gain;
};
MotorPath motor_path(Random &rng);

// Adds the motor running over frames [begin, end) to both capsules.
void add_motor(Signal &left, Signal &right, const MotorPath path[2], std::size_t begin, std::size_t end,
               const MotorSound &sound, Random &rng);

// A second design: the motor is one small source inside the lens barrel,
// heard by both capsules through the barrel and body (an impulse response
// per capsule, `shared` of it common to both), with a faint hiss of its own
// at each capsule. Every part of the motor's sound then has the same
// transfer ratio between the channels at a given frequency, unlike
// add_motor's, where hiss is independent and rumble common.
struct EnclosurePath {
    std::vector<double> ir[2];
    double click_freq;  // the barrel's resonance that the gear clicks excite
};
EnclosurePath enclosure_path(Random &rng, double shared);

// Adds such a motor running over frames [begin, end) to both capsules.
void add_enclosed_motor(Signal &left, Signal &right, const EnclosurePath &path, std::size_t begin, std::size_t end,
                        const MotorSound &sound, Random &rng);

// Wind on both capsules (independent turbulence below about 120 Hz),
// gusting, fading in and out over 0.3 s; `level` 0.3 is a strong wind.
void add_wind(Signal &left, Signal &right, std::size_t begin, std::size_t end, Random &rng, double level = 0.3);

}  // namespace scenekit
