// Forward real FFT: in place, unnormalised, half-complex output (real parts
// of bins 0..n/2 forward, sine parts of bins 1..n/2-1 backward from the end).
// Decimation in time: bit reversal, one radix-2 pass, then real radix-4
// stages of quarter length Q = 2, 8, 32, ...
#include "butterflies.h"
#include "fft_common.h"
#include "rfft_paths.h"
#include "vorl.h"

namespace {

using vorl::fft::Twiddles;

// The butterflies of one block at x, in place.
void butterfly_zero(float *x, int32_t q) { forward_zero(x[0], x[q], x[2 * q], x[3 * q]); }

void butterfly_k(float *x, int32_t q, int32_t k, const Twiddles &w) {
    const float t[6] = {w.c1, w.s1, w.c2, w.s2, w.c3, w.s3};
    butterfly_k_in_place<forward_k<float>>(x, q, k, t);
}

void butterfly_middle(float *x, int32_t q, float r) {
    const int32_t k = q / 2;
    forward_middle(x[k], x[q + k], x[2 * q + k], x[3 * q + k], r);
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
