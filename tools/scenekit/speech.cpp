#include "speech.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <tuple>
#include <vector>

#include <espeak-ng/speak_lib.h>
#include <soxr.h>

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

int engine_rate() {
    static const int rate = [] {
        const int r = espeak_Initialize(AUDIO_OUTPUT_SYNCHRONOUS, 0, nullptr, espeakINITIALIZE_DONT_EXIT);
        if (r > 0) espeak_SetSynthCallback(collect);
        return r;
    }();
    if (rate <= 0) throw SpeechError("espeak-ng: cannot initialise the speech synthesiser (is espeak-ng-data installed?)");
    return rate;
}

Signal synthesise(const std::string &voice, const std::string &text, int wpm) {
    const int rate = engine_rate();
    if (espeak_SetVoiceByName(voice.c_str()) != EE_OK) throw SpeechError("espeak-ng: voice \"" + voice + "\" not available");
    espeak_SetParameter(espeakRATE, wpm, 0);
    g_samples.clear();
    if (espeak_Synth(text.c_str(), text.size() + 1, 0, POS_CHARACTER, 0, espeakCHARS_UTF8, nullptr, nullptr) != EE_OK ||
        espeak_Synchronize() != EE_OK || g_samples.empty())
        throw SpeechError("espeak-ng: synthesis failed for voice \"" + voice + "\"");
    std::vector<double> in(g_samples.begin(), g_samples.end());
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
