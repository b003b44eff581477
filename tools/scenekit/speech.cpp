#include "speech.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <cmath>
#include <map>
#include <mutex>
#include <tuple>
#include <vector>

#include <espeak-ng/speak_lib.h>
#include <soxr.h>

#include "pending_file.h"

namespace scenekit {

const char *const kVoices[] = {"en-us+m3", "en+f2", "en-us+f4", "en-gb-scotland+m1",
                               "de+m2",    "fr+f1",    "es+m4",    "it+f3"};
const int kVoiceCount = sizeof kVoices / sizeof kVoices[0];

const char *const kSentences[] = {
    "The harbour was quiet when the first boats came back in the morning.",
    "Could you hold the camera a little higher, so we can see the tower?",
    "Seven hundred people walked along the river to watch the fireworks.",
    "Please keep your tickets ready, the train leaves from platform four.",
    "She laughed and said the picture would look better without the car.",
    "We measured the temperature every hour until the sun went down.",
    "Turn left at the bakery, then follow the road past the old mill.",
    "Nobody expected the concert to start so early on a Sunday.",
    "The children counted the ducks, one, two, three, four and five.",
    "If the wind drops tonight, we will sail across the bay tomorrow.",
    "Welcome to the museum, the tour begins in the main hall.",
    "It is almost midnight, and the street is still full of music.",
};
const int kSentenceCount = sizeof kSentences / sizeof kSentences[0];

namespace {

std::vector<short> g_samples;  // filled by the synthesis callback

int collect(short *wav, int count, espeak_EVENT *) {
    if (wav != nullptr) g_samples.insert(g_samples.end(), wav, wav + count);
    return 0;
}

// In the child: synthesises, then writes to `fd` the engine's rate (0 when
// it cannot start, -1 for an unknown voice, -2 when synthesis fails), the
// sample count and the samples.
[[noreturn]] void synthesise_into(int fd, const std::string &voice, const std::string &text, int wpm) {
    int rate = espeak_Initialize(AUDIO_OUTPUT_SYNCHRONOUS, 0, nullptr, espeakINITIALIZE_DONT_EXIT);
    if (rate > 0) {
        espeak_SetSynthCallback(collect);
        if (espeak_SetVoiceByName(voice.c_str()) != EE_OK) rate = -1;
    }
    if (rate > 0) {
        espeak_SetParameter(espeakRATE, wpm, 0);
        if (espeak_Synth(text.c_str(), text.size() + 1, 0, POS_CHARACTER, 0, espeakCHARS_UTF8, nullptr, nullptr) !=
                EE_OK ||
            espeak_Synchronize() != EE_OK)
            rate = -2;
    }
    const uint64_t count = rate > 0 ? g_samples.size() : 0;
    bool ok = vorl::write_fully(fd, &rate, sizeof rate) && vorl::write_fully(fd, &count, sizeof count) &&
              vorl::write_fully(fd, g_samples.data(), count * sizeof(short));
    _exit(ok ? 0 : 1);
}

// espeak-ng carries state from one synthesis to the next (another voice
// spoken before changes the samples, even their number), and a scene must
// not depend on what was spoken before it: each phrase is synthesised by a
// fresh engine in a child process.
std::vector<short> spoken(const std::string &voice, const std::string &text, int wpm, int &rate) {
    int fds[2];
    if (pipe(fds) != 0) throw SpeechError(std::string("espeak-ng: pipe: ") + std::strerror(errno));
    const pid_t child = fork();
    if (child < 0) throw SpeechError(std::string("espeak-ng: fork: ") + std::strerror(errno));
    if (child == 0) {
        close(fds[0]);
        synthesise_into(fds[1], voice, text, wpm);
    }
    close(fds[1]);
    uint64_t count = 0;
    rate = 0;
    std::vector<short> samples;
    bool ok = vorl::read_fully(fds[0], &rate, sizeof rate) && vorl::read_fully(fds[0], &count, sizeof count) &&
              count < (1u << 28);
    if (ok) {
        samples.resize(count);
        ok = vorl::read_fully(fds[0], samples.data(), count * sizeof(short));
    }
    close(fds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (rate == -1) throw SpeechError("espeak-ng: voice \"" + voice + "\" not available");
    if (rate == 0 && ok)
        throw SpeechError("espeak-ng: cannot initialise the speech synthesiser (is espeak-ng-data installed?)");
    if (!ok || !WIFEXITED(status) || WEXITSTATUS(status) != 0 || samples.empty())
        throw SpeechError("espeak-ng: synthesis failed for voice \"" + voice + "\"");
    return samples;
}

Signal synthesise(const std::string &voice, const std::string &text, int wpm) {
    int rate = 0;
    const std::vector<short> samples = spoken(voice, text, wpm, rate);
    std::vector<double> in(samples.begin(), samples.end());
    double peak = 0.0;
    for (double v : in) peak = std::max(peak, std::fabs(v));
    for (double &v : in) v *= 0.5 / peak;
    Signal out(static_cast<std::size_t>(std::ceil(in.size() * kRate / rate)) + 16);
    std::size_t done = 0;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    const soxr_error_t err =
        soxr_oneshot(rate, kRate, 1, in.data(), in.size(), nullptr, out.data(), out.size(), &done, &io, &quality, nullptr);
    if (err != nullptr) throw SpeechError(std::string("soxr: ") + err);
    out.resize(done);
    return out;
}

}  // namespace

const Signal &speak(const std::string &voice, const std::string &text, int words_per_minute) {
    static std::mutex lock;
    static std::map<std::tuple<std::string, std::string, int>, Signal> cache;
    const std::lock_guard<std::mutex> hold(lock);
    const auto key = std::make_tuple(voice, text, words_per_minute);
    auto it = cache.find(key);
    if (it == cache.end()) it = cache.emplace(key, synthesise(voice, text, words_per_minute)).first;
    return it->second;
}

}  // namespace scenekit
