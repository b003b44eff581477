#include "audio_io.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>

#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli.h"

namespace vorl {

std::string lower_extension(const std::string &path) {
    const auto slash = path.rfind('/');
    const auto dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    return ext;
}

namespace {

uint32_t le32(const unsigned char *p) { return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24; }

// The frame count a RIFF WAV header declares in its data chunk, or -1 when
// it declares none: a streaming writer's placeholder (0, or a size near
// 4 GiB, the largest it can state) or a header that cannot be walked.
int64_t declared_wav_frames(int fd) {
    unsigned char h[12];
    if (pread(fd, h, sizeof h, 0) != sizeof h || std::memcmp(h, "RIFF", 4) != 0 || std::memcmp(h + 8, "WAVE", 4) != 0)
        return -1;
    off_t at = 12;
    uint32_t block_align = 0;
    for (int chunk = 0; chunk < 64; ++chunk) {
        unsigned char c[16];
        if (pread(fd, c, 8, at) != 8) return -1;
        const uint32_t size = le32(c + 4);
        if (std::memcmp(c, "fmt ", 4) == 0 && pread(fd, c, 16, at + 8) == 16) block_align = c[12] | c[13] << 8;
        if (std::memcmp(c, "data", 4) == 0) {
            if (block_align == 0 || size == 0 || size >= 0x7ffff000u) return -1;
            return size / block_align;
        }
        at += 8 + static_cast<off_t>(size) + (size & 1);
    }
    return -1;
}

std::string seconds(int64_t frames, int rate) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.2f s", static_cast<double>(frames) / (rate > 0 ? rate : 1));
    return buf;
}

}  // namespace

int16_t Requantizer::operator()(double v) {
    v *= 32768.0;
    if (std::isnan(v)) {
        ++not_numbers_;
        return 0;
    }
    if (v > 32768.0 || v < -32768.0) ++clipped_;  // beyond full scale
    if (dither_) {  // the difference of two uniform values, one step wide each
        state_ ^= state_ << 13, state_ ^= state_ >> 17, state_ ^= state_ << 5;
        v += (state_ & 0xffff) / 65536.0 - (state_ >> 16) / 65536.0;
    }
    const double scaled = std::nearbyint(v);
    return static_cast<int16_t>(scaled > 32767.0 ? 32767.0 : scaled < -32768.0 ? -32768.0 : scaled);
}

