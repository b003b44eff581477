// The block stream's count of output samples the library saturated, and
// its watch on what the library is given.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "engine_stream.h"
#include "table_checksum.h"
#include "table_store.h"

namespace {

using vorl::DriveWords;

// Output of a 1 s tone at `amplitude` through a table whose equaliser
// multiplies everything by `gain`, and the stream's saturation count.
struct ToneRun {
    std::vector<int16_t> in, out;
    uint64_t saturated = 0;
};

ToneRun run_tone(double amplitude, float gain) {
    st_vorl_tbl t = vorl::default_table();
    t.st_vorl.eq_gain[0] = gain;  // the equaliser's running sum starts at it: flat
    vorl::tablekit::seal(t);
    vorl::HostSession session(t, "test table");
    const vorl::DriveSchedule idle;
    ToneRun r;
    vorl::EngineStream engine(session, idle, 48000, false, false,
                              [&](const int16_t *p, std::size_t n) { r.out.insert(r.out.end(), p, p + 2 * n); });
    for (int n = 0; n < 48000; ++n) {
        const auto v = static_cast<int16_t>(amplitude * std::sin(0.05 * n));
        r.in.insert(r.in.end(), {v, static_cast<int16_t>(-v)});
    }
    engine.push(r.in.data(), 48000);
    engine.finish();
    r.saturated = engine.saturated();
    return r;
}

TEST(EngineStream, CountsTheOutputSamplesAtFullScaleWhereTheInputWasNot) {
    const ToneRun loud = run_tone(16000.0, 8.0f);
    ASSERT_EQ(loud.out.size(), loud.in.size());
    uint64_t expected = 0;
    for (std::size_t i = 0; i < loud.out.size(); ++i)
        expected += (loud.out[i] == 32767 || loud.out[i] == -32768) && loud.out[i] != loud.in[i];
    EXPECT_GT(expected, 1000u);
    EXPECT_EQ(loud.saturated, expected);

    EXPECT_EQ(run_tone(16000.0, 1.0f).saturated, 0u);  // the quick pass finds nothing to count
}

// A 200 Hz tone alike in both channels, offset by +500 left and -200 right;
// in the driven second half the right channel is inverted, which the
// polarity check (made between drives only) must not see.
vorl::InputCheck watch(bool inverted, bool dc_cut) {
    st_vorl_tbl t = vorl::default_table();
    vorl::HostSession session(t, "test table");
    std::vector<DriveWords> words(188);
    for (std::size_t b = 94; b < words.size(); ++b) words[b].zoom = 1;
    const vorl::DriveSchedule drive = vorl::DriveSchedule::from_words(words);
    vorl::EngineStream engine(session, drive, 48000, dc_cut, false, [](const int16_t *, std::size_t) {});
    std::vector<int16_t> in;
    for (int n = 0; n < 48000; ++n) {
        const double v = 3000.0 * std::sin(2.0 * M_PI * 200.0 * n / 48000.0);
        const bool flip = inverted || n >= 94 * 256;
        in.insert(in.end(), {static_cast<int16_t>(std::lround(500.0 + v)),
                             static_cast<int16_t>(std::lround(-200.0 + (flip ? -v : v)))});
    }
    engine.push(in.data(), 48000);
    engine.finish();
    return engine.input_check();
}

TEST(EngineStream, WatchesTheInputForAnOffsetAndAnInvertedChannel) {
    const vorl::InputCheck plain = watch(false, false);
    EXPECT_NEAR(plain.offset(0), 500.0, 0.5);  // whole periods of the tone
    EXPECT_NEAR(plain.offset(1), -200.0, 10.0);  // and a part period inverted
    EXPECT_GT(plain.low_band_correlation(), 0.99);
    EXPECT_LT(watch(true, false).low_band_correlation(), -0.99);
    // The DC cut comes first: the library is given no offset.
    const vorl::InputCheck cut = watch(false, true);
    EXPECT_LT(std::abs(cut.offset(0)), 5.0);
    EXPECT_LT(std::abs(cut.offset(1)), 5.0);
}

}  // namespace
