// Scenes as files: 16-bit stereo WAV (libsndfile) and drive files (one
// "zoom af wind" line per 256-frame block, the format "vorl process --drive"
// reads).
#pragma once

#include <string>
#include <vector>

#include "scene.h"
#include "signals.h"

namespace scenekit {

// Rounds to 16 bits (saturating) and interleaves.
Pcm to_pcm16(const Signal &left, const Signal &right);

// Each returns false after printing the problem to standard error.
bool write_wav(const std::string &path, const Pcm &samples, int rate = kSampleRate);
bool write_drive_file(const std::string &path, const std::vector<DriveWords> &words);

// Reads a drive file; false (and the problem, naming file:line, in `error`)
// on anything but three non-negative integers per line.
bool read_drive_file(const std::string &path, std::vector<DriveWords> &words, std::string &error);

// Writes <dir>/<name>-{clean,noisy,zoom,af,wind}.wav and <name>-drive.txt.
bool write_scene(const std::string &dir, const Scene &scene);

}  // namespace scenekit
