#include "scene_files.h"

#include <algorithm>
#include <cmath>

#include <sndfile.h>

#include "audio_io.h"
#include "drive_schedule.h"

namespace scenekit {

void write_wav(const std::string &path, const Pcm &samples) {
    vorl::AudioWriter out(path, kSampleRate, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    out.write(samples.data(), samples.size() / 2);
    out.commit();
}

void write_scene(const std::string &dir, const Scene &scene) {
    const std::string base = dir + "/" + scene.id.name();
    write_wav(base + "-clean.wav", scene.clean);
    write_wav(base + "-noisy.wav", scene.noisy);
    write_wav(base + "-zoom.wav", scene.zoom);
    write_wav(base + "-af.wav", scene.af);
    write_wav(base + "-wind.wav", scene.wind);
    vorl::write_drive_file(base + "-drive.txt", scene.words);
}

}  // namespace scenekit
