// The library driven through its C interface beside two peers on the same
// four seconds of 48 kHz stereo audio, in the same run: speexdsp's
// preprocessor (one state per channel, denoise on) and WebRTC's noise
// suppressor (denoise only). One iteration processes the whole recording,
// so every time is per 4 s of audio. The library runs on the vector path
// chosen at start-up (VORL_SIMD=scalar|sse2|avx2|neon picks another). After
// the runs the peers' times are printed as multiples of the library's.
//
//   build/bench/bench_block --benchmark_repetitions=5   ratios of medians
//   VORL_SIMD=scalar build/bench/bench_block            the scalar path
#include <benchmark/benchmark.h>
#include <speex/speex_preprocess.h>
#include <webrtc/modules/audio_processing/include/audio_processing.h>
#include <webrtc/modules/interface/module_common_types.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "nr/simd_path.h"
#include "ratio_reporter.h"
#include "table_builder.h"
#include "vorl.h"

namespace {

constexpr int kRate = 48000;
constexpr int kFrames = 4 * kRate;        // four seconds
constexpr int kBlock = VORL_BLOCK_FRAMES;  // 256
constexpr int kPeerFrame = kRate / 100;   // 10 ms, what both peers take

// Tone, hiss and a zoom-motor-like whine with clicks, left and right apart.
struct Recording {
    std::vector<int16_t> left, right, interleaved;
    Recording() : left(kFrames), right(kFrames), interleaved(2 * kFrames) {
        uint32_t seed = 1;
        for (int i = 0; i < kFrames; ++i) {
            seed = seed * 1664525u + 1013904223u;
            const double t = static_cast<double>(i) / kRate;
            const double hiss = static_cast<int32_t>(seed) / 2147483648.0 * 600.0;
            const double whine = 900.0 * std::sin(2 * M_PI * 2300.0 * t) * (t > 1.0 && t < 3.0);
            const double tone = 3000.0 * std::sin(2 * M_PI * 440.0 * t);
            const double click = i % 9000 == 0 ? 12000.0 : 0.0;
            left[i] = static_cast<int16_t>(tone + hiss + whine + click);
            right[i] = static_cast<int16_t>(tone - hiss + 0.5 * whine);
            interleaved[2 * i] = left[i];
            interleaved[2 * i + 1] = right[i];
        }
    }
};
const Recording &recording() {
    static const Recording r;
    return r;
}

void BM_vorl(benchmark::State &state) {
    const std::string path = "/tmp/vorl-bench-table.bin";
    const st_vorl_tbl table = vorl::tablekit::reference_table();
    if (sound_vorl_write_tbl(path.c_str(), &table) != 0) {
        state.SkipWithError("cannot write the table");
        return;
    }
    auto work = std::make_unique<VORLWorkArea>();
    VORLResource res{};
    VORLGetResourceSize(&res);
    res.p_work = work.get();
    res.p_tbl_path = path.c_str();
    VORLGetResourceInfo(&res);
    VORLInitialize(&res);
    const bool refused = VORLPreProcess(&res) != 0;
    std::remove(path.c_str());
    if (refused) {
        state.SkipWithError("table rejected");
        return;
    }
    work->pulse_proc_flag = static_cast<uint32_t>(state.range(0));
    const Recording &rec = recording();
    for (auto _ : state) {
        for (int b = 0; b + kBlock <= kFrames; b += kBlock) {
            std::memcpy(res.p_in_ch0, &rec.left[b], kBlock * sizeof(int16_t));
            std::memcpy(res.p_in_ch1, &rec.right[b], kBlock * sizeof(int16_t));
            const bool drive = b > kRate && b < 3 * kRate;  // zoom drive in the middle
            VORLSetDriveState(&res, drive ? 1 : 0, 0, 0);
            VORLEnterLibrary(&res);
            benchmark::DoNotOptimize(res.p_out[0]);
        }
    }
    const double blocks = static_cast<double>(kFrames / kBlock) * static_cast<double>(state.iterations());
    state.counters["us_per_block"] = benchmark::Counter(blocks * 1e-6, benchmark::Counter::kIsRate |
                                                                         benchmark::Counter::kInvert);
    state.counters["realtime_x"] = benchmark::Counter(4.0 * static_cast<double>(state.iterations()),
                                                      benchmark::Counter::kIsRate);
    state.SetLabel(vorl::simd::path_name(vorl::simd::active_path()));
}
BENCHMARK(BM_vorl)->Arg(0)->Arg(1)->ArgName("pulse");

void BM_speexdsp_denoise(benchmark::State &state) {
    SpeexPreprocessState *st[2];
    for (auto &s : st) {
        s = speex_preprocess_state_init(kPeerFrame, kRate);
        int on = 1;
        speex_preprocess_ctl(s, SPEEX_PREPROCESS_SET_DENOISE, &on);
    }
    const Recording &rec = recording();
    std::vector<int16_t> frame(kPeerFrame);
    for (auto _ : state) {
        for (int b = 0; b + kPeerFrame <= kFrames; b += kPeerFrame) {
            for (int c = 0; c < 2; ++c) {
                std::memcpy(frame.data(), &(c ? rec.right : rec.left)[b], kPeerFrame * sizeof(int16_t));
                speex_preprocess_run(st[c], frame.data());
                benchmark::DoNotOptimize(frame.data());
            }
        }
    }
    state.counters["realtime_x"] = benchmark::Counter(4.0 * static_cast<double>(state.iterations()),
                                                      benchmark::Counter::kIsRate);
    for (auto &s : st) speex_preprocess_state_destroy(s);
}
BENCHMARK(BM_speexdsp_denoise);

void BM_webrtc_ns(benchmark::State &state) {
    std::unique_ptr<webrtc::AudioProcessing> apm(webrtc::AudioProcessing::Create());
    apm->noise_suppression()->Enable(true);
    const Recording &rec = recording();
    webrtc::AudioFrame frame;
    for (auto _ : state) {
        for (int b = 0; b + kPeerFrame <= kFrames; b += kPeerFrame) {
            frame.samples_per_channel_ = kPeerFrame;
            frame.sample_rate_hz_ = kRate;
            frame.num_channels_ = 2;
            std::memcpy(frame.data_, &rec.interleaved[2 * b], 2 * kPeerFrame * sizeof(int16_t));
            if (apm->ProcessStream(&frame) != 0) {
                state.SkipWithError("ProcessStream failed");
                return;
            }
            benchmark::DoNotOptimize(frame.data_);
        }
    }
    state.counters["realtime_x"] = benchmark::Counter(4.0 * static_cast<double>(state.iterations()),
                                                      benchmark::Counter::kIsRate);
}
BENCHMARK(BM_webrtc_ns);

}  // namespace

// After the table, each peer's time as a multiple of the library's.
int main(int argc, char **argv) {
    return vorl::bench::run_with_ratios(argc, argv, [](const auto &cpu) {
        for (const char *lib : {"BM_vorl/pulse:0", "BM_vorl/pulse:1"})
            for (const char *peer : {"BM_speexdsp_denoise", "BM_webrtc_ns"})
                if (cpu(lib) > 0 && cpu(peer) > 0)
                    std::printf("%-20s / %-16s = %5.1fx (CPU time; libvorl on %s)\n", peer, lib, cpu(peer) / cpu(lib),
                                vorl::simd::path_name(vorl::simd::active_path()));
    });
}