AudioReader::AudioReader(const std::string &path, bool dither)
    : name_(cli::input_name(path)), to_16bit_(dither) {
    int fd = -1;
    struct stat st;
    if (path == "-") {
        if (isatty(STDIN_FILENO)) cli::usage_error("standard input is a terminal; pipe a recording in or name a file");
        if (fstat(STDIN_FILENO, &st) == 0 && S_ISREG(st.st_mode)) {
            fd = dup(STDIN_FILENO);  // redirected from a file: read it in place
        } else {
            // libsndfile needs to seek in most containers: keep a copy.
            spool_ = std::make_unique<ScratchFile>();
            spool_->append_all_from(STDIN_FILENO, name_);
            fd = dup(spool_->fd());
            lseek(fd, 0, SEEK_SET);
        }
    } else {
        if (stat(path.c_str(), &st) != 0) cli::input_error(path + ": no such file");
        if (S_ISDIR(st.st_mode)) cli::input_error(path + ": is a folder, not a recording");
        fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    }
    if (fd < 0) cli::input_error(name_ + ": cannot open: " + std::strerror(errno));
    SF_INFO info;
    std::memset(&info, 0, sizeof info);
    if (path != "-" && format_for_extension(path) == SF_FORMAT_RAW) {
        // Header-less samples in the engine's own form, as a camera
        // pipeline dumps its buffers.
        info.format = raw_format();
        info.channels = 2;
        info.samplerate = kRawRate;
        partial_frame_bytes_ = static_cast<int>(st.st_size % 4);
    }
    sf_ = sf_open_fd(fd, SFM_READ, &info, SF_TRUE);
    if (sf_ == nullptr)
        cli::input_error(name_ + ": cannot read as audio: " + sf_strerror(nullptr) +
                         (sf_error(nullptr) == SF_ERR_UNRECOGNISED_FORMAT && path != "-" && format_for_extension(path) == 0
                              ? " (header-less 16-bit stereo at 48 kHz is read from a file named .raw or .pcm)"
                              : ""));
    channels_ = info.channels;
    rate_ = info.samplerate;
    format_ = info.format;
    constexpr int64_t kImplausible = int64_t{1} << 40;  // a streaming header's "unknown"
    frames_ = info.frames > 0 && info.frames < kImplausible ? info.frames : -1;
    if ((format_ & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV)
        declared_ = declared_wav_frames(fd);
    else
        declared_ = frames_;
    to_16bit_ = Requantizer(dither && is_wider_than_16bit());
}

AudioReader::~AudioReader() {
    if (sf_ != nullptr) sf_close(sf_);
}

bool AudioReader::is_16bit() const { return (format_ & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16; }

bool AudioReader::is_wider_than_16bit() const {
    switch (format_ & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24:
    case SF_FORMAT_ALAC_32:
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE: return true;
    default: return false;
    }
}

bool AudioReader::loses_in_16bit() const {
    switch (format_ & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_VORBIS:
    case SF_FORMAT_OPUS:
    case SF_FORMAT_MPEG_LAYER_I:
    case SF_FORMAT_MPEG_LAYER_II:
    case SF_FORMAT_MPEG_LAYER_III: return true;
    default: return is_wider_than_16bit();
    }
}

std::string AudioReader::format_name() const {
    SF_FORMAT_INFO major{}, sub{};
    major.format = format_ & SF_FORMAT_TYPEMASK;
    sub.format = format_ & SF_FORMAT_SUBMASK;
    sf_command(nullptr, SFC_GET_FORMAT_INFO, &major, sizeof major);
    sf_command(nullptr, SFC_GET_FORMAT_INFO, &sub, sizeof sub);
    return std::string(major.name ? major.name : "?") + ", " + (sub.name ? sub.name : "?");
}

void AudioReader::require_stereo() const {
    if (channels_ != 2)
        cli::input_error(name_ + ": found " + std::to_string(channels_) + " channel" + (channels_ == 1 ? "" : "s") +
                         ", the noise reducer needs stereo (2 channels)");
}

std::size_t AudioReader::read(int16_t *out, std::size_t n) {
    require_stereo();
    if (!decode_error_.empty()) return 0;
    sf_count_t got;
    if (is_16bit()) {
        got = sf_readf_short(sf_, out, static_cast<sf_count_t>(n));
    } else {
        wide_.resize(2 * n);
        got = sf_readf_double(sf_, wide_.data(), static_cast<sf_count_t>(n));
        for (std::size_t i = 0; i < 2 * static_cast<std::size_t>(std::max<sf_count_t>(got, 0)); ++i)
            out[i] = to_16bit_(wide_[i]);
    }
    after_read(got);
    return static_cast<std::size_t>(std::max<sf_count_t>(got, 0));
}

std::size_t AudioReader::read(float *out, std::size_t n) {
    require_stereo();
    if (!decode_error_.empty()) return 0;
    const sf_count_t got = sf_readf_float(sf_, out, static_cast<sf_count_t>(n));
    // A resampler would smear one NaN or infinity over its whole filter.
    for (std::size_t i = 0; i < 2 * static_cast<std::size_t>(std::max<sf_count_t>(got, 0)); ++i) {
        if (std::isnan(out[i])) {
            out[i] = 0.0f;
            ++float_nans_;
        } else if (std::isinf(out[i])) {
            out[i] = out[i] > 0 ? 1.0f : -1.0f;
            ++infinite_;
        }
    }
    after_read(got);
    return static_cast<std::size_t>(std::max<sf_count_t>(got, 0));
}

void AudioReader::rewind() {
    if (sf_seek(sf_, 0, SEEK_SET) != 0) cli::input_error(name_ + ": cannot go back to the start for a second pass");
    frames_read_ = 0;
    decode_error_.clear();
    to_16bit_ = Requantizer(to_16bit_.dithers());
    infinite_ = float_nans_ = 0;
}

void AudioReader::after_read(int64_t got) {
    if (sf_error(sf_) != SF_ERR_NO_ERROR) decode_error_ = sf_strerror(sf_);
    if (got > 0) frames_read_ += got;
}

std::string AudioReader::premature_end() const {
    const std::string why = decode_error_.empty() ? "" : " (" + decode_error_ + ")";
    if (declared_ >= 0 && frames_read_ < declared_)
        return "premature end of file: " + seconds(frames_read_, rate_) + " of " + seconds(declared_, rate_) + why;
    if (!decode_error_.empty()) return "decoding stopped after " + seconds(frames_read_, rate_) + why;
    if (partial_frame_bytes_ != 0 && frames_read_ == frames_)
        return "ends " + std::to_string(partial_frame_bytes_) +
               " byte(s) into a frame, left out (a dump cut short, or not 16-bit stereo)";
    return "";
}

int format_for_type(const std::string &type_name) {
    std::string type = type_name;
    std::transform(type.begin(), type.end(), type.begin(), [](unsigned char c) { return std::tolower(c); });
    if (type == "aif") type = "aiff";
    if (type == "pcm") type = "raw";
    if (type == "wave") type = "wav";
    if (type == "mp3") type = "m1a";                    // libsndfile's name for its MPEG files
    if (type == "ogg" || type == "opus") type = "oga";  // and for its Ogg files
    if (type.empty()) return 0;
    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof count);
    for (int i = 0; i < count; ++i) {
        SF_FORMAT_INFO info{};
        info.format = i;
        sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &info, sizeof info);
        if (info.extension != nullptr && type == info.extension) return info.format;
    }
    return 0;
}

