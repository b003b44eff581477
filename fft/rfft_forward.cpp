// Forward real FFT: in place, unnormalised, half-complex output (real parts
// of bins 0..n/2 forward, sine parts of bins 1..n/2-1 backward from the end).
// Decimation in time: bit reversal, one radix-2 pass, then real radix-4
// stages of quarter length Q = 2, 8, 32, ...
#include "fft_common.h"
#include "rfft_paths.h"
#include "vorl.h"

namespace {

using vorl::fft::Twiddles;

// k = 0 butterfly of one block.
void butterfly_zero(float *x, int32_t q) {
    const float a0 = x[0], a1 = x[q], a2 = x[2 * q], a3 = x[3 * q];
    x[0] = (a0 + a1) + (a2 + a3);
    x[q] = a0 - a1;
    x[2 * q] = (a0 + a1) - (a2 + a3);
    x[3 * q] = a2 - a3;
}

// General butterfly for 1 <= k < Q/2 of one block.
void butterfly_k(float *x, int32_t q, int32_t k, const Twiddles &w) {
    const float t1re = w.c2 * x[q + k] - w.s2 * x[2 * q - k];
    const float t1im = w.s2 * x[q + k] + w.c2 * x[2 * q - k];
    const float t2re = w.c1 * x[2 * q + k] - w.s1 * x[3 * q - k];
    const float t2im = w.s1 * x[2 * q + k] + w.c1 * x[3 * q - k];
    const float t3re = w.c3 * x[3 * q + k] - w.s3 * x[4 * q - k];
    const float t3im = w.s3 * x[3 * q + k] + w.c3 * x[4 * q - k];
    const float a = x[k];
    const float b = x[q - k];
    x[k] = (a + t1re) + (t2re + t3re);
    x[2 * q - k] = (a + t1re) - (t2re + t3re);
    x[q - k] = (a - t1re) + (t2im - t3im);
    x[q + k] = (a - t1re) - (t2im - t3im);
    x[4 * q - k] = (b + t1im) + (t2im + t3im);
    x[2 * q + k] = (t2im + t3im) - (b + t1im);
    x[3 * q - k] = (b - t1im) + (t2re - t3re);
    x[3 * q + k] = (t2re - t3re) - (b - t1im);
}

// Middle butterfly, k = Q/2, of one block.
void butterfly_middle(float *x, int32_t q, float r) {
    const int32_t k = q / 2;
    const float a0 = x[k], a1 = x[q + k], a2 = x[2 * q + k], a3 = x[3 * q + k];
    x[k] = a0 + r * (a2 - a3);
    x[q + k] = a0 - r * (a2 - a3);
    x[2 * q + k] = r * (a2 + a3) - a1;
    x[3 * q + k] = a1 + r * (a2 + a3);
}

}  // namespace

float *vorl::fft::rfft(float *buf, int32_t n, const st_vorl_inst *inst, simd::Path path) {
    if (const simd::Kernels *k = kernels_512(n, inst, path)) {
        k->rfft512(buf, twiddles_512());
        return buf;
    }
    if (n >= 3) vorl::fft::bit_reverse(buf, n);

    int32_t rest = n;
    while (rest > 3) rest /= 4;
    int32_t q = 1;
    if (rest == 2) {  // n = 2 * 4^m
        vorl::fft::radix2_pass(buf, n);
        q = 2;
    }

    const float *seeds = inst->p_ifft_tbl;
    const float r = vorl::fft::middle_constant();
    int seed = 0;
    for (; 4 * static_cast<int64_t>(q) <= n; q *= 4) {
        const int32_t len = 4 * q;
        for (int32_t b = 0; b + len <= n; b += len) butterfly_zero(buf + b, q);
        if (q == 1) continue;  // consumes no seed pair
        if (q >= 4) {
            // Lengths beyond the seed table reuse its last pair (wrong, but safe).
            const int p = seed < vorl::fft::kSeedPairs ? seed : vorl::fft::kSeedPairs - 1;
            Twiddles w(seeds[2 * p], seeds[2 * p + 1]);
            for (int32_t k = 1; k < q / 2; ++k, w.next())
                for (int32_t b = 0; b + len <= n; b += len) butterfly_k(buf + b, q, k, w);
        }
        for (int32_t b = 0; b + len <= n; b += len) butterfly_middle(buf + b, q, r);
        ++seed;
    }
    return buf;
}

extern "C" float *sound_vorl_rfft_sac(float *buf, int32_t n, const st_vorl_inst *inst) {
    return vorl::fft::rfft(buf, n, inst, vorl::simd::active_path());
}
