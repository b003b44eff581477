#include "media_fixture.h"

#include <cstdlib>
#include <stdexcept>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/crc.h>
}

namespace vorl::test {

namespace {

std::map<std::string, std::string> tags_of(const AVDictionary *d) {
    std::map<std::string, std::string> tags;
    const AVDictionaryEntry *e = nullptr;
    while ((e = av_dict_get(d, "", e, AV_DICT_IGNORE_SUFFIX)) != nullptr) tags[e->key] = e->value;
    return tags;
}

double seconds(int64_t ts, AVRational tb) { return ts == AV_NOPTS_VALUE ? -1 : ts * av_q2d(tb); }

}  // namespace

void make_clip(const std::string &path, const ClipSpec &spec) {
    const std::string chirp = "0.3*sin(2*PI*(300+500*t)*t)", burst = "0.2*between(t\\,0.8\\,1.2)*sin(2*PI*2500*t)";
    std::string channels = chirp + "+" + burst;
    if (spec.channels == 2) channels += "|" + chirp + "-" + burst;
    for (int c = 2; c < spec.channels; ++c) channels += "|" + chirp;
    std::string cmd = std::string(VORL_FFMPEG) + " -v error -y";
    if (spec.video) cmd += " -f lavfi -i testsrc=size=160x120:rate=25:duration=2";
    if (spec.audio_delay > 0) cmd += " -itsoffset " + std::to_string(spec.audio_delay);
    cmd += " -f lavfi -i 'aevalsrc=" + channels + ":s=48000:d=2'";
    if (spec.video) cmd += " -c:v libx264 -preset veryfast -bf 2 -pix_fmt yuv420p";
    if (spec.timecode) cmd += " -timecode 01:00:00:00";
    cmd += " -c:a " + spec.audio_codec + " -metadata title='Take 7' -metadata:s:a:0 language=eng '" + path + "'";
    if (std::system(cmd.c_str()) != 0) throw std::runtime_error("ffmpeg could not make " + path);
}

void make_video_of(const std::string &audio, const std::string &path) {
    const std::string cmd = std::string(VORL_FFMPEG) + " -v error -y -f lavfi -i testsrc=size=160x120:rate=25 -i '" +
                            audio + "' -shortest -c:v libx264 -preset veryfast -pix_fmt yuv420p -c:a aac '" + path + "'";
    if (std::system(cmd.c_str()) != 0) throw std::runtime_error("ffmpeg could not make " + path);
}

void add_second_audio(const std::string &clip, const std::string &path) {
    const std::string cmd =
        std::string(VORL_FFMPEG) + " -v error -y -i '" + clip + "' -map 0 -map 0:a -c copy '" + path + "'";
    if (std::system(cmd.c_str()) != 0) throw std::runtime_error("ffmpeg could not make " + path);
}

ContainerRecord inspect(const std::string &path) {
    AVFormatContext *fmt = nullptr;
    if (avformat_open_input(&fmt, path.c_str(), nullptr, nullptr) < 0 || avformat_find_stream_info(fmt, nullptr) < 0)
        throw std::runtime_error("cannot open " + path);
    ContainerRecord r;
    r.tags = tags_of(fmt->metadata);
    for (unsigned i = 0; i < fmt->nb_streams; ++i) {
        const AVStream *st = fmt->streams[i];
        StreamRecord s;
        s.codec = avcodec_get_name(st->codecpar->codec_id);
        s.time_base_num = st->time_base.num;
        s.time_base_den = st->time_base.den;
        s.start = seconds(st->start_time, st->time_base);
        s.duration = seconds(st->duration, st->time_base);
        s.tags = tags_of(st->metadata);
        r.streams.push_back(s);
    }
    const AVCRC *table = av_crc_get_table(AV_CRC_32_IEEE);
    AVPacket *pkt = av_packet_alloc();
    while (av_read_frame(fmt, pkt) >= 0) {
        r.streams[pkt->stream_index].packets.push_back(
            {pkt->pts, pkt->dts, pkt->size, av_crc(table, 0, pkt->data, static_cast<size_t>(pkt->size))});
        av_packet_unref(pkt);
    }
    av_packet_free(&pkt);
    avformat_close_input(&fmt);
    return r;
}

std::vector<PacketRecord> packets_in(const StreamRecord &s, int den) {
    std::vector<PacketRecord> out = s.packets;
    const AVRational from{s.time_base_num, s.time_base_den}, to{1, den};
    for (PacketRecord &p : out)
        for (int64_t *ts : {&p.pts, &p.dts})
            if (*ts != AV_NOPTS_VALUE) *ts = av_rescale_q(*ts, from, to);
    return out;
}

}  // namespace vorl::test