int format_for_extension(const std::string &path) { return format_for_type(lower_extension(path)); }

int raw_format() { return SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE; }

AudioWriter::AudioWriter(const std::string &destination, int sample_rate, int format)
    : name_(cli::output_name(destination)) {
    SF_INFO info;
    std::memset(&info, 0, sizeof info);
    info.samplerate = sample_rate;
    info.channels = 2;
    info.format = format;
    if (!sf_format_check(&info)) cli::usage_error(name_ + ": this audio format cannot hold the output");
    int fd;
    if (destination == "-") {
        if (isatty(STDOUT_FILENO))
            cli::usage_error("standard output is a terminal; redirect it or name an output file");
        spool_ = std::make_unique<ScratchFile>();  // a seekable place for the header
        fd = dup(spool_->fd());
    } else {
        file_ = std::make_unique<PendingFile>(destination);
        fd = file_->duplicate_fd();
    }
    sf_ = sf_open_fd(fd, SFM_WRITE, &info, SF_TRUE);
    if (sf_ == nullptr) cli::input_error(name_ + ": cannot write audio: " + sf_strerror(nullptr));
    shorts_as_floats_ = (format & SF_FORMAT_SUBMASK) == SF_FORMAT_MPEG_LAYER_III;
}

AudioWriter::~AudioWriter() {
    if (sf_ != nullptr) sf_close(sf_);  // the PendingFile then removes the file
}

void AudioWriter::write(const int16_t *interleaved, std::size_t frames) {
    if (shorts_as_floats_) {
        as_floats_.resize(2 * frames);
        for (std::size_t i = 0; i < 2 * frames; ++i) as_floats_[i] = interleaved[i] / 32768.0f;
        write(as_floats_.data(), frames);
        return;
    }
    const sf_count_t put = sf_writef_short(sf_, interleaved, static_cast<sf_count_t>(frames));
    if (put != static_cast<sf_count_t>(frames)) cli::input_error(name_ + ": write failed: " + sf_strerror(sf_));
    note_written(frames);
}

void AudioWriter::write(const float *interleaved, std::size_t frames) {
    const sf_count_t put = sf_writef_float(sf_, interleaved, static_cast<sf_count_t>(frames));
    if (put != static_cast<sf_count_t>(frames)) cli::input_error(name_ + ": write failed: " + sf_strerror(sf_));
    note_written(frames);
}

void AudioWriter::note_written(std::size_t frames) {
    constexpr int64_t kWritebackFrames = 1 << 18;  // 1 MiB of 16-bit stereo
    unflushed_frames_ += static_cast<int64_t>(frames);
    if (file_ && unflushed_frames_ >= kWritebackFrames) {
        file_->start_writeback();
        unflushed_frames_ = 0;
    }
}

void AudioWriter::commit() {
    sf_write_sync(sf_);
    const int status = sf_close(sf_);
    sf_ = nullptr;
    if (status != 0) cli::input_error(name_ + ": write failed: " + sf_error_number(status));
    if (spool_)
        spool_->copy_to(STDOUT_FILENO, name_);
    else
        file_->commit();
}

}  // namespace vorl
