#include "media_io.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include "audio_io.h"  // lower_extension
#include "cli.h"

namespace vorl {

namespace {

// Used when the source's audio stream does not state its bit rate
// (Matroska, for one, does not store it).
constexpr int64_t kFallbackBitRate = 192000;

std::string av_error(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

bool is_mp4_family(const char *name) {
    return name != nullptr && (std::strstr(name, "mp4") != nullptr || std::strstr(name, "mov") != nullptr ||
                               std::strcmp(name, "ipod") == 0);  // the muxer of .m4a
}

bool is_container_format(const char *name) {
    return is_mp4_family(name) || (name != nullptr && std::strstr(name, "matroska") != nullptr);
}

// Seconds, for messages.
std::string seconds_at(int64_t ts, AVRational time_base) {
    if (ts == AV_NOPTS_VALUE) return "an unknown time";
    char text[32];
    std::snprintf(text, sizeof text, "%.3f s", static_cast<double>(ts) * av_q2d(time_base));
    return text;
}

// The tool's own messages say what went wrong, naming the file.
void quiet_ffmpeg() { av_log_set_level(AV_LOG_QUIET); }

bool is_pcm(AVCodecID id) {
    const AVCodecDescriptor *d = avcodec_descriptor_get(id);
    return d != nullptr && std::strncmp(d->name, "pcm_", 4) == 0;
}

AVSampleFormat encoder_sample_format(const AVCodec *codec) {
    if (codec->sample_fmts == nullptr) return AV_SAMPLE_FMT_S16;
    for (const AVSampleFormat *f = codec->sample_fmts; *f != AV_SAMPLE_FMT_NONE; ++f)
        if (*f == AV_SAMPLE_FMT_S16) return *f;
    return codec->sample_fmts[0];
}

}  // namespace

bool probe_video_container(const std::string &path) {
    quiet_ffmpeg();
    AVFormatContext *probe = nullptr;
    if (avformat_open_input(&probe, path.c_str(), nullptr, nullptr) < 0) return false;
    const bool found = is_container_format(probe->iformat->name);
    avformat_close_input(&probe);
    return found;
}

// --- Reading ---------------------------------------------------------------

MediaReader::MediaReader(const std::string &path) : path_(path) {
    try {
        open();
    } catch (...) {
        release();  // a constructor that throws gets no destructor
        throw;
    }
}

void MediaReader::open() {
    const std::string &path = path_;
    quiet_ffmpeg();
    if (!file_exists(path)) cli::input_error(path + ": no such file");
    int status = avformat_open_input(&format_, path.c_str(), nullptr, nullptr);
    if (status < 0) cli::input_error(path + ": cannot read as a video file: " + av_error(status));
    status = avformat_find_stream_info(format_, nullptr);
    if (status < 0) cli::input_error(path + ": cannot read its streams: " + av_error(status));
    const AVCodec *codec = nullptr;
    stream_ = av_find_best_stream(format_, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (stream_ == AVERROR_STREAM_NOT_FOUND) cli::input_error(path + ": has no audio stream");
    if (stream_ < 0 || codec == nullptr)
        cli::input_error(path + ": no decoder for its audio stream (" +
                         avcodec_get_name(format_->streams[std::max(stream_, 0)]->codecpar->codec_id) + ")");
    const AVStream *st = format_->streams[stream_];
    decoder_ = avcodec_alloc_context3(codec);
    packet_ = av_packet_alloc();
    frame_ = av_frame_alloc();
    if (decoder_ == nullptr || packet_ == nullptr || frame_ == nullptr) throw std::bad_alloc();
    avcodec_parameters_to_context(decoder_, st->codecpar);
    decoder_->pkt_timebase = st->time_base;
    status = avcodec_open2(decoder_, codec, nullptr);
    if (status < 0) cli::input_error(path + ": cannot open the " + codec->name + " decoder: " + av_error(status));
    channels_ = decoder_->ch_layout.nb_channels;
    rate_ = decoder_->sample_rate;
    const AVRational per_frame{1, std::max(rate_, 1)};
    if (st->duration != AV_NOPTS_VALUE) {
        frames_ = av_rescale_q(st->duration, st->time_base, per_frame);
    } else if (format_->duration != AV_NOPTS_VALUE) {  // from the stream's start to the file's end
        int64_t span = format_->duration;
        if (format_->start_time != AV_NOPTS_VALUE && st->start_time != AV_NOPTS_VALUE)
            span -= av_rescale_q(st->start_time, st->time_base, AV_TIME_BASE_Q) - format_->start_time;
        frames_ = av_rescale_q(span, AV_TIME_BASE_Q, per_frame);
    }
    start_pts_ = st->start_time != AV_NOPTS_VALUE ? st->start_time : 0;
    if (channels_ == 2 && !decode_more()) cli::input_error(path + ": its audio stream holds no samples");
}

MediaReader::~MediaReader() { release(); }

void MediaReader::release() {
    swr_free(&swr_);
    av_frame_free(&frame_);
    av_packet_free(&packet_);
    avcodec_free_context(&decoder_);
    avformat_close_input(&format_);
}

std::string MediaReader::codec_name() const { return avcodec_get_name(decoder_->codec_id); }

void MediaReader::require_stereo() const {
    if (channels_ != 2)
        cli::input_error(path_ + ": its audio stream has " + std::to_string(channels_) + " channel" +
                         (channels_ == 1 ? "" : "s") + ", the noise reducer needs stereo (2 channels)");
}

std::size_t MediaReader::read(int16_t *out, std::size_t n) {
    std::size_t done = 0;
    while (done < n) {
        if (taken_ == buffered_.size() && !decode_more()) break;
        const std::size_t take = std::min(n - done, (buffered_.size() - taken_) / 2);
        std::memcpy(out + 2 * done, buffered_.data() + taken_, take * 2 * sizeof(int16_t));
        taken_ += 2 * take;
        done += take;
    }
    frames_read_ += static_cast<int64_t>(done);
    return done;
}

std::size_t MediaReader::read(float *out, std::size_t n) {
    as_16bit_.resize(2 * n);
    const std::size_t got = read(as_16bit_.data(), n);
    for (std::size_t i = 0; i < 2 * got; ++i) out[i] = as_16bit_[i] / 32768.0f;
    return got;
}

std::string MediaReader::premature_end() const {
    // An encoder's delay and last-frame padding differ by a frame or two.
    constexpr int64_t kSlack = 4096;
    if (!ended_ || frames_ <= 0 || frames_read_ + kSlack >= frames_) return "";
    char text[96];
    std::snprintf(text, sizeof text, "premature end of file: %.2f s of %.2f s", double(frames_read_) / rate_,
                  double(frames_) / rate_);
    return text;
}

bool MediaReader::decode_more() {
    buffered_.clear();
    taken_ = 0;
    while (!ended_) {
        int status = avcodec_receive_frame(decoder_, frame_);
        if (status == 0) {
            const bool first = decoded_format_ < 0;
            convert(frame_);
            if (first && frame_->best_effort_timestamp != AV_NOPTS_VALUE)
                start_pts_ = frame_->best_effort_timestamp;
            av_frame_unref(frame_);
            if (!buffered_.empty()) return true;
            continue;
        }
        if (status == AVERROR_EOF) break;
        if (status != AVERROR(EAGAIN)) cli::input_error(path_ + ": audio decoding failed: " + av_error(status));
        if (draining_) break;
        status = av_read_frame(format_, packet_);
        if (status == AVERROR_EOF) {
            draining_ = true;
            avcodec_send_packet(decoder_, nullptr);
            continue;
        }
        if (status < 0) cli::input_error(path_ + ": read failed: " + av_error(status));
        if (packet_->stream_index == stream_) {
            status = avcodec_send_packet(decoder_, packet_);
            if (status < 0 && status != AVERROR(EAGAIN))
                cli::input_error(path_ + ": the audio packet at " +
                                 seconds_at(packet_->pts, format_->streams[stream_]->time_base) +
                                 " cannot be decoded: " + av_error(status));
        }
        av_packet_unref(packet_);
    }
    ended_ = true;
    return false;
}

// Appends `frame`'s samples to buffered_ as interleaved 16-bit stereo, with
// the rate and layout unchanged.
void MediaReader::convert(const AVFrame *frame) {
    if (frame->ch_layout.nb_channels != 2 || frame->sample_rate != rate_ ||
        (decoded_format_ >= 0 && frame->format != decoded_format_))
        cli::input_error(path_ + ": the audio stream changes its channels, rate or sample format at " +
                         seconds_at(frame->best_effort_timestamp, format_->streams[stream_]->time_base));
    if (swr_ == nullptr) {
        decoded_format_ = frame->format;
        AVChannelLayout *layout = const_cast<AVChannelLayout *>(&frame->ch_layout);  // only read
        const int status = swr_alloc_set_opts2(&swr_, layout, AV_SAMPLE_FMT_S16, rate_, layout,
                                               static_cast<AVSampleFormat>(frame->format), rate_, 0, nullptr);
        if (status < 0 || swr_init(swr_) < 0) cli::input_error(path_ + ": cannot convert its audio samples");
    }
    const std::size_t had = buffered_.size();
    buffered_.resize(had + 2 * static_cast<std::size_t>(frame->nb_samples));
    uint8_t *to = reinterpret_cast<uint8_t *>(buffered_.data() + had);
    const int got = swr_convert(swr_, &to, frame->nb_samples, const_cast<const uint8_t **>(frame->extended_data),
                                frame->nb_samples);
    if (got < 0) cli::input_error(path_ + ": cannot convert its audio samples: " + av_error(got));
    buffered_.resize(had + 2 * static_cast<std::size_t>(got));
}

// --- Writing ---------------------------------------------------------------

MediaWriter::MediaWriter(const MediaReader &source, const std::string &destination, int sample_rate,
                         const AudioEncoding &encoding)
    : file_(destination), source_path_(source.name()), audio_(source.audio_stream()) {
    try {
        open(source, destination, sample_rate, encoding);
    } catch (...) {
        release();  // a constructor that throws gets no destructor
        throw;
    }
}

void MediaWriter::open(const MediaReader &source, const std::string &destination, int sample_rate,
                       const AudioEncoding &encoding) {
    int status = avformat_open_input(&source_, source_path_.c_str(), nullptr, nullptr);
    if (status >= 0) status = avformat_find_stream_info(source_, nullptr);
    if (status < 0) cli::input_error(source_path_ + ": cannot read as a video file: " + av_error(status));
    const AVOutputFormat *format = av_guess_format(nullptr, destination.c_str(), nullptr);
    if (format == nullptr || !is_container_format(format->name))
        cli::usage_error(destination + ": a video's output must be a video container (.mp4, .mov, .mkv, .m4a, ...)");
    status = avformat_alloc_output_context2(&output_, format, nullptr, destination.c_str());
    if (status < 0) fail("cannot start the container", status);
    frame_ = av_frame_alloc();
    packet_ = av_packet_alloc();
    pending_ = av_packet_alloc();
    if (frame_ == nullptr || packet_ == nullptr || pending_ == nullptr) throw std::bad_alloc();

    open_encoder(source, sample_rate, encoding);
    add_streams();
    copy_chapters();
    av_dict_copy(&output_->metadata, source_->metadata, 0);
    av_dict_copy(&output_->metadata, timecode_, AV_DICT_DONT_OVERWRITE);

    fd_ = file_.duplicate_fd();
    constexpr int kBuffer = 1 << 16;
    auto *buffer = static_cast<unsigned char *>(av_malloc(kBuffer));
    output_->pb = buffer ? avio_alloc_context(buffer, kBuffer, 1, &fd_, nullptr, write_fd, seek_fd) : nullptr;
    if (output_->pb == nullptr) {
        av_free(buffer);
        throw std::bad_alloc();
    }
    status = avformat_write_header(output_, nullptr);
    if (status < 0) fail("cannot write the container's header", status);
}

MediaWriter::~MediaWriter() { release(); }  // the PendingFile then drops the file

void MediaWriter::release() {
    close_output();
    avformat_free_context(output_);
    output_ = nullptr;
    av_dict_free(&timecode_);
    avformat_close_input(&source_);
    avcodec_free_context(&encoder_);
    swr_free(&swr_);
    if (fifo_ != nullptr) av_audio_fifo_free(fifo_);
    fifo_ = nullptr;
    av_frame_free(&frame_);
    av_packet_free(&packet_);
    av_packet_free(&pending_);
}

// The output goes through the PendingFile's descriptor: the muxer writes
// and seeks (MP4's index is written last) through these.
int MediaWriter::write_fd(void *fd, uint8_t *data, int size) {
    for (int done = 0; done < size;) {
        const ssize_t n = ::write(*static_cast<int *>(fd), data + done, static_cast<std::size_t>(size - done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return AVERROR(n < 0 ? errno : EIO);
        done += static_cast<int>(n);
    }
    return size;
}

int64_t MediaWriter::seek_fd(void *fd, int64_t offset, int whence) {
    const int f = *static_cast<int *>(fd);
    if (whence == AVSEEK_SIZE) {
        struct stat st;
        return fstat(f, &st) == 0 ? static_cast<int64_t>(st.st_size) : AVERROR(errno);
    }
    const off_t at = lseek(f, static_cast<off_t>(offset), whence & ~AVSEEK_FORCE);
    return at < 0 ? AVERROR(errno) : static_cast<int64_t>(at);
}

void MediaWriter::close_output() {
    if (output_ != nullptr && output_->pb != nullptr) {
        av_freep(&output_->pb->buffer);
        avio_context_free(&output_->pb);
    }
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
}

void MediaWriter::fail(const std::string &what, int error) const {
    cli::input_error(file_.destination() + ": " + what + ": " + av_error(error));
}

void MediaWriter::open_encoder(const MediaReader &source, int sample_rate, const AudioEncoding &encoding) {
    const AVCodecParameters *original = source_->streams[audio_]->codecpar;
    const AVCodec *codec = nullptr;
    if (!encoding.codec.empty()) {
        codec = avcodec_find_encoder_by_name(encoding.codec.c_str());
        if (codec == nullptr || codec->type != AVMEDIA_TYPE_AUDIO)
            cli::usage_error("--audio-codec " + encoding.codec + ": no such audio encoder in FFmpeg");
    } else {
        codec = avcodec_find_encoder(is_pcm(original->codec_id) ? original->codec_id : AV_CODEC_ID_AAC);
        if (codec == nullptr) cli::input_error(file_.destination() + ": FFmpeg has no encoder for the audio");
    }
    if (avformat_query_codec(output_->oformat, codec->id, FF_COMPLIANCE_NORMAL) == 0)
        cli::usage_error(file_.destination() + ": the " + output_->oformat->name + " container cannot hold " +
                         codec->name + " audio; choose another --audio-codec");
    if (codec->supported_samplerates != nullptr) {
        bool found = false;
        for (const int *r = codec->supported_samplerates; *r != 0; ++r) found |= *r == sample_rate;
        if (!found)
            cli::usage_error(file_.destination() + ": the " + codec->name + " encoder cannot take " +
                             std::to_string(sample_rate) + " Hz audio");
    }
    encoder_ = avcodec_alloc_context3(codec);
    if (encoder_ == nullptr) throw std::bad_alloc();
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    av_channel_layout_copy(&encoder_->ch_layout, &stereo);
    encoder_->sample_rate = sample_rate;
    encoder_->sample_fmt = encoder_sample_format(codec);
    encoder_->time_base = AVRational{1, sample_rate};
    if (codec->id == original->codec_id && original->bits_per_raw_sample > 0)
        encoder_->bits_per_raw_sample = original->bits_per_raw_sample;
    encoder_->bit_rate = encoding.bit_rate > 0    ? encoding.bit_rate
                         : original->bit_rate > 0 ? original->bit_rate
                                                  : kFallbackBitRate;
    if (output_->oformat->flags & AVFMT_GLOBALHEADER) encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    const int status = avcodec_open2(encoder_, codec, nullptr);
    if (status < 0)
        cli::usage_error(file_.destination() + ": cannot open the " + codec->name + " encoder: " + av_error(status));

    const AVStream *in = source_->streams[audio_];
    next_pts_ = av_rescale_q(source.start_pts(), in->time_base, encoder_->time_base);
    // The encoder's first packets start its delay (AAC's priming) before the
    // first sample. Where the container states that delay (an MP4/MOV edit
    // list; Matroska's codec delay, which FFmpeg writes for Opus only) it is
    // skipped on playback. Elsewhere it would play as sound and push the new
    // audio late, or shift every stream to avoid negative times: there the
    // delay's worth of samples at the start is left out instead, and what
    // follows keeps its time.
    const bool delay_stated = is_mp4_family(output_->oformat->name) || codec->id == AV_CODEC_ID_OPUS;
    // Matroska states Opus's delay by offsetting the track's times itself;
    // the muxer must not also shift every stream to make them non-negative.
    if (!is_mp4_family(output_->oformat->name) && delay_stated)
        output_->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
    if (!delay_stated) {
        skip_frames_ = encoder_->initial_padding;
        next_pts_ += skip_frames_;
    }
    if (swr_alloc_set_opts2(&swr_, &stereo, encoder_->sample_fmt, sample_rate, &stereo, AV_SAMPLE_FMT_S16,
                            sample_rate, 0, nullptr) < 0 ||
        swr_init(swr_) < 0)
        cli::input_error(file_.destination() + ": cannot convert audio samples for the encoder");
    fifo_ = av_audio_fifo_alloc(encoder_->sample_fmt, 2, std::max(encoder_->frame_size, 1024));
    if (fifo_ == nullptr) throw std::bad_alloc();
}

// One output stream per source stream, in the same order: the audio stream
// from the encoder, the others as copies of the source's. A MOV timecode
// track is the exception: no container takes it as a stream, so its start
// is kept as the "timecode" tag, from which MP4/MOV write a new one.
void MediaWriter::add_streams() {
    for (unsigned i = 0; i < source_->nb_streams; ++i) {
        const AVStream *in = source_->streams[i];
        const AVCodecParameters *par = in->codecpar;
        if (par->codec_type == AVMEDIA_TYPE_DATA && par->codec_tag == MKTAG('t', 'm', 'c', 'd')) {
            const AVDictionaryEntry *tc = av_dict_get(in->metadata, "timecode", nullptr, 0);
            if (tc != nullptr) av_dict_set(&timecode_, "timecode", tc->value, AV_DICT_DONT_OVERWRITE);
            out_index_.push_back(-1);
            continue;
        }
        AVStream *out = avformat_new_stream(output_, nullptr);
        if (out == nullptr) throw std::bad_alloc();
        out_index_.push_back(out->index);
        av_dict_copy(&out->metadata, in->metadata, 0);
        out->disposition = in->disposition;
        if (static_cast<int>(i) == audio_) {
            avcodec_parameters_from_context(out->codecpar, encoder_);
            out->time_base = encoder_->time_base;
            continue;
        }
        if (avformat_query_codec(output_->oformat, par->codec_id, FF_COMPLIANCE_NORMAL) == 0)
            cli::usage_error(file_.destination() + ": the " + output_->oformat->name + " container cannot hold " +
                             "stream " + std::to_string(i) + " (" + avcodec_get_name(par->codec_id) +
                             "); choose another output container");
        avcodec_parameters_copy(out->codecpar, par);
        // Keep the source's codec tag only where the new container reads it
        // as the same codec.
        unsigned tag = 0;
        const auto *tags = output_->oformat->codec_tag;
        if (tags != nullptr && av_codec_get_id(tags, par->codec_tag) != par->codec_id &&
            av_codec_get_tag2(tags, par->codec_id, &tag))
            out->codecpar->codec_tag = 0;
        out->time_base = in->time_base;
        out->avg_frame_rate = in->avg_frame_rate;
        out->r_frame_rate = in->r_frame_rate;
        out->sample_aspect_ratio = in->sample_aspect_ratio;
        for (int s = 0; s < in->nb_side_data; ++s) {
            const AVPacketSideData &sd = in->side_data[s];
            uint8_t *copy = av_stream_new_side_data(out, sd.type, sd.size);
            if (copy == nullptr) throw std::bad_alloc();
            std::memcpy(copy, sd.data, sd.size);
        }
    }
}

void MediaWriter::copy_chapters() {
    for (unsigned i = 0; i < source_->nb_chapters; ++i) {
        const AVChapter *in = source_->chapters[i];
        auto *out = static_cast<AVChapter *>(av_mallocz(sizeof(AVChapter)));
        if (out == nullptr) throw std::bad_alloc();
        out->id = in->id;
        out->time_base = in->time_base;
        out->start = in->start;
        out->end = in->end;
        av_dict_copy(&out->metadata, in->metadata, 0);
        if (av_dynarray_add_nofree(&output_->chapters, reinterpret_cast<int *>(&output_->nb_chapters), out) < 0) {
            av_dict_free(&out->metadata);
            av_free(out);
            throw std::bad_alloc();
        }
    }
}

std::string MediaWriter::encoding() const {
    std::string text = avcodec_get_name(encoder_->codec_id);
    if (!is_pcm(encoder_->codec_id) && encoder_->bit_rate > 0)
        text += " " + std::to_string((encoder_->bit_rate + 500) / 1000) + " kb/s";
    // With several audio streams, say which one was processed.
    unsigned others = 0;
    for (unsigned i = 0; i < source_->nb_streams; ++i)
        others += static_cast<int>(i) != audio_ && source_->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
    if (others > 0)
        text += " in stream " + std::to_string(audio_) + "; " + std::to_string(others) + " other audio stream" +
                (others == 1 ? "" : "s") + " copied unchanged";
    return text;
}

void MediaWriter::write(const int16_t *interleaved, std::size_t frames) {
    const std::size_t skip = std::min<std::size_t>(frames, skip_frames_);
    skip_frames_ -= static_cast<int>(skip);
    interleaved += 2 * skip;
    frames -= skip;
    if (frames == 0) return;
    const int n = static_cast<int>(frames);
    if (av_audio_fifo_realloc(fifo_, av_audio_fifo_size(fifo_) + n) < 0) throw std::bad_alloc();
    // The conversion keeps the rate, so it returns exactly `n` frames.
    frame_->format = encoder_->sample_fmt;
    frame_->nb_samples = n;
    av_channel_layout_copy(&frame_->ch_layout, &encoder_->ch_layout);
    if (av_frame_get_buffer(frame_, 0) < 0) throw std::bad_alloc();
    const uint8_t *from = reinterpret_cast<const uint8_t *>(interleaved);
    const int got = swr_convert(swr_, frame_->extended_data, n, &from, n);
    if (got >= 0) av_audio_fifo_write(fifo_, reinterpret_cast<void **>(frame_->extended_data), got);
    av_frame_unref(frame_);
    if (got < 0) fail("cannot convert audio samples for the encoder", got);
    encode(false);
}

void MediaWriter::write(const float *interleaved, std::size_t frames) {
    rounded_.resize(2 * frames);
    for (std::size_t i = 0; i < 2 * frames; ++i)
        rounded_[i] = static_cast<int16_t>(std::clamp(std::lrint(interleaved[i] * 32768.0f), -32768L, 32767L));
    write(rounded_.data(), frames);
}

void MediaWriter::encode(bool flush) {
    const int size = encoder_->frame_size > 0 ? encoder_->frame_size : 1024;
    while (av_audio_fifo_size(fifo_) >= size || (flush && av_audio_fifo_size(fifo_) > 0)) {
        const int n = std::min(size, av_audio_fifo_size(fifo_));
        frame_->format = encoder_->sample_fmt;
        frame_->nb_samples = n;
        frame_->sample_rate = encoder_->sample_rate;
        av_channel_layout_copy(&frame_->ch_layout, &encoder_->ch_layout);
        if (av_frame_get_buffer(frame_, 0) < 0) throw std::bad_alloc();
        av_audio_fifo_read(fifo_, reinterpret_cast<void **>(frame_->extended_data), n);
        frame_->pts = next_pts_;
        next_pts_ += n;
        send(frame_);
        av_frame_unref(frame_);
    }
    if (flush) send(nullptr);
}

void MediaWriter::send(AVFrame *frame) {
    int status = avcodec_send_frame(encoder_, frame);
    if (status < 0) fail("audio encoding failed", status);
    while ((status = avcodec_receive_packet(encoder_, packet_)) == 0) {
        const int out = out_index_[static_cast<std::size_t>(audio_)];
        av_packet_rescale_ts(packet_, encoder_->time_base, output_->streams[out]->time_base);
        packet_->stream_index = out;
        copy_until(packet_);
        status = av_interleaved_write_frame(output_, packet_);
        if (status < 0) fail("write failed", status);
    }
    if (status != AVERROR(EAGAIN) && status != AVERROR_EOF) fail("audio encoding failed", status);
}

// Copies the source's other packets in file order while they do not come
// after `audio` in time, so that the muxer receives all streams
// interleaved; with nullptr, copies all that are left.
void MediaWriter::copy_until(const AVPacket *audio) {
    const AVRational audio_base = output_->streams[out_index_[static_cast<std::size_t>(audio_)]]->time_base;
    while (!source_done_) {
        if (!has_pending_) {
            int status;
            do {
                av_packet_unref(pending_);
                status = av_read_frame(source_, pending_);
            } while (status >= 0 && (pending_->stream_index == audio_ ||
                                     out_index_[static_cast<std::size_t>(pending_->stream_index)] < 0));
            if (status == AVERROR_EOF) {
                source_done_ = true;
                break;
            }
            if (status < 0) cli::input_error(source_path_ + ": read failed: " + av_error(status));
            has_pending_ = true;
        }
        const AVStream *in = source_->streams[pending_->stream_index];
        const int64_t at = pending_->dts != AV_NOPTS_VALUE ? pending_->dts : pending_->pts;
        if (audio != nullptr && at != AV_NOPTS_VALUE &&
            av_compare_ts(at, in->time_base, audio->dts, audio_base) > 0)
            break;
        pending_->stream_index = out_index_[static_cast<std::size_t>(pending_->stream_index)];
        av_packet_rescale_ts(pending_, in->time_base, output_->streams[pending_->stream_index]->time_base);
        pending_->pos = -1;
        const int status = av_interleaved_write_frame(output_, pending_);  // takes the packet, leaves it blank
        has_pending_ = false;
        if (status < 0) fail("write failed", status);
    }
}

void MediaWriter::commit() {
    encode(true);
    copy_until(nullptr);
    int status = av_write_trailer(output_);
    if (status < 0) fail("cannot finish the container", status);
    avio_flush(output_->pb);
    status = output_->pb->error;
    close_output();
    if (status < 0) fail("write failed", status);
    file_.commit();
}

}  // namespace vorl
