// The video-container reader and writer: the sound comes out as it went in,
// in time with the picture, and everything else is copied untouched.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include "cli.h"
#include "media_fixture.h"
#include "media_io.h"

namespace vorl {
namespace {

std::string temp_dir() {
    std::string pattern = std::string(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp") + "/vorl-media-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
    return pattern;
}

std::vector<int16_t> read_all(MediaReader &r) {
    std::vector<int16_t> all;
    int16_t block[2 * 1000];
    for (std::size_t n; (n = r.read(block, 1000)) > 0;) all.insert(all.end(), block, block + 2 * n);
    return all;
}

// The lag (in frames, within ±`range`) at which `b` best matches `a`.
int best_lag(const std::vector<int16_t> &a, const std::vector<int16_t> &b, int range) {
    const int from = 24000, len = 9600;  // 0.5 s to 0.7 s, in frames
    int best = 0;
    double best_sum = -1e300;
    for (int lag = -range; lag <= range; ++lag) {
        double sum = 0;
        for (int i = from; i < from + len; ++i) sum += double(a[2 * i]) * b[2 * (i + lag)];
        if (sum > best_sum) best_sum = sum, best = lag;
    }
    return best;
}

struct Case {
    const char *file, *audio_codec;
    double audio_delay;
};
std::ostream &operator<<(std::ostream &o, const Case &c) { return o << c.file << " with " << c.audio_codec; }

class MediaRoundTrip : public testing::TestWithParam<Case> {};

// Reads a clip's sound and writes it back unchanged: the video packets are
// the same bytes at the same times, the audio starts and lasts as before
// and is not shifted, the tags and a MOV timecode stay, and PCM comes back
// bit for bit.
TEST_P(MediaRoundTrip, CopiesOtherStreamsAndKeepsTheSoundInTime) {
    const std::string dir = temp_dir();
    const std::string in = dir + "/" + GetParam().file, out = dir + "/out-" + GetParam().file;
    const bool mov = std::string(GetParam().file).find(".mov") != std::string::npos;
    test::make_clip(in, {GetParam().audio_codec, 2, true, mov, GetParam().audio_delay});
    ASSERT_TRUE(is_video_container(in));

    std::vector<int16_t> sound;
    {
        MediaReader reader(in);
        EXPECT_EQ(reader.channels(), 2);
        EXPECT_EQ(reader.sample_rate(), 48000);
        MediaWriter writer(reader, out, reader.sample_rate(), {});
        sound = read_all(reader);
        EXPECT_EQ(reader.premature_end(), "");
        writer.write(sound.data(), sound.size() / 2);
        writer.commit();
    }
    EXPECT_NEAR(sound.size() / 2, 96000, 2048);  // Matroska keeps AAC's priming and padding

    const test::ContainerRecord a = test::inspect(in), b = test::inspect(out);
    ASSERT_EQ(a.streams.size(), mov ? 3u : 2u);
    ASSERT_EQ(b.streams.size(), a.streams.size());
    if (mov) EXPECT_EQ(b.streams[2].tags.at("timecode"), "01:00:00:00");  // the track written anew
    EXPECT_EQ(b.tags.at("title"), "Take 7");
    const test::StreamRecord &va = a.streams[0], &vb = b.streams[0], &aa = a.streams[1], &ab = b.streams[1];
    EXPECT_EQ(vb.codec, "h264");
    ASSERT_EQ(va.packets.size(), 50u);
    EXPECT_EQ(test::packets_in(va, va.time_base_den), test::packets_in(vb, va.time_base_den));
    EXPECT_EQ(ab.codec, aa.codec);
    EXPECT_EQ(ab.tags.at("language"), "eng");
    const double aac_frame = 1024.0 / 48000;
    EXPECT_NEAR(aa.start, GetParam().audio_delay, aac_frame);
    EXPECT_NEAR(ab.start, aa.start, aac_frame);
    if (aa.duration > 0) EXPECT_NEAR(ab.duration, aa.duration, aac_frame);

    MediaReader again(out);
    const std::vector<int16_t> back = read_all(again);
    EXPECT_NEAR(back.size() / 2.0, sound.size() / 2.0, 1024);
    if (aa.codec.rfind("pcm_", 0) == 0)
        EXPECT_EQ(back, sound);
    else
        EXPECT_EQ(best_lag(sound, back, 1100), 0);
    std::system(("rm -rf '" + dir + "'").c_str());
}

INSTANTIATE_TEST_SUITE_P(Containers, MediaRoundTrip,
                         testing::Values(Case{"clip.mp4", "aac", 0}, Case{"clip.mov", "pcm_s16le", 0},
                                         Case{"clip.mkv", "aac", 0}, Case{"late.mkv", "aac", 0.5}),
                         [](const auto &info) {
                             const std::string file = info.param.file;
                             return file.substr(0, 4) + "_" + file.substr(5);
                         });

// A second audio stream (a commentary, say) is copied as it was, and the
// summary says which stream got the new sound.
TEST(MediaIo, OtherAudioStreamsAreCopiedAndNamed) {
    const std::string dir = temp_dir(), clip = dir + "/clip.mkv", in = dir + "/two.mkv", out = dir + "/out.mkv";
    test::make_clip(clip);
    test::add_second_audio(clip, in);
    {
        MediaReader reader(in);
        MediaWriter writer(reader, out, reader.sample_rate(), {});
        const std::vector<int16_t> sound = read_all(reader);
        writer.write(sound.data(), sound.size() / 2);
        writer.commit();
        EXPECT_NE(writer.encoding().find("in stream 1; 1 other audio stream copied unchanged"), std::string::npos)
            << writer.encoding();
    }
    const test::ContainerRecord a = test::inspect(in), b = test::inspect(out);
    ASSERT_EQ(b.streams.size(), 3u);
    EXPECT_EQ(test::packets_in(b.streams[2], 48000), test::packets_in(a.streams[2], 48000));
    std::system(("rm -rf '" + dir + "'").c_str());
}

TEST(MediaIo, RefusesWhatItCannotDoNamingTheFile) {
    const std::string dir = temp_dir();
    test::make_clip(dir + "/mono.mp4", {"aac", 1});
    MediaReader mono(dir + "/mono.mp4");
    EXPECT_EQ(mono.channels(), 1);
    try {
        mono.require_stereo();
        ADD_FAILURE() << "mono accepted";
    } catch (const cli::Failure &f) {
        EXPECT_NE(std::string(f.what()).find("mono.mp4: its audio stream has 1 channel"), std::string::npos) << f.what();
    }
    test::make_clip(dir + "/clip.mp4");
    MediaReader reader(dir + "/clip.mp4");
    EXPECT_THROW(MediaWriter(reader, dir + "/out.mp4", 48000, {"pcm_s16le"}), cli::Failure);  // not in MP4
    EXPECT_THROW(MediaWriter(reader, dir + "/out.mp4", 48000, {"no-such-codec"}), cli::Failure);
    EXPECT_THROW(MediaWriter(reader, dir + "/out.mp4", 12345, {"aac"}), cli::Failure);
    EXPECT_EQ(parse_bit_rate("192k"), 192000);
    EXPECT_EQ(parse_bit_rate("1.5M"), 1500000);
    EXPECT_EQ(parse_bit_rate("fast"), 0);
    std::system(("rm -rf '" + dir + "'").c_str());
}

}  // namespace
}  // namespace vorl
