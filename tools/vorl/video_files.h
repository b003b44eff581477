// Camera videos (MP4, MOV, MKV): their sound is read and rewritten through
// FFmpeg's libraries, which live in a module of the tool's own
// (vorl_video.so, media_io.h) loaded on first use. FFmpeg and the hundred
// shared objects it brings take about 20 ms to load, as long as the
// library takes for 45 s of sound, and most runs read and write audio
// files only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "sample_stream.h"

namespace vorl {

// How the new audio is encoded. Empty / 0 choose from the source: PCM stays
// the same PCM, anything else becomes AAC at the source's bit rate.
struct AudioEncoding {
    std::string codec;     // an FFmpeg encoder name, e.g. "aac", "flac", "pcm_s16le"
    int64_t bit_rate = 0;  // bits per second
};

// Parses a bit rate as "192000", "192k" or "1.5M"; 0 when malformed.
int64_t parse_bit_rate(const std::string &text);

// True for the video containers the tool rewrites: by extension (.mp4,
// .m4v, .mov, .mkv, and the sound-only .m4a and .mka), or for an existing
// file whose extension names no audio format libsndfile reads, by the
// format FFmpeg probes (MP4/MOV family or Matroska).
bool is_video_container(const std::string &path);

// The sound of the video at `path` (input error naming the file if it has
// none or FFmpeg cannot read it).
std::unique_ptr<SampleReader> open_video(const std::string &path);
// A copy of the video `source` (opened by open_video) at `destination`, its
// audio stream replaced by what is written, at `sample_rate`.
std::unique_ptr<SampleWriter> open_video_output(const SampleReader &source, const std::string &destination,
                                                int sample_rate, const AudioEncoding &encoding);
// What the module hands the tool: its one exported function,
// vorl_video_module, returns this.
struct VideoModule {
    static constexpr int kInterface = 2;  // changes with this record
    int interface;
    bool (*probe)(const std::string &path);
    std::unique_ptr<SampleReader> (*open_reader)(const std::string &path);
    std::unique_ptr<SampleWriter> (*open_writer)(const SampleReader &source, const std::string &destination,
                                                 int sample_rate, const AudioEncoding &encoding);
};

}  // namespace vorl
