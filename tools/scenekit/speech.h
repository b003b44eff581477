// Real speech for the scenes, synthesised with espeak-ng and resampled to
// 48 kHz with libsoxr.
#pragma once

#include <stdexcept>
#include <string>

#include "signals.h"

namespace scenekit {

struct SpeechError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One sentence `text` in espeak-ng voice `voice` (e.g. "en-us+m3"), at
// `words_per_minute`, 48 kHz mono, peak level about 0.5. Results are kept
// in memory for the process's lifetime, so repeated phrases cost nothing.
// Throws SpeechError when espeak-ng or the voice is not available.
const Signal &speak(const std::string &voice, const std::string &text, int words_per_minute);

// The voices and sentences scenes draw from.
extern const char *const kVoices[];
extern const int kVoiceCount;
extern const char *const kSentences[];
extern const int kSentenceCount;

}  // namespace scenekit
