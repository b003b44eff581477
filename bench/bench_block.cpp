// One VORLEnterLibrary block (256 stereo frames) with the pulse filter off
// and on. A block is 5.333 ms of audio at 48 kHz; the real-time factor is
// reported as a counter (audio time / processing time).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "table_builder.h"
#include "vorl.h"

namespace {

constexpr double kBlockSeconds = 256.0 / 48000.0;

void BM_enter_library(benchmark::State &state) {
    const std::string path = "/tmp/vorl-bench-table.bin";
    const st_vorl_tbl table = vorl::tablekit::reference_table();
    if (sound_vorl_write_tbl(path.c_str(), &table) != 0) {
        state.SkipWithError("cannot write the table");
        return;
    }
    std::vector<VORLWorkArea> storage(1);
    VORLResource res{};
    VORLGetResourceSize(&res);
    res.p_work = storage.data();
    res.p_tbl_path = path.c_str();
    VORLGetResourceInfo(&res);
    VORLInitialize(&res);
    if (VORLPreProcess(&res) != 0) {
        state.SkipWithError("table rejected");
        return;
    }
    storage[0].pulse_proc_flag = static_cast<uint32_t>(state.range(0));
    uint32_t seed = 1;
    int64_t block = 0;
    for (auto _ : state) {
        for (int i = 0; i < 256; ++i) {
            seed = seed * 1664525u + 1013904223u;
            const auto hiss = static_cast<int16_t>(static_cast<int32_t>(seed) >> 21);
            const auto tone = static_cast<int16_t>(3000.0 * std::sin(0.05 * (block * 256 + i)));
            res.p_in_ch0[i] = static_cast<int16_t>(tone + hiss);
            res.p_in_ch1[i] = static_cast<int16_t>(tone - hiss);
        }
        VORLSetDriveState(&res, (block / 200) % 3, 0, 0);  // idle, then both directions
        VORLEnterLibrary(&res);
        benchmark::DoNotOptimize(res.p_out[0]);
        ++block;
    }
    state.counters["realtime_x"] =
        benchmark::Counter(kBlockSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    std::remove(path.c_str());
}
BENCHMARK(BM_enter_library)->Arg(0)->Arg(1)->ArgName("pulse");

}  // namespace
