// Recordings named on the command line, whatever holds them: an audio file
// (audio_io.h), standard input, or the sound of a camera video
// (video_files.h). Every command that reads a recording opens it here, so
// each takes the same files.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sample_stream.h"

namespace vorl {

// The sample rates a recording may have. Outside them the header is wrong,
// not the recording odd: at 1 Hz, 20 s of samples would resample to eleven
// days at 48 kHz.
constexpr int kLowestRate = 8000, kHighestRate = 768000;

// Input error naming `name` when `rate` lies outside those rates.
void check_sample_rate(int rate, const std::string &name);

// Opens `path` ("-": standard input, always an audio stream). Samples of
// audio formats wider than 16 bits reach 16 bits with TPDF dither when
// `dither`, else rounded.
std::unique_ptr<SampleReader> open_recording(const std::string &path, bool dither = false);

struct WholeRecording {
    std::string name;              // for messages
    std::vector<int16_t> samples;  // interleaved stereo
    int rate = 0;
    // A coded stream's length (a video's AAC, say) is known only to within
    // a codec frame or two of the sound that was recorded.
    bool exact_length = true;
    uint64_t clipped = 0, not_numbers = 0;  // as SampleReader counts them
    std::size_t frames() const { return samples.size() / 2; }
};

// Reads all of a stereo recording; input error naming it when it is not
// stereo or ends before its header said it would.
WholeRecording read_whole_recording(const std::string &path);

// What the way to 16 bits changed in a recording, in words: samples clipped
// at full scale, samples that were not numbers.
std::vector<std::string> conversion_warnings(const std::string &name, uint64_t clipped, uint64_t not_numbers);

}  // namespace vorl
