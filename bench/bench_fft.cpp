// One forward plus one inverse 512-point real transform: the library's own
// transform beside FFTW (measured plan) and KissFFT, so the ratio is visible.
#include <benchmark/benchmark.h>
#include <fftw3.h>
#include <kiss_fftr.h>

#include <cmath>
#include <vector>

#include "vorl.h"

namespace {

constexpr int kN = 512;

std::vector<float> test_frame() {
    std::vector<float> x(kN);
    for (int t = 0; t < kN; ++t) x[t] = std::sin(0.37f * t) + 0.25f * std::cos(1.9f * t);
    return x;
}

void BM_vorl_rfft_pair(benchmark::State &state) {
    st_vorl_inst inst{};
    inst.p_ifft_tbl = IFFT_radix4_time_addition_theorem_wr_wi_2048;
    std::vector<float> x = test_frame();
    for (auto _ : state) {
        sound_vorl_rfft_sac(x.data(), kN, &inst);
        sound_vorl_irfft_sac(x.data(), kN, &inst);
        for (float &v : x) v *= 1.0f / kN;  // keep the values bounded, as the others do
        benchmark::DoNotOptimize(x.data());
    }
}
BENCHMARK(BM_vorl_rfft_pair);

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
