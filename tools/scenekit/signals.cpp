#include "signals.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace scenekit {

double Random::uniform() {
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return static_cast<double>((state_ * 0x2545F4914F6CDD1Dull) >> 11) * (1.0 / 9007199254740992.0);
}

double Random::gaussian() {  // Box-Muller, one value per call
    const double u = 1.0 - uniform(), v = uniform();
    return std::sqrt(-2.0 * std::log(u)) * std::cos(2.0 * kPi * v);
}

BandPass::BandPass(double freq, double q) {
    const double w = 2.0 * kPi * freq / kRate, alpha = std::sin(w) / (2.0 * q), a0 = 1.0 + alpha;
    b0_ = alpha / a0;
    b2_ = -alpha / a0;
    a1_ = -2.0 * std::cos(w) / a0;
    a2_ = (1.0 - alpha) / a0;
}

double BandPass::step(double x) {
    const double y = b0_ * x + b2_ * x2_ - a1_ * y1_ - a2_ * y2_;
    x2_ = x1_;
    x1_ = x;
    y2_ = y1_;
    y1_ = y;
    return y;
}

Harmonics::Harmonics(double f0, int count, const double *amp, const double *decay)
    : count_(std::min(count, kMaxPartials)) {
    const double w = 2.0 * kPi * f0 / kRate;
    rot_c_ = std::cos(w);
    rot_s_ = std::sin(w);
    for (int k = 0; k < count_; ++k) {
        amp_[k] = amp[k];
        decay_[k] = decay[k];
    }
}

double Harmonics::step() {
    double v = 0.0, s_prev = 0.0, s_k = s1_;
    for (int k = 0; k < count_; ++k) {  // sin((k+1) w n) by the Chebyshev recurrence
        v += amp_[k] * s_k;
        amp_[k] *= decay_[k];
        const double next = 2.0 * c1_ * s_k - s_prev;
        s_prev = s_k;
        s_k = next;
    }
    const double c = c1_ * rot_c_ - s1_ * rot_s_;  // advance the fundamental's phasor
    s1_ = s1_ * rot_c_ + c1_ * rot_s_;
    c1_ = c;
    return v;
}

std::vector<int16_t> to_pcm16(const Signal &left, const Signal &right) {
    std::vector<int16_t> pcm(2 * left.size());
    for (std::size_t n = 0; n < left.size(); ++n)
        for (int c = 0; c < 2; ++c) {
            const double v = std::round((c == 0 ? left[n] : right[n]) * 32768.0);
            pcm[2 * n + c] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, v)));
        }
    return pcm;
}

LowPass::LowPass(double freq) : a_(1.0 - std::exp(-2.0 * kPi * freq / kRate)) {}
double LowPass::step(double x) { return y_ += a_ * (x - y_); }

Signal plucked_melody(std::size_t frames, Random &rng, double pitch, double level_scale) {
    Signal out(frames, 0.0);
    // A plucked melody on an A minor pentatonic scale: phrases of 1.5-3 s
    // with notes of 0.2-0.6 s, and rests of 0.4-1 s between the phrases.
    const double scale[] = {220.0, 261.63, 293.66, 329.63, 392.0, 440.0, 523.25, 587.33};
    std::size_t start = 0;
    std::size_t phrase_end = static_cast<std::size_t>((1.5 + 1.5 * rng.uniform()) * kRate);
    while (start < frames) {
        const double f0 = scale[static_cast<int>(rng.uniform() * 8)] * pitch;
        const std::size_t length = static_cast<std::size_t>((0.2 + 0.4 * rng.uniform()) * kRate);
        const double level = (0.05 + 0.05 * rng.uniform()) * level_scale;
        // Harmonic k has amplitude k^-1.5 and decays as exp(-1.5 k t).
        double amp[10], decay[10];
        int count = 0;
        for (int k = 1; k <= 10 && k * f0 <= 15000.0; ++k, ++count) {
            amp[k - 1] = 1.0 / (k * std::sqrt(static_cast<double>(k)));
            decay[k - 1] = std::exp(-1.5 * k / kRate);
        }
        Harmonics tone(f0, count, amp, decay);
        const double attack_step = std::exp(-1.0 / (0.004 * kRate)), release_step = std::exp(-1.0 / (0.35 * kRate));
        double attack = 1.0, release = 1.0;
        for (std::size_t n = start; n < std::min(frames, start + length); ++n) {
            out[n] += level * (1.0 - attack) * release * tone.step();
            attack *= attack_step;
            release *= release_step;
        }
        start += static_cast<std::size_t>(length * (0.6 + 0.3 * rng.uniform()));  // notes overlap a little
        if (start >= phrase_end) {
            start += static_cast<std::size_t>((0.4 + 0.6 * rng.uniform()) * kRate);
            phrase_end = start + static_cast<std::size_t>((1.5 + 1.5 * rng.uniform()) * kRate);
        }
    }
    return out;
}

