// Short camera-like clips made with the ffmpeg program, and what a
// container holds, read back with libavformat.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vorl::test {

struct ClipSpec {
    std::string audio_codec = "aac";  // ffmpeg encoder name
    int channels = 2;
    bool video = true;
    bool timecode = false;  // a timecode track starting 01:00:00:00 (MOV)
    double audio_delay = 0;  // seconds the sound starts after the picture
};

// Writes a 2 s clip at `path` (the container from its extension): H.264
// test-pattern video with B-frames, 48 kHz audio holding a chirp and a
// motor-like burst from 0.8 to 1.2 s (opposite in the two channels), the
// title "Take 7" and the audio stream's language "eng".
void make_clip(const std::string &path, const ClipSpec &spec = {});

// Writes a camera video of the recording at `audio` to `path`: a test
// pattern as long as the sound, which is coded as AAC.
void make_video_of(const std::string &audio, const std::string &path);

// Writes `path` as a copy of the clip at `clip` whose audio stream comes
// twice (a second audio stream, as for a commentary).
void add_second_audio(const std::string &clip, const std::string &path);

struct PacketRecord {
    int64_t pts, dts;
    int size;
    uint32_t crc;
    bool operator==(const PacketRecord &o) const {
        return pts == o.pts && dts == o.dts && size == o.size && crc == o.crc;
    }
};

struct StreamRecord {
    std::string codec;
    int time_base_num = 0, time_base_den = 1;
    double start = 0, duration = 0;  // seconds
    std::map<std::string, std::string> tags;
    std::vector<PacketRecord> packets;  // timestamps in time_base
};

struct ContainerRecord {
    std::map<std::string, std::string> tags;
    std::vector<StreamRecord> streams;
};

ContainerRecord inspect(const std::string &path);

// `s`'s packets with their timestamps in the time base 1/`den`.
std::vector<PacketRecord> packets_in(const StreamRecord &s, int den);

}  // namespace vorl::test
