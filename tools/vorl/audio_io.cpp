#include "audio_io.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>

#include <sndfile.h>

#include "cli.h"

namespace vorl {

namespace {

std::string lower_extension(const std::string &path) {
    const auto slash = path.rfind('/');
    const auto dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    return ext;
}

// Full scale is 1.0 in libsndfile's normalised reads; round to the nearest
// 16-bit step, and saturate. A value one step above 32767 is the positive
// end of a wider format's full scale, not clipping.
int16_t to_16bit(double v, uint64_t &clipped) {
    const double scaled = std::nearbyint(v * 32768.0);
    if (scaled > 32767.0) {
        if (scaled > 32768.0) ++clipped;
        return 32767;
    }
    if (scaled < -32768.0) {
        ++clipped;
        return -32768;
    }
    if (std::isnan(scaled)) {
        ++clipped;
        return 0;
    }
    return static_cast<int16_t>(scaled);
}

}  // namespace

AudioReader::AudioReader(const std::string &path) : path_(path) {
    SF_INFO info;
    std::memset(&info, 0, sizeof info);
    if (!file_exists(path)) cli::input_error(path + ": no such file");
    sf_ = sf_open(path.c_str(), SFM_READ, &info);
    if (sf_ == nullptr) cli::input_error(path + ": cannot read as audio: " + sf_strerror(nullptr));
    channels_ = info.channels;
    rate_ = info.samplerate;
    frames_ = info.frames;
    format_ = info.format;
    const int sub = info.format & SF_FORMAT_SUBMASK;
    is_16bit_ = sub == SF_FORMAT_PCM_16;
}

AudioReader::~AudioReader() {
    if (sf_ != nullptr) sf_close(sf_);
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
        cli::input_error(path_ + ": found " + std::to_string(channels_) + " channel" + (channels_ == 1 ? "" : "s") +
                         ", the noise reducer needs stereo (2 channels)");
}

std::size_t AudioReader::read(int16_t *out, std::size_t n) {
    const auto ch = static_cast<std::size_t>(channels_);
    if (buffer_frames_ < n) {
        buffer_.reset(new double[n * ch]);
        buffer_frames_ = n;
    }
    const sf_count_t got = sf_readf_double(sf_, buffer_.get(), static_cast<sf_count_t>(n));
    if (got < 0) cli::input_error(path_ + ": read failed: " + sf_strerror(sf_));
    if (sf_error(sf_) != SF_ERR_NO_ERROR) cli::input_error(path_ + ": read failed: " + sf_strerror(sf_));
    const std::size_t samples = static_cast<std::size_t>(got) * ch;
    for (std::size_t i = 0; i < samples; ++i) out[i] = to_16bit(buffer_[i], clipped_);
    return static_cast<std::size_t>(got);
}

int format_for_extension(const std::string &path) {
    std::string ext = lower_extension(path);
    if (ext == "aif") ext = "aiff";
    if (ext == "wave") ext = "wav";
    if (ext.empty()) return 0;
    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof count);
    for (int i = 0; i < count; ++i) {
        SF_FORMAT_INFO info{};
        info.format = i;
        sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &info, sizeof info);
        if (info.extension != nullptr && ext == info.extension) return info.format;
    }
    return 0;
}

AudioWriter::AudioWriter(const std::string &destination, int sample_rate) : file_(destination) {
    const int major = format_for_extension(destination);
    if (major == 0) cli::usage_error(destination + ": cannot tell the audio format from the file name; use .wav, .flac, .aiff, ...");
    SF_INFO info;
    std::memset(&info, 0, sizeof info);
    info.samplerate = sample_rate;
    info.channels = 2;
    info.format = major | SF_FORMAT_PCM_16;
    if (!sf_format_check(&info))
        cli::usage_error(destination + ": this format cannot hold 16-bit PCM; use .wav, .flac, .aiff, ...");
    sf_ = sf_open_fd(file_.release_fd(), SFM_WRITE, &info, SF_TRUE);
    if (sf_ == nullptr) cli::input_error(destination + ": cannot write audio: " + sf_strerror(nullptr));
}

AudioWriter::~AudioWriter() {
    if (sf_ != nullptr) sf_close(sf_);  // the PendingFile then removes the file
}

void AudioWriter::write(const int16_t *interleaved, std::size_t frames) {
    const sf_count_t put = sf_writef_short(sf_, interleaved, static_cast<sf_count_t>(frames));
    if (put != static_cast<sf_count_t>(frames))
        cli::input_error(file_.destination() + ": write failed: " + sf_strerror(sf_));
}

void AudioWriter::commit() {
    sf_write_sync(sf_);
    const int status = sf_close(sf_);
    sf_ = nullptr;
    if (status != 0) cli::input_error(file_.destination() + ": write failed: " + sf_error_number(status));
    file_.commit();
}

}  // namespace vorl
