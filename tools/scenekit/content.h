// Far-field content of the scenes. Every source is placed in the stereo
// image with a small delay (a fraction of a sample to about two samples, the
// capsules being a few centimetres apart) and level difference between the
// channels, so its channel difference stays small.
#pragma once

#include "signals.h"

namespace scenekit {

struct Stereo {
    Signal left, right;
    explicit Stereo(std::size_t frames) : left(frames, 0.0), right(frames, 0.0) {}
};

// Adds `mono` to `out` at a random place: delay up to `max_delay` samples
// either way, level difference up to 1.5 dB.
void place(Stereo &out, const Signal &mono, Random &rng, double max_delay);

// Phrases of synthesised speech (random voices and sentences) with pauses;
// `level` 1 is a talker near the camera (peaks about -12 dBFS).
void add_speech(Stereo &out, Random &rng, double level);

// Synthesised music: a plucked melody, sustained chords and drums, each
// instrument at its own place; `level` 1 peaks about -12 dBFS.
void add_music(Stereo &out, Random &rng, double level);

// The room: low-passed noise, mostly common to both capsules, with a faint
// diffuse part and the capsules' own noise, independent per channel.
void add_room(Stereo &out, Random &rng);

}  // namespace scenekit