Signal far_field(std::size_t frames, Random &rng) {
    Signal out = plucked_melody(frames, rng);
    const Signal tone = room_tone(frames, rng);
    for (std::size_t n = 0; n < frames; ++n) out[n] += tone[n];
    return out;
}

Signal room_tone(std::size_t frames, Random &rng) {
    Signal out(frames);
    LowPass tone(2000.0);
    for (double &v : out) v = 0.0015 * tone.step(rng.gaussian());
    return out;
}

Signal fractional_delay(const Signal &x, double delay) {
    constexpr int kHalf = 24;
    double taps[2 * kHalf + 1];
    for (int k = -kHalf; k <= kHalf; ++k) {
        const double t = k - delay;
        const double sinc = std::abs(t) < 1e-12 ? 1.0 : std::sin(kPi * t) / (kPi * t);
        const double window = 0.42 + 0.5 * std::cos(kPi * t / (kHalf + 1)) + 0.08 * std::cos(2.0 * kPi * t / (kHalf + 1));
        taps[k + kHalf] = sinc * window;
    }
    Signal out(x.size(), 0.0);
    for (std::size_t n = 0; n < x.size(); ++n) {
        double acc = 0.0;
        for (int k = -kHalf; k <= kHalf; ++k) {
            const long i = static_cast<long>(n) - k;
            if (i >= 0 && i < static_cast<long>(x.size())) acc += taps[k + kHalf] * x[static_cast<std::size_t>(i)];
        }
        out[n] = acc;
    }
    return out;
}

MotorPath motor_path(Random &rng) {
    MotorPath p{};
    double energy = 0.0;
    for (double &tap : p.taps) {
        tap = rng.gaussian() * std::exp(-(&tap - p.taps) / 4.0);
        energy += tap * tap;
    }
    for (double &tap : p.taps) tap /= std::sqrt(energy);  // unit power gain on average
    p.click_freq = 2500.0 + 2500.0 * rng.uniform();
    p.click_gain = 0.7 + 0.6 * rng.uniform();
    return p;
}

namespace {

// Gain and phase of a path at a frequency.
void response(const MotorPath &p, double freq, double &gain, double &phase) {
    double re = 0.0, im = 0.0;
    for (int n = 0; n < 16; ++n) {
        re += p.taps[n] * std::cos(2.0 * kPi * freq * n / kRate);
        im -= p.taps[n] * std::sin(2.0 * kPi * freq * n / kRate);
    }
    gain = std::sqrt(re * re + im * im);
    phase = std::atan2(im, re);
}

// A motor's drive from `begin` to `end`: fade in and out, spin-up, speed
// wobble, the whine's phase and the gear clicks, frame by frame.
class MotorRun {
public:
    MotorRun(const MotorSound &s, std::size_t begin, std::size_t end, Random &rng)
        : s_(s), begin_(begin), end_(end), ramp_frames_(s.ramp_s * kRate), wobble_rate_(3.0 + 2.0 * rng.uniform()),
          rng_(rng) {}

