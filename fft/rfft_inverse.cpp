// Inverse real FFT of 512 points: in place, unnormalised (inverse of the
// forward gives 512 x). Decimation in frequency, the mirror of the forward:
// radix-4 stages Q = 128, 32, 8, 2, a radix-2 pass, then bit reversal.
#include "fft_common.h"
#include "rfft_paths.h"
#include "vorl.h"

namespace {

using vorl::fft::Twiddles;

constexpr int32_t kLength = 512;

void butterfly_zero(float *x, int32_t q) {
    const float a0 = x[0], a1 = x[q], a2 = x[2 * q], a3 = x[3 * q];
    x[0] = (a1 + a1) + (a0 + a2);
    x[q] = (a0 + a2) - (a1 + a1);
    x[2 * q] = (a0 - a2) + (a3 + a3);
    x[3 * q] = (a0 - a2) - (a3 + a3);
}

void butterfly_k(float *x, int32_t q, int32_t k, const Twiddles &w) {
    const float p = x[k], pm = x[q - k], pp = x[q + k], hm = x[2 * q - k];
    const float hp = x[2 * q + k], tm = x[3 * q - k], tp = x[3 * q + k], e = x[4 * q - k];
    const float u1 = (p - pm) - (pp - hm);
    const float w1 = (e + tp) - (tm + hp);
    const float u2 = (p - hm) + (tm + tp);
    const float w2 = (e + hp) - (pp - pm);
    const float u3 = (p - hm) - (tm + tp);
    const float w3 = (pp - pm) + (e + hp);
    x[k] = (p + pm) + (pp + hm);
    x[q - k] = (tm - hp) - (tp - e);
    x[q + k] = w.c2 * u1 + w.s2 * w1;
    x[2 * q - k] = w.c2 * w1 - w.s2 * u1;
    x[2 * q + k] = w.s1 * w2 + w.c1 * u2;
    x[3 * q - k] = w.c1 * w2 - w.s1 * u2;
    x[3 * q + k] = w.s3 * w3 + w.c3 * u3;
    x[4 * q - k] = w.c3 * w3 - w.s3 * u3;
}

void butterfly_middle(float *x, int32_t q, float r) {
    const int32_t k = q / 2;
    const float a0 = x[k], a1 = x[q + k], a2 = x[2 * q + k], a3 = x[3 * q + k];
    const float sum01 = a0 + a1;
    const float diff32 = a3 - a2;
    const float plus = (a2 + a3) + (a0 - a1);
    const float minus = (a2 + a3) - (a0 - a1);
    x[k] = sum01 + sum01;
    x[q + k] = diff32 + diff32;
    x[2 * q + k] = (plus + plus) * r;
    x[3 * q + k] = (minus + minus) * r;
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
