#include "content.h"

#include <algorithm>
#include <cmath>

#include "speech.h"

namespace scenekit {

namespace {

double between(Random &rng, double lo, double hi) { return lo + (hi - lo) * rng.uniform(); }
std::size_t frames_of(double seconds) { return static_cast<std::size_t>(seconds * kRate); }

// A decaying harmonic tone (a chord note): slow attack, long decay.
void add_tone(Signal &out, std::size_t start, std::size_t length, double f0, double level) {
    double amp[8], decay[8];
    int count = 0;
    for (int k = 1; k <= 8 && k * f0 < 12000.0; ++k, ++count) {
        amp[k - 1] = 1.0 / (k * k);
        decay[k - 1] = 1.0;
    }
    Harmonics tone(f0, count, amp, decay);
    const double attack_step = std::exp(-1.0 / (0.03 * kRate)), release_step = std::exp(-1.0 / (1.2 * kRate));
    double attack = 1.0, release = 1.0;
    for (std::size_t n = start; n < std::min(out.size(), start + length); ++n) {
        const double fade = std::min(1.0, static_cast<double>(start + length - n) / (0.05 * kRate));
        out[n] += level * (1.0 - attack) * release * fade * tone.step();
        attack *= attack_step;
        release *= release_step;
    }
}

Signal chords(std::size_t frames, Random &rng, double level) {
    static const double kRoots[] = {130.81, 146.83, 164.81, 174.61, 196.0, 220.0};  // C3 .. A3
    static const int kShapes[][3] = {{0, 4, 7}, {0, 3, 7}, {0, 5, 9}, {0, 4, 9}};
    Signal out(frames, 0.0);
    for (std::size_t start = frames_of(between(rng, 0.0, 1.0)); start < frames;) {
        const std::size_t length = frames_of(between(rng, 1.0, 3.0));
        const double root = kRoots[static_cast<int>(rng.uniform() * 6)];
        const int *shape = kShapes[static_cast<int>(rng.uniform() * 4)];
        for (int i = 0; i < 3; ++i) add_tone(out, start, length, root * std::pow(2.0, shape[i] / 12.0), 0.04 * level);
        start += length + frames_of(between(rng, 0.0, 0.6));
    }
    return out;
}

// Kick, snare and hi-hat on a bar of four beats, with some bars left out.
Signal drums(std::size_t frames, Random &rng, double level) {
    Signal out(frames, 0.0);
    const double beat = 60.0 / between(rng, 80.0, 140.0);
    BandPass snare_band(1800.0, 0.7);
    LowPass hat_low(7000.0);
    std::size_t eighth = 0;
    const bool play_bar_rate = rng.uniform() < 0.5;
    bool playing = true;
    for (double t = between(rng, 0.0, 1.0); frames_of(t) < frames; t += beat / 2, ++eighth) {
        if (eighth % 8 == 0) playing = !play_bar_rate || rng.uniform() < 0.75;
        if (!playing) continue;
        const std::size_t at = frames_of(t);
        const int step = static_cast<int>(eighth % 8);
        const double accent = between(rng, 0.8, 1.0) * level;
        for (std::size_t n = at; n < std::min(frames, at + frames_of(0.4)); ++n) {
            const double s = static_cast<double>(n - at) / kRate;
            double v = 0.0;
            if (step == 0 || step == 4)  // kick: a falling sine
                v += 0.25 * std::exp(-s / 0.12) * std::sin(2.0 * kPi * (50.0 * s + 70.0 * 0.04 * (1.0 - std::exp(-s / 0.04))));
            if (step == 2 || step == 6)  // snare: band noise and a short tone
                v += std::exp(-s / 0.09) * (0.12 * snare_band.step(rng.gaussian()) + 0.06 * std::sin(2.0 * kPi * 185.0 * s));
            if (s < 0.08) {  // hi-hat on every eighth
                const double x = rng.gaussian();
                v += 0.02 * std::exp(-s / 0.02) * (x - hat_low.step(x));
            }
            out[n] += accent * v;
        }
    }
    return out;
}

}  // namespace

void place(Stereo &out, const Signal &mono, Random &rng, double max_delay) {
    const double delay = between(rng, -max_delay, max_delay);
    const double gain_db = between(rng, -1.5, 1.5);
    const Signal late = fractional_delay(mono, std::fabs(delay));
    const Signal &left = delay < 0 ? late : mono, &right = delay < 0 ? mono : late;
    const double gl = std::pow(10.0, gain_db / 40.0), gr = 1.0 / gl;
    for (std::size_t n = 0; n < out.left.size() && n < mono.size(); ++n) {
        out.left[n] += gl * left[n];
        out.right[n] += gr * right[n];
    }
}

void add_speech(Stereo &out, Random &rng, double level) {
    const std::size_t frames = out.left.size();
    Signal talk(frames, 0.0);
    const int voice = static_cast<int>(rng.uniform() * kVoiceCount);  // one talker, sometimes a second
    const int other = static_cast<int>(rng.uniform() * kVoiceCount);
    for (std::size_t at = frames_of(between(rng, 0.0, 1.0)); at < frames;) {
        const Signal &phrase = speak(kVoices[rng.uniform() < 0.7 ? voice : other],
                                     kSentences[static_cast<int>(rng.uniform() * kSentenceCount)],
                                     140 + static_cast<int>(rng.uniform() * 60));
        const double gain = level * between(rng, 0.35, 0.6);
        for (std::size_t n = 0; n < phrase.size() && at + n < frames; ++n) talk[at + n] += gain * phrase[n];
        at += phrase.size() + frames_of(between(rng, 0.3, 1.5));
    }
    place(out, talk, rng, 0.8);
}

void add_music(Stereo &out, Random &rng, double level) {
    const std::size_t frames = out.left.size();
    const double pitch = rng.uniform() < 0.5 ? 1.0 : 2.0;
    place(out, plucked_melody(frames, rng, pitch, 1.6 * level), rng, 1.5);
    place(out, chords(frames, rng, level), rng, 1.5);
    if (rng.uniform() < 0.75) place(out, drums(frames, rng, level), rng, 1.0);
}

void add_room(Stereo &out, Random &rng) {
    place(out, room_tone(out.left.size(), rng), rng, 0.5);
    LowPass diffuse[2] = {LowPass(4000.0), LowPass(4000.0)};
    for (std::size_t n = 0; n < out.left.size(); ++n) {
        out.left[n] += 0.0003 * diffuse[0].step(rng.gaussian()) + 0.00005 * rng.gaussian();
        out.right[n] += 0.0003 * diffuse[1].step(rng.gaussian()) + 0.00005 * rng.gaussian();
    }
}

}  // namespace scenekit
