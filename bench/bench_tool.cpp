// The whole "vorl process" pipeline (libsndfile reading ahead and writing
// an atomic output file behind on threads of their own, the block stream,
// the host session) beside the library alone on the same 20 s of audio, in
// one run: the ratio of the two real times is what the tool adds. Files go
// to $TMPDIR (TMPDIR=/dev/shm leaves the disk out).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include <sndfile.h>

#include "audio_io.h"
#include "background_io.h"
#include "drive_schedule.h"
#include "engine_stream.h"
#include "host_session.h"
#include "pending_file.h"
#include "ratio_reporter.h"
#include "table_store.h"

namespace {

constexpr int kRate = 48000;
constexpr int64_t kFrames = 20 * kRate;

// 20 s of a tone with hiss, as interleaved 16-bit stereo.
const std::vector<int16_t> &recording() {
    static const std::vector<int16_t> samples = [] {
        std::vector<int16_t> s(2 * kFrames);
        uint32_t seed = 1;
        for (int64_t n = 0; n < kFrames; ++n) {
            seed = seed * 1664525u + 1013904223u;
            const auto hiss = static_cast<int16_t>(static_cast<int32_t>(seed) >> 21);
            const auto tone = static_cast<int16_t>(3000.0 * std::sin(0.05 * static_cast<double>(n)));
            s[2 * n] = static_cast<int16_t>(tone + hiss);
            s[2 * n + 1] = static_cast<int16_t>(tone - hiss);
        }
        return s;
    }();
    return samples;
}

std::string input_file() {
    static const std::string path = [] {
        const std::string p = vorl::system_temp_dir() + "/vorl-bench-in.wav";
        SF_INFO info{};
        info.samplerate = kRate;
        info.channels = 2;
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        SNDFILE *f = sf_open(p.c_str(), SFM_WRITE, &info);
        sf_writef_short(f, recording().data(), kFrames);
        sf_close(f);
        return p;
    }();
    return path;
}

void BM_library_alone(benchmark::State &state) {
    const auto &in = recording();
    std::vector<int16_t> out(2 * VORL_BLOCK_FRAMES);
    for (auto _ : state) {
        vorl::HostSession session(vorl::default_table(), "built-in table");
        for (int64_t f = 0; f + VORL_BLOCK_FRAMES <= kFrames; f += VORL_BLOCK_FRAMES)
            session.process(in.data() + 2 * f, out.data(), {});
        benchmark::DoNotOptimize(out[0]);
    }
}
BENCHMARK(BM_library_alone)->Unit(benchmark::kMillisecond)->UseRealTime();

// One "vorl process IN OUT" run, reading and writing ahead and behind on
// threads of their own as the tool does.
void process_file(const std::string &in_path, const std::string &out_path) {
    vorl::HostSession session(vorl::default_table(), "built-in table");
    const vorl::DriveSchedule idle;
    vorl::AudioReader in_file(in_path);
    vorl::AudioWriter out_file(out_path, kRate, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    vorl::ReadAhead in(in_file, vorl::kFileChunkFrames);
    vorl::WriteBehind out(out_file, vorl::kFileChunkFrames);
    vorl::EngineStream engine(session, idle, kRate, false, false,
                              [&](const int16_t *p, std::size_t n) { out.write(p, n); });
    const int16_t *frames = nullptr;
    while (const std::size_t n = in.read_in_place(frames, 16384)) engine.push(frames, n);
    engine.finish();
    out.commit();
}

// Writing a new file, the usual case.
void BM_process_file(benchmark::State &state) {
    const std::string in_path = input_file(), out_path = vorl::system_temp_dir() + "/vorl-bench-out.wav";
    for (auto _ : state) {
        state.PauseTiming();
        std::remove(out_path.c_str());
        state.ResumeTiming();
        process_file(in_path, out_path);
    }
    std::remove(out_path.c_str());
}
BENCHMARK(BM_process_file)->Unit(benchmark::kMillisecond)->UseRealTime();

// Replacing the previous output (-y): the file system also frees the old one.
void BM_process_file_replacing(benchmark::State &state) {
    const std::string in_path = input_file(), out_path = vorl::system_temp_dir() + "/vorl-bench-out.wav";
    for (auto _ : state) process_file(in_path, out_path);
    std::remove(out_path.c_str());
}
BENCHMARK(BM_process_file_replacing)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char **argv) {
    return vorl::bench::run_with_ratios(
        argc, argv,
        [](const auto &real) {
            const double alone = real("BM_library_alone/real_time");
            if (alone <= 0) return;
            for (const char *run : {"BM_process_file/real_time", "BM_process_file_replacing/real_time"})
                if (real(run) > 0) std::printf("%s / library alone: %.3f\n", run, real(run) / alone);
        },
        vorl::bench::RatioReporter::Clock::Real);
}
