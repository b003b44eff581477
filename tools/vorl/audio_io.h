// Reading and writing stereo 16-bit audio through libsndfile, in whatever
// container it supports (WAV, FLAC, AIFF, ...).
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "pending_file.h"

struct sf_private_tag;

namespace vorl {

class AudioReader {
public:
    // Opens `path`; input error naming the file if libsndfile cannot.
    explicit AudioReader(const std::string &path);
    ~AudioReader();
    AudioReader(const AudioReader &) = delete;
    AudioReader &operator=(const AudioReader &) = delete;

    const std::string &path() const { return path_; }
    int channels() const { return channels_; }
    int sample_rate() const { return rate_; }
    int64_t frames() const { return frames_; }
    bool is_16bit() const { return is_16bit_; }
    std::string format_name() const;  // e.g. "WAV (Microsoft) 24 bit PCM"

    // Input error unless the file has two channels.
    void require_stereo() const;

    // Reads up to `n` frames as interleaved 16-bit samples; returns the
    // number read (0 at the end). Other sample formats are rounded to 16 bits
    // and clipped at full scale; clipped() counts the samples that were.
    std::size_t read(int16_t *out, std::size_t n);
    uint64_t clipped() const { return clipped_; }

private:
    std::string path_;
    sf_private_tag *sf_ = nullptr;
    int channels_ = 0, rate_ = 0, format_ = 0;
    int64_t frames_ = 0;
    bool is_16bit_ = false;
    uint64_t clipped_ = 0;
    std::unique_ptr<double[]> buffer_;
    std::size_t buffer_frames_ = 0;
};

// libsndfile's major format for a file name's extension, 0 if none.
int format_for_extension(const std::string &path);

// Writes 16-bit PCM stereo in the format the destination's extension names,
// through a PendingFile: nothing appears at the destination until commit().
class AudioWriter {
public:
    AudioWriter(const std::string &destination, int sample_rate);
    ~AudioWriter();
    AudioWriter(const AudioWriter &) = delete;
    AudioWriter &operator=(const AudioWriter &) = delete;

    void write(const int16_t *interleaved, std::size_t frames);
    void commit();

private:
    PendingFile file_;
    sf_private_tag *sf_ = nullptr;
};

}  // namespace vorl
