// The sound of camera videos (MP4, MOV, MKV) through FFmpeg's libraries: a
// reader that decodes the audio stream to 16-bit stereo frames, and a writer
// that puts newly encoded audio in that stream's place and copies every
// other stream's packets untouched (remuxed, not re-encoded), with the
// container's and streams' metadata. Built into the tool's video module
// (video_files.h), not into the tool itself.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "pending_file.h"
#include "sample_stream.h"
#include "video_files.h"

struct AVDictionary;
struct AVFormatContext;
struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct AVAudioFifo;
struct SwrContext;

namespace vorl {

// True when FFmpeg finds `path` to be a video container the tool rewrites
// (MP4/MOV family or Matroska).
bool probe_video_container(const std::string &path);

class MediaReader : public SampleReader {
public:
    // Opens `path` and its main audio stream, and decodes the first audio
    // frame; input error naming the file if there is none or FFmpeg cannot.
    explicit MediaReader(const std::string &path);
    ~MediaReader() override;
    MediaReader(const MediaReader &) = delete;
    MediaReader &operator=(const MediaReader &) = delete;

    const std::string &name() const override { return path_; }
    int channels() const { return channels_; }
    int sample_rate() const override { return rate_; }
    // The length the container announces (-1 if it does not; within a
    // codec frame or two of what decoding gives).
    int64_t frames() const override { return frames_; }
    std::string codec_name() const;  // e.g. "aac"

    // Input error unless the audio stream has two channels.
    void require_stereo() const override;

    // Reads up to `n` frames as interleaved 16-bit samples; returns the
    // number read, 0 at the end. A packet that cannot be decoded is an
    // input error naming its time.
    std::size_t read(int16_t *out, std::size_t n) override;
    std::size_t read(float *out, std::size_t n) override;  // the 16-bit samples, scaled
    uint64_t clipped() const override { return 0; }  // FFmpeg's conversion saturates
    int64_t frames_read() const override { return frames_read_; }

    // After the end: "premature end of file: 0.52 s of 2.00 s" when the
    // stream ended well before the length the container announced (a
    // truncated file); "" otherwise.
    std::string premature_end() const override;

    // What the writer needs to put new audio in the stream's place.
    int audio_stream() const { return stream_; }
    // The first decoded sample's time, in the stream's time base.
    int64_t start_pts() const { return start_pts_; }

private:
    void open();
    void release();
    bool decode_more();  // false at the end of the stream
    void convert(const AVFrame *frame);

    std::string path_;
    AVFormatContext *format_ = nullptr;
    AVCodecContext *decoder_ = nullptr;
    SwrContext *swr_ = nullptr;
    AVPacket *packet_ = nullptr;
    AVFrame *frame_ = nullptr;
    int stream_ = -1, channels_ = 0, rate_ = 0, decoded_format_ = -1;
    int64_t frames_ = -1, start_pts_ = 0, frames_read_ = 0;
    bool draining_ = false, ended_ = false;
    std::vector<int16_t> buffered_;  // converted frames not yet read
    std::size_t taken_ = 0;          // samples of buffered_ already read
    std::vector<int16_t> as_16bit_;  // for read(float *)
};

class MediaWriter : public SampleWriter {
public:
    // Starts `destination` (a video container by its extension) as a copy of
    // `source`'s file whose audio stream will be the frames given to
    // write(), at `sample_rate`, starting where the source's audio starts.
    // Usage error when the container cannot hold the chosen codec; input
    // error when the file cannot be written.
    MediaWriter(const MediaReader &source, const std::string &destination, int sample_rate,
                const AudioEncoding &encoding);
    ~MediaWriter() override;
    MediaWriter(const MediaWriter &) = delete;
    MediaWriter &operator=(const MediaWriter &) = delete;

    // e.g. "aac 192 kb/s"
    std::string encoding() const override;

    void write(const int16_t *interleaved, std::size_t frames) override;
    void write(const float *interleaved, std::size_t frames) override;  // rounded to 16 bits
    // Encodes the rest, copies the remaining packets, finishes the container
    // and moves it into place.
    void commit() override;

private:
    void open(const MediaReader &source, const std::string &destination, int sample_rate,
              const AudioEncoding &encoding);
    void release();
    void open_encoder(const MediaReader &source, int sample_rate, const AudioEncoding &encoding);
    void add_streams();
    void copy_chapters();
    void encode(bool flush);                 // frames from the FIFO to packets
    void send(AVFrame *frame);               // one frame (nullptr: flush) to the muxer
    void copy_until(const AVPacket *audio);  // source packets up to `audio`'s time (nullptr: all)
    static int write_fd(void *fd, uint8_t *data, int size);
    static int64_t seek_fd(void *fd, int64_t offset, int whence);
    void close_output();
    [[noreturn]] void fail(const std::string &what, int error) const;

    PendingFile file_;
    std::string source_path_;
    int audio_ = -1, fd_ = -1;
    int skip_frames_ = 0;   // leading frames left out (see open_encoder)
    int64_t next_pts_ = 0;  // in the encoder's time base
    AVFormatContext *source_ = nullptr, *output_ = nullptr;
    AVCodecContext *encoder_ = nullptr;
    SwrContext *swr_ = nullptr;
    std::vector<int16_t> rounded_;  // float frames on their way to write()
    AVAudioFifo *fifo_ = nullptr;
    AVFrame *frame_ = nullptr;
    AVPacket *pending_ = nullptr;  // the next source packet to copy, if read
    AVPacket *packet_ = nullptr;
    std::vector<int> out_index_;        // each source stream's output stream, -1 if left out
    AVDictionary *timecode_ = nullptr;  // a left-out timecode track's start
    bool has_pending_ = false, source_done_ = false;
};

}  // namespace vorl
