// The block stream's count of output samples the library saturated.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "engine_stream.h"
#include "table_checksum.h"
#include "table_store.h"

namespace {

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

}  // namespace
