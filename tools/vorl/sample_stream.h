// What `vorl process` reads its stereo frames from and writes them to,
// whatever holds them: audio files (audio_io.h) or the sound of video files
// (media_io.h). The command's block loop sees only these.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vorl {

class SampleReader {
public:
    virtual ~SampleReader() = default;
    virtual const std::string &name() const = 0;  // for messages
    virtual int sample_rate() const = 0;
    // The length announced before reading (-1 when unknown).
    virtual int64_t frames() const = 0;
    virtual int64_t frames_read() const = 0;
    // Input error naming the file unless it holds two channels.
    virtual void require_stereo() const = 0;
    // Up to `n` interleaved stereo frames; the number read, 0 at the end.
    // As 16-bit samples (clipped() counts those clipped on the way), or as
    // floats with full scale 1.0.
    virtual std::size_t read(int16_t *out, std::size_t n) = 0;
    virtual std::size_t read(float *out, std::size_t n) = 0;
    virtual uint64_t clipped() const = 0;
    // Samples that were not numbers (NaN) and were read as 0.
    virtual uint64_t not_numbers() const { return 0; }
    // After the end: why the input ended before it said it would, or "".
    virtual std::string premature_end() const = 0;
};

class SampleWriter {
public:
    virtual ~SampleWriter() = default;  // without commit(): nothing appears
    virtual void write(const int16_t *interleaved, std::size_t frames) = 0;
    virtual void write(const float *interleaved, std::size_t frames) = 0;  // full scale 1.0
    // Finishes the file and moves it into place.
    virtual void commit() = 0;
    // How the sound is encoded where the container chooses it, e.g. "aac
    // 192 kb/s" for a video's new audio; "" when the format says it all.
    virtual std::string encoding() const { return ""; }
};

}  // namespace vorl