    struct Frame {
        double ramp, phase, click;
    };
    Frame step(std::size_t n) {
        const double t = static_cast<double>(n - begin_);
        const double ramp = std::min({1.0, t / ramp_frames_, static_cast<double>(end_ - n) / ramp_frames_});
        const double spin = s_.spinup_s > 0.0 ? std::min(1.0, 0.4 + 0.6 * t / (s_.spinup_s * kRate)) : 1.0;
        const double speed = s_.speed_hz * (1.0 + s_.wobble * std::sin(2.0 * kPi * wobble_rate_ * t / kRate)) * spin;
        phase_ += 2.0 * kPi * speed / kRate;
        // A gear tooth strikes every few revolutions, a little irregularly.
        double click = 0.0;
        if (t >= next_click_) {
            click = 1.0 + 0.5 * rng_.gaussian();
            next_click_ = t + kRate * s_.revs_per_click / speed * (0.8 + 0.4 * rng_.uniform());
        }
        return {ramp, phase_, click};
    }

private:
    const MotorSound &s_;
    std::size_t begin_, end_;
    double ramp_frames_, wobble_rate_;
    Random &rng_;
    double phase_ = 0.0, next_click_ = 0.0;
};

}  // namespace

void add_motor(Signal &left, Signal &right, const MotorPath path[2], std::size_t begin, std::size_t end,
               const MotorSound &s, Random &rng) {
    const int harmonics = std::min(s.harmonics, kMaxHarmonics);
    double gain[2][kMaxHarmonics], shift[2][kMaxHarmonics], amp[kMaxHarmonics];
    double sin_part[2][kMaxHarmonics], cos_part[2][kMaxHarmonics];
    for (int k = 0; k < harmonics; ++k) amp[k] = std::pow(k + 1.0, s.tilt);
    for (int c = 0; c < 2; ++c) {
        // The whine keeps its level whatever the path does to single harmonics.
        double sum = 0.0, expected = 0.0;
        for (int k = 0; k < harmonics; ++k) {
            response(path[c], (k + 1) * s.speed_hz, gain[c][k], shift[c][k]);
            sum += gain[c][k] * gain[c][k] / (amp[k] * amp[k]);
            expected += 1.0 / (amp[k] * amp[k]);
        }
        for (int k = 0; k < harmonics; ++k) {
            // sin(k phase + shift) = sin(k phase) cos(shift) + cos(k phase) sin(shift)
            const double g = gain[c][k] * std::sqrt(expected / sum) / amp[k];
            sin_part[c][k] = g * std::cos(shift[c][k]);
            cos_part[c][k] = g * std::sin(shift[c][k]);
        }
    }
    BandPass click_res[2] = {BandPass(path[0].click_freq, 6.0), BandPass(path[1].click_freq, 6.0)};
    LowPass hiss_lp[2] = {LowPass(s.hiss_cutoff), LowPass(s.hiss_cutoff)};
    BandPass rumble(s.rumble_freq, 1.5);
    Signal *out[2] = {&left, &right};
    MotorRun run(s, begin, end, rng);
    for (std::size_t n = begin; n < end; ++n) {
        const auto [ramp, phase, click] = run.step(n);
        const double common = s.rumble * rumble.step(rng.gaussian());
        double sin_k[kMaxHarmonics], cos_k[kMaxHarmonics];  // of (k+1) phase, by complex powers
        sin_k[0] = std::sin(phase);
        cos_k[0] = std::cos(phase);
        for (int k = 1; k < harmonics; ++k) {
            sin_k[k] = sin_k[k - 1] * cos_k[0] + cos_k[k - 1] * sin_k[0];
            cos_k[k] = cos_k[k - 1] * cos_k[0] - sin_k[k - 1] * sin_k[0];
        }
        for (int c = 0; c < 2; ++c) {
            double whine = 0.0;
            for (int k = 0; k < harmonics; ++k) whine += sin_part[c][k] * sin_k[k] + cos_part[c][k] * cos_k[k];
            const double v = s.whine * whine + s.click * path[c].click_gain * click_res[c].step(click) +
                             s.hiss * hiss_lp[c].step(rng.gaussian()) + common;
            (*out[c])[n] += ramp * v;
        }
    }
}

