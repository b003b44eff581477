// Inverse real FFT of 512 points: in place, unnormalised (inverse of the
// forward gives 512 x). Decimation in frequency, the mirror of the forward:
// radix-4 stages Q = 128, 32, 8, 2, a radix-2 pass, then bit reversal.
#include "butterflies.h"
#include "fft_common.h"
#include "rfft_paths.h"
#include "vorl.h"

namespace {

using vorl::fft::Twiddles;

constexpr int32_t kLength = 512;

void butterfly_zero(float *x, int32_t q) { inverse_zero(x[0], x[q], x[2 * q], x[3 * q]); }

void butterfly_k(float *x, int32_t q, int32_t k, const Twiddles &w) {
    const float t[6] = {w.c1, w.s1, w.c2, w.s2, w.c3, w.s3};
    butterfly_k_in_place<inverse_k<float>>(x, q, k, t);
}

void butterfly_middle(float *x, int32_t q, float r) {
    const int32_t k = q / 2;
    inverse_middle(x[k], x[q + k], x[2 * q + k], x[3 * q + k], r);
}

}  // namespace

float *vorl::fft::irfft(float *buf, int32_t n, const st_vorl_inst *inst, simd::Path path) {
    if (const simd::Kernels *k = kernels_512(n, inst, path)) {
        k->irfft512(buf, twiddles_512());
        return buf;
    }
    if (n != kLength) return buf;
    const float *seeds = inst->p_ifft_tbl;
    const float r = vorl::fft::middle_constant();
    int seed = 3;  // L = 512 uses pair 3; each smaller stage the pair before
    for (int32_t q = kLength / 4; q >= 2; q /= 4, --seed) {
        const int32_t len = 4 * q;
        for (int32_t b = 0; b < kLength; b += len) butterfly_zero(buf + b, q);
        if (q >= 4) {
            Twiddles w(seeds[2 * seed], seeds[2 * seed + 1]);
            for (int32_t k = 1; k < q / 2; ++k, w.next())
                for (int32_t b = 0; b < kLength; b += len) butterfly_k(buf + b, q, k, w);
        }
        for (int32_t b = 0; b < kLength; b += len) butterfly_middle(buf + b, q, r);
    }
    vorl::fft::radix2_pass(buf, kLength);
    vorl::fft::bit_reverse(buf, kLength);
    return buf;
}

extern "C" float *sound_vorl_irfft_sac(float *buf, int32_t n, const st_vorl_inst *inst) {
    return vorl::fft::irfft(buf, n, inst, vorl::simd::active_path());
}
