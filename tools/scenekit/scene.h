// Synthetic test scenes with lens-drive noise, deterministic by
// (scene type, camera, seed): the same id gives the same samples on every
// run and machine (speech scenes: with the same espeak-ng and libsoxr).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "drive_words.h"

namespace scenekit {

constexpr std::size_t kBlock = 256;  // frames per drive word
constexpr int kSampleRate = 48000;

using vorl::DriveWords;

enum class SceneType { speech, music, mixed, quiet, loud, wind, af };
constexpr SceneType kSceneTypes[] = {SceneType::speech, SceneType::music, SceneType::mixed, SceneType::quiet,
                                     SceneType::loud,   SceneType::wind,  SceneType::af};
const char *name_of(SceneType type);
bool parse_scene_type(const std::string &name, SceneType &type);  // false if unknown

struct SceneId {
    SceneType type;
    int camera;      // make_camera(camera)
    uint64_t seed;
    std::string name() const;  // e.g. "speech-c3-s12"
};

using Pcm = std::vector<int16_t>;  // interleaved stereo, left first

// A scene at 48 kHz. `clean` is the content alone (wind is noise, measured
// on its own); zoom, af and wind are the noise components; noisy equals
// clean + zoom + af + wind sample for sample, without clipping. words[b]
// describes frames 256b .. 256b+255: a word is set for every block in which
// its motor (or the wind) sounds, even for one frame.
struct Scene {
    SceneId id;
    Pcm clean, zoom, af, wind, noisy;
    std::vector<DriveWords> words;
    std::size_t frames() const { return clean.size() / 2; }
};

// Drives start and stop at random frames, 0.5-4 s of zoom in either
// direction with 1-4 s idle between; autofocus scenes add bursts of
// 60-250 ms in the idle gaps; wind scenes have stretches of gusting wind.
// Speech scenes throw SpeechError when espeak-ng is missing.
Scene make_scene(const SceneId &id, double seconds = 20.0);

// A calibration take for a camera: a quiet room, zoom-in and zoom-out drives
// of about 3.5 s each (two of each) and six autofocus moves, about 30 s.
Scene make_calibration(int camera, uint64_t seed);

}  // namespace scenekit
