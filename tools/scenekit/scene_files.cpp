#include "scene_files.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include <sndfile.h>

namespace scenekit {

Pcm to_pcm16(const Signal &left, const Signal &right) {
    Pcm pcm(2 * left.size());
    for (std::size_t n = 0; n < left.size(); ++n)
        for (int c = 0; c < 2; ++c) {
            const double v = std::round((c == 0 ? left[n] : right[n]) * 32768.0);
            pcm[2 * n + c] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, v)));
        }
    return pcm;
}

bool write_wav(const std::string &path, const Pcm &samples, int rate) {
    SF_INFO info;
    std::memset(&info, 0, sizeof info);
    info.samplerate = rate;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE *f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (f == nullptr) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), sf_strerror(nullptr));
        return false;
    }
    const auto frames = static_cast<sf_count_t>(samples.size() / 2);
    const bool ok = sf_writef_short(f, samples.data(), frames) == frames;
    if (sf_close(f) != 0 || !ok) {
        std::fprintf(stderr, "%s: cannot write\n", path.c_str());
        return false;
    }
    return true;
}

bool write_drive_file(const std::string &path, const std::vector<DriveWords> &words) {
    std::ofstream out(path);
    out << "# zoom af wind, one line per 256-frame block\n";
    for (const DriveWords &w : words) out << w.zoom << " " << w.af << " " << w.wind << "\n";
    out.close();
    if (!out) std::fprintf(stderr, "%s: cannot write\n", path.c_str());
    return static_cast<bool>(out);
}

bool read_drive_file(const std::string &path, std::vector<DriveWords> &words, std::string &error) {
    std::ifstream in(path);
    if (!in) {
        error = path + ": cannot open drive file";
        return false;
    }
    words.clear();
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const auto first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') continue;
        std::istringstream fields(line);
        long long v[3];
        std::string extra;
        if (!(fields >> v[0] >> v[1] >> v[2]) || (fields >> extra) || v[0] < 0 || v[0] > 2 || v[1] < 0 ||
            v[1] > UINT32_MAX || v[2] < 0 || v[2] > 1) {
            error = path + ":" + std::to_string(number) + ": expected \"zoom af wind\" (zoom 0-2, af >= 0, wind 0/1)";
            return false;
        }
        words.push_back({static_cast<uint32_t>(v[0]), static_cast<uint32_t>(v[1]), static_cast<uint32_t>(v[2])});
    }
    return true;
}

bool write_scene(const std::string &dir, const Scene &scene) {
    const std::string base = dir + "/" + scene.id.name();
    return write_wav(base + "-clean.wav", scene.clean) && write_wav(base + "-noisy.wav", scene.noisy) &&
           write_wav(base + "-zoom.wav", scene.zoom) && write_wav(base + "-af.wav", scene.af) &&
           write_wav(base + "-wind.wav", scene.wind) && write_drive_file(base + "-drive.txt", scene.words);
}

}  // namespace scenekit
