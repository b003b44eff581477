// One forward plus one inverse 512-point real transform: the library's own
// transform on each of its paths beside FFTW (measured plan) and KissFFT,
// in the same run; afterwards each path's time is printed as a multiple of
// the peers'.
//
//   build/bench/bench_fft
#include <benchmark/benchmark.h>
#include <fftw3.h>
#include <kiss_fftr.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "fft/rfft_paths.h"
#include "ratio_reporter.h"
#include "vorl.h"

namespace {

constexpr int kN = 512;

std::vector<float> test_frame() {
    std::vector<float> x(kN);
    for (int t = 0; t < kN; ++t) x[t] = std::sin(0.37f * t) + 0.25f * std::cos(1.9f * t);
    return x;
}

void BM_vorl_rfft_pair(benchmark::State &state) {
    const auto path = static_cast<vorl::simd::Path>(state.range(0));
    if (!vorl::simd::path_available(path)) {
        state.SkipWithError("path not available here");
        return;
    }
    st_vorl_inst inst{};
    inst.p_ifft_tbl = IFFT_radix4_time_addition_theorem_wr_wi_2048;
    std::vector<float> x = test_frame();
    for (auto _ : state) {
        vorl::fft::rfft(x.data(), kN, &inst, path);
        vorl::fft::irfft(x.data(), kN, &inst, path);
        for (float &v : x) v *= 1.0f / kN;  // keep the values bounded, as the others do
        benchmark::DoNotOptimize(x.data());
    }
    state.SetLabel(vorl::simd::path_name(path));
}
BENCHMARK(BM_vorl_rfft_pair)->DenseRange(0, 3)->ArgName("path");

void BM_fftw_r2c_c2r_pair(benchmark::State &state) {
    float *x = fftwf_alloc_real(kN);
    fftwf_complex *spec = fftwf_alloc_complex(kN / 2 + 1);
    fftwf_plan fwd = fftwf_plan_dft_r2c_1d(kN, x, spec, FFTW_MEASURE);
    fftwf_plan inv = fftwf_plan_dft_c2r_1d(kN, spec, x, FFTW_MEASURE);
    const std::vector<float> init = test_frame();
    for (int i = 0; i < kN; ++i) x[i] = init[i];
    for (auto _ : state) {
        fftwf_execute(fwd);
        fftwf_execute(inv);
        for (int i = 0; i < kN; ++i) x[i] *= 1.0f / kN;
        benchmark::DoNotOptimize(x);
    }
    fftwf_destroy_plan(fwd);
    fftwf_destroy_plan(inv);
    fftwf_free(spec);
    fftwf_free(x);
}
BENCHMARK(BM_fftw_r2c_c2r_pair);

void BM_kissfft_pair(benchmark::State &state) {
    kiss_fftr_cfg fwd = kiss_fftr_alloc(kN, 0, nullptr, nullptr);
    kiss_fftr_cfg inv = kiss_fftr_alloc(kN, 1, nullptr, nullptr);
    std::vector<float> x = test_frame();
    std::vector<kiss_fft_cpx> spec(kN / 2 + 1);
    for (auto _ : state) {
        kiss_fftr(fwd, x.data(), spec.data());
        kiss_fftri(inv, spec.data(), x.data());
        for (float &v : x) v *= 1.0f / kN;
        benchmark::DoNotOptimize(x.data());
    }
    kiss_fftr_free(fwd);
    kiss_fftr_free(inv);
}
BENCHMARK(BM_kissfft_pair);

}  // namespace

// After the table, each library path's time as a multiple of the peers'.
int main(int argc, char **argv) {
    return vorl::bench::run_with_ratios(argc, argv, [](const auto &cpu) {
        for (int p = 0; p < 4; ++p) {
            const double lib = cpu("BM_vorl_rfft_pair/path:" + std::to_string(p));
            if (lib == 0) continue;
            std::printf("libvorl %-6s pair: %.2fx FFTW's time, %.2fx KissFFT's (CPU time)\n",
                        vorl::simd::path_name(static_cast<vorl::simd::Path>(p)), lib / cpu("BM_fftw_r2c_c2r_pair"),
                        lib / cpu("BM_kissfft_pair"));
        }
    });
}
