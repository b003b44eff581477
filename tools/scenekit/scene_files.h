// Scenes as files: 16-bit stereo WAV and drive files (the format
// "vorl process --drive" reads), written atomically by the tool's writers.
#pragma once

#include <string>
#include <vector>

#include "scene.h"

namespace scenekit {

// Writes 16-bit stereo at 48 kHz; input error (exit) naming the file on failure.
void write_wav(const std::string &path, const Pcm &samples);

// Writes <dir>/<name>-{clean,noisy,zoom,af,wind}.wav and <name>-drive.txt.
void write_scene(const std::string &dir, const Scene &scene);

}  // namespace scenekit