EnclosurePath enclosure_path(Random &rng, double shared) {
    constexpr int kTaps = 48;
    EnclosurePath p;
    std::vector<double> common(kTaps);
    for (int n = 0; n < kTaps; ++n) common[n] = rng.gaussian() * std::exp(-n / 10.0);
    for (auto &ir : p.ir) {
        ir.assign(kTaps, 0.0);
        const int direct = static_cast<int>(rng.uniform() * 4.0);  // 0-3 samples: the capsules' distances
        ir[direct] = 1.0 + rng.uniform();
        double energy = 0.0;
        for (int n = 0; n < kTaps; ++n) {
            ir[n] += shared * common[n] + (1.0 - shared) * rng.gaussian() * std::exp(-n / 10.0);
            energy += ir[n] * ir[n];
        }
        for (double &v : ir) v /= std::sqrt(energy);
    }
    p.click_freq = 2500.0 + 2500.0 * rng.uniform();
    return p;
}

void add_enclosed_motor(Signal &left, Signal &right, const EnclosurePath &path, std::size_t begin, std::size_t end,
                        const MotorSound &s, Random &rng) {
    const int harmonics = std::min(s.harmonics, kMaxHarmonics);
    double amp[kMaxHarmonics];  // as add_motor's whine before its paths
    for (int k = 0; k < harmonics; ++k) amp[k] = std::pow(k + 1.0, -s.tilt);
    BandPass click_res(path.click_freq, 6.0), rumble(s.rumble_freq, 1.5);
    LowPass hiss_lp(s.hiss_cutoff), own_hiss[2] = {LowPass(s.hiss_cutoff), LowPass(s.hiss_cutoff)};
    const std::size_t taps = path.ir[0].size();
    std::vector<double> source(taps, 0.0);  // the source's latest samples, newest at `at`
    std::size_t at = 0;
    Signal *out[2] = {&left, &right};
    MotorRun run(s, begin, end, rng);
    for (std::size_t n = begin; n < end; ++n) {
        const auto [ramp, phase, click] = run.step(n);
        double whine = 0.0;
        for (int k = 0; k < harmonics; ++k) whine += amp[k] * std::sin((k + 1) * phase);
        at = (at + 1) % taps;
        source[at] = ramp * (s.whine * whine + s.click * click_res.step(click) + s.hiss * hiss_lp.step(rng.gaussian()) +
                             s.rumble * rumble.step(rng.gaussian()));
        for (int c = 0; c < 2; ++c) {
            double acc = 0.0;
            for (std::size_t k = 0; k < taps; ++k) acc += path.ir[c][k] * source[(at + taps - k) % taps];
            // The capsule's own share: brush noise picked up on its side, 15 dB under the hiss.
            (*out[c])[n] += acc + ramp * 0.18 * s.hiss * own_hiss[c].step(rng.gaussian());
        }
    }
}

void add_wind(Signal &left, Signal &right, std::size_t begin, std::size_t end, Random &rng, double level) {
    LowPass lp[2][2] = {{LowPass(120.0), LowPass(120.0)}, {LowPass(120.0), LowPass(120.0)}};
    LowPass gust(0.8);
    Signal *out[2] = {&left, &right};
    const double fade = 0.3 * kRate;
    for (std::size_t n = begin; n < end; ++n) {
        const double t = static_cast<double>(n - begin);
        const double edge = std::min({1.0, t / fade, static_cast<double>(end - n) / fade});
        const double strength = 0.6 + 0.4 * std::tanh(8.0 * gust.step(rng.gaussian()));
        for (int c = 0; c < 2; ++c) (*out[c])[n] += level * edge * strength * lp[c][1].step(lp[c][0].step(rng.gaussian()));
    }
}

}  // namespace scenekit
