// Reading and writing stereo audio through libsndfile, in whatever
// container it supports (WAV, FLAC, AIFF, ...), from and to files or the
// standard streams ("-").
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "pending_file.h"
#include "sample_stream.h"

struct sf_private_tag;

namespace vorl {

// Rounds samples (full scale 1.0) to 16 bits, with TPDF dither when asked
// (reproducible: a fixed-seed generator), saturating at full scale and
// counting the samples that were clipped. +1.0 itself, the positive full
// scale of wider formats, is not counted. A NaN becomes 0, counted apart.
class Requantizer {
public:
    explicit Requantizer(bool dither) : dither_(dither) {}
    int16_t operator()(double v);
    bool dithers() const { return dither_; }
    uint64_t clipped() const { return clipped_; }
    uint64_t not_numbers() const { return not_numbers_; }

private:
    bool dither_;
    uint32_t state_ = 0x9e3779b9u;
    uint64_t clipped_ = 0, not_numbers_ = 0;
};

class AudioReader : public SampleReader {
public:
    // Opens `path` ("-": standard input, read to its end first when it is a
    // pipe); input error naming the file if libsndfile cannot. Samples of
    // wider formats are reduced to 16 bits with TPDF dither when `dither`.
    explicit AudioReader(const std::string &path, bool dither = false);
    ~AudioReader() override;
    AudioReader(const AudioReader &) = delete;
    AudioReader &operator=(const AudioReader &) = delete;

    const std::string &name() const override { return name_; }  // the path, or "standard input"
    int channels() const { return channels_; }
    int sample_rate() const override { return rate_; }
    int format() const { return format_; }  // libsndfile's format word
    // The length before reading: what the header says, or what the file
    // holds when the header's length is a placeholder or too large.
    int64_t frames() const override { return frames_; }
    bool is_16bit() const;
    bool is_wider_than_16bit() const;  // 24- or 32-bit PCM (ALAC too), float, double
    // Whether 16-bit samples lose something of it: wider formats, and lossy
    // codecs, which decode to floats (8-bit, A-law, ADPCM and the like fit).
    bool loses_in_16bit() const;
    std::string format_name() const;  // e.g. "WAV (Microsoft), Signed 24 bit PCM"

    // Input error unless the file has two channels.
    void require_stereo() const override;

    // Reads up to `n` frames as interleaved 16-bit samples; returns the
    // number read, 0 at the end. 16-bit input is passed as stored; other
    // formats are rounded (dithered) to 16 bits and clipped at full scale,
    // and clipped() counts the samples that were. A decoding error ends
    // the input (reported by premature_end()).
    std::size_t read(int16_t *out, std::size_t n) override;
    uint64_t clipped() const override { return to_16bit_.clipped() + infinite_; }
    uint64_t not_numbers() const override { return to_16bit_.not_numbers() + float_nans_; }
    // The same as floats, full scale 1.0, as stored (no rounding) but for
    // what no filter may be given: a NaN becomes 0 and an infinity full
    // scale, counted by not_numbers() and clipped().
    std::size_t read(float *out, std::size_t n) override;
    int64_t frames_read() const override { return frames_read_; }

    // Back to the first frame, as if just opened (the dither sequence and
    // the counts start again): for a second pass over the input.
    void rewind();

    // After the end: "premature end of file: 0.52 s of 20.00 s" (with the
    // decoder's complaint, if any) when fewer frames came than the header
    // promised; "" otherwise or when the header gives no real length.
    std::string premature_end() const override;

private:
    std::string name_;
    std::unique_ptr<ScratchFile> spool_;  // standard input read from a pipe
    sf_private_tag *sf_ = nullptr;
    int channels_ = 0, rate_ = 0, format_ = 0;
    int64_t frames_ = 0, declared_ = -1, frames_read_ = 0;
    Requantizer to_16bit_;
    uint64_t infinite_ = 0, float_nans_ = 0;  // met by read(float *)
    std::string decode_error_;
    int partial_frame_bytes_ = 0;  // a header-less file's bytes past its last whole frame
    void after_read(int64_t got);
    std::vector<double> wide_;
};

// A file name's extension in lower case, without the dot; "" if none.
std::string lower_extension(const std::string &path);

// A header-less file ("raw", also "pcm") holds 16-bit little-endian stereo
// at 48 kHz: the form of the engine's own blocks. Its libsndfile format:
int raw_format();
constexpr int kRawRate = 48000;

// libsndfile's major format for a type name ("wav", "flac", "aiff", ...),
// 0 if none.
int format_for_type(const std::string &type);
// The major format a file name's extension names, 0 if none.
int format_for_extension(const std::string &path);

// Writes stereo audio in `format` (libsndfile's major | sub format) from
// 16-bit samples, through a PendingFile (nothing appears at the destination
// until commit()), or to standard output when `destination` is "-".
class AudioWriter : public SampleWriter {
public:
    AudioWriter(const std::string &destination, int sample_rate, int format);
    ~AudioWriter() override;
    AudioWriter(const AudioWriter &) = delete;
    AudioWriter &operator=(const AudioWriter &) = delete;

    void write(const int16_t *interleaved, std::size_t frames) override;
    void write(const float *interleaved, std::size_t frames) override;  // full scale 1.0
    void commit() override;

private:
    std::string name_;
    std::unique_ptr<PendingFile> file_;   // a named destination
    std::unique_ptr<ScratchFile> spool_;  // standard output, copied out at commit
    sf_private_tag *sf_ = nullptr;
    int64_t unflushed_frames_ = 0;  // written since the last start of writeback
    // libsndfile 1.2's MP3 encoder copies half of each 16-bit stereo buffer
    // (a byte count taken for a sample count), so those go through floats.
    bool shorts_as_floats_ = false;
    std::vector<float> as_floats_;
    void note_written(std::size_t frames);
};

}  // namespace vorl
