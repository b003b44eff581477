// Reading ahead and writing behind: the same frames in the same order as
// without them, errors where they happened, and nothing written or left
// running after an abandoned run.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

#include "background_io.h"

namespace {

// Frames 0, 1, 2, ... (both samples of frame f hold f and -f), in reads of
// at most `max_read` frames, failing after `fail_after` frames if set.
class CountingReader : public vorl::SampleReader {
public:
    CountingReader(std::size_t frames, std::size_t max_read, std::size_t fail_after = SIZE_MAX)
        : frames_(frames), max_read_(max_read), fail_after_(fail_after) {}
    const std::string &name() const override { return name_; }
    int sample_rate() const override { return 48000; }
    int64_t frames() const override { return static_cast<int64_t>(frames_); }
    int64_t frames_read() const override { return static_cast<int64_t>(at_); }
    void require_stereo() const override {}
    std::size_t read(int16_t *out, std::size_t n) override { return fill(out, n); }
    std::size_t read(float *out, std::size_t n) override { return fill(out, n); }
    uint64_t clipped() const override { return at_; }
    std::string premature_end() const override { return at_ == frames_ ? "" : "short"; }

private:
    template <typename T>
    std::size_t fill(T *out, std::size_t n) {
        if (at_ >= fail_after_) throw std::runtime_error("decoder gave up");
        const std::size_t k = std::min({n, max_read_, frames_ - at_, fail_after_ - at_});
        for (std::size_t i = 0; i < k; ++i) {
            out[2 * i] = static_cast<T>(static_cast<int16_t>(at_ + i));
            out[2 * i + 1] = static_cast<T>(-static_cast<int16_t>(at_ + i));
        }
        at_ += k;
        return k;
    }
    std::string name_ = "counting";
    std::size_t frames_, max_read_, fail_after_, at_ = 0;
};

class CollectingWriter : public vorl::SampleWriter {
public:
    explicit CollectingWriter(std::size_t fail_at_write = SIZE_MAX) : fail_at_(fail_at_write) {}
    void write(const int16_t *p, std::size_t frames) override {
        if (writes_++ == fail_at_) throw std::runtime_error("disk full");
        samples.insert(samples.end(), p, p + 2 * frames);
    }
    void write(const float *p, std::size_t frames) override {
        for (std::size_t i = 0; i < 2 * frames; ++i) samples.push_back(static_cast<int16_t>(p[i]));
    }
    void commit() override { committed = true; }
    std::vector<int16_t> samples;
    std::atomic<bool> committed{false};

private:
    std::size_t fail_at_, writes_ = 0;
};

std::vector<int16_t> counting(std::size_t frames) {
    std::vector<int16_t> s;
    for (std::size_t f = 0; f < frames; ++f) s.insert(s.end(), {static_cast<int16_t>(f), static_cast<int16_t>(-static_cast<int16_t>(f))});
    return s;
}

TEST(ReadAhead, GivesTheInputsFramesInOrderWhateverTheReadSizes) {
    constexpr std::size_t kFrames = 10007;
    CountingReader in(kFrames, 777);
    vorl::ReadAhead ahead(in, 1000);
    std::vector<int16_t> got, buf(2 * 333);
    while (const std::size_t n = ahead.read(buf.data(), 333)) got.insert(got.end(), buf.begin(), buf.begin() + 2 * n);
    EXPECT_EQ(got, counting(kFrames));
    EXPECT_EQ(ahead.frames_read(), static_cast<int64_t>(kFrames));
    EXPECT_EQ(ahead.read(buf.data(), 333), 0u);  // stays at the end
    EXPECT_EQ(ahead.clipped(), kFrames);         // the reader's totals, final
    EXPECT_EQ(ahead.premature_end(), "");

    CountingReader in_floats(kFrames, 4096);
    vorl::ReadAhead ahead_floats(in_floats, 2048);
    std::vector<float> fbuf(2 * 5000);
    std::vector<int16_t> fgot;
    while (const std::size_t n = ahead_floats.read(fbuf.data(), 5000))
        for (std::size_t i = 0; i < 2 * n; ++i) fgot.push_back(static_cast<int16_t>(fbuf[i]));
    EXPECT_EQ(fgot, counting(kFrames));
    EXPECT_THROW(ahead_floats.read(buf.data(), 1), std::logic_error);  // one sample type per stream
}

TEST(ReadAhead, AnInputErrorComesAfterTheFramesBeforeIt) {
    CountingReader in(50000, 1000, 4500);
    vorl::ReadAhead ahead(in, 1000);
    std::vector<int16_t> buf(2 * 1000);
    std::size_t total = 0;
    try {
        while (const std::size_t n = ahead.read(buf.data(), 1000)) total += n;
        FAIL() << "the input error was lost";
    } catch (const std::runtime_error &e) {
        EXPECT_STREQ(e.what(), "decoder gave up");
    }
    EXPECT_EQ(total, 4500u);
}

TEST(ReadAhead, AnAbandonedReadStopsTheThread) {
    CountingReader in(1000000, 4096);
    {
        vorl::ReadAhead ahead(in, 4096);
        int16_t frame[2];
        ASSERT_EQ(ahead.read(frame, 1), 1u);  // the thread then fills its queue and waits
    }  // must return, not hang
    EXPECT_LT(in.frames_read(), 1000000);
}

TEST(WriteBehind, WritesEverythingInOrderThenCommits) {
    CollectingWriter out;
    vorl::WriteBehind behind(out, 1000);
    const std::vector<int16_t> all = counting(20000);
    for (std::size_t f = 0; f < 20000; f += 250) behind.write(all.data() + 2 * f, 250);
    const float tail[4] = {1.0f, -1.0f, 2.0f, -2.0f};
    behind.write(tail, 2);  // a change of sample type keeps the order
    behind.commit();
    EXPECT_TRUE(out.committed);
    std::vector<int16_t> expected = all;
    expected.insert(expected.end(), {1, -1, 2, -2});
    EXPECT_EQ(out.samples, expected);
}

TEST(WriteBehind, AWriteErrorReachesTheCallerAndNothingIsCommitted) {
    CollectingWriter out(/*fail_at_write=*/2);
    const std::vector<int16_t> all = counting(100000);
    try {
        vorl::WriteBehind behind(out, 1000);
        for (std::size_t f = 0; f < 100000; f += 500) behind.write(all.data() + 2 * f, 500);
        behind.commit();
        FAIL() << "the write error was lost";
    } catch (const std::runtime_error &e) {
        EXPECT_STREQ(e.what(), "disk full");
    }
    EXPECT_FALSE(out.committed);
    EXPECT_EQ(out.samples.size(), 2u * 2000);  // the two writes before the failing one
}

TEST(WriteBehind, WithoutCommitNothingIsCommitted) {
    CollectingWriter out;
    {
        vorl::WriteBehind behind(out, 1000);
        const std::vector<int16_t> all = counting(5000);
        behind.write(all.data(), 5000);
    }
    EXPECT_FALSE(out.committed);
}

}  // namespace
