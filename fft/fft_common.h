// Pieces shared by the forward and inverse real transforms: the twiddle
// recurrence, the bit-reversal counter and the middle-butterfly constant.
#pragma once

#include <cstdint>
#include <cstring>

namespace vorl::fft {

// sqrt(1/2) one unit in the last place above its float rounding
// (0x3F3504F4); both directions' middle butterflies use this value.
constexpr float middle_constant() { return 0x1.6a09e8p-1f; }

// Twiddles (c1,s1), (c2,s2), (c3,s3) for k = 1, 2, ... of one stage, by
// angle-addition from the seed (cos theta, sin theta), theta = 2 pi / L.
class Twiddles {
  public:
    constexpr Twiddles(float c_theta, float s_theta)
        : ct_(c_theta), st_(s_theta), c1(c_theta), s1(s_theta), c2(0), s2(0), c3(0), s3(0) {
        derive();
    }
    constexpr void next() {
        const float c = ct_ * c1 - st_ * s1;
        const float s = ct_ * s1 + st_ * c1;
        c1 = c;
        s1 = s;
        derive();
    }

  private:
    constexpr void derive() {
        c2 = c1 * c1 - s1 * s1;  // double angle
        s2 = s1 * (c1 + c1);
        c3 = c1 * c2 - s1 * s2;  // triple angle
        s3 = c1 * s2 + s1 * c2;
    }
    float ct_, st_;

  public:
    float c1, s1, c2, s2, c3, s3;
};

// In-place bit-reversal permutation of n elements by the reversed counter.
inline void bit_reverse(float *buf, int32_t n) {
    int32_t j = 0;
    for (int32_t i = 1; i <= n - 2; ++i) {
        int32_t h = n;
        do {
            h >>= 1;
            j ^= h;
        } while (h > j);
        if (i < j) {
            const float t = buf[i];
            buf[i] = buf[j];
            buf[j] = t;
        }
    }
}

// (a0, a1) -> (a0 + a1, a0 - a1) over all adjacent pairs.
inline void radix2_pass(float *buf, int32_t n) {
    for (int32_t m = 0; 2 * m + 1 < n; ++m) {
        const float a0 = buf[2 * m];
        const float a1 = buf[2 * m + 1];
        buf[2 * m] = a0 + a1;
        buf[2 * m + 1] = a0 - a1;
    }
}

// Seed pairs exist for L = 8, 32, 128, 512, 2048 (pairs 0..4).
constexpr int kSeedPairs = 5;

}  // namespace vorl::fft
