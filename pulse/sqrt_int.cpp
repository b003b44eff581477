// Integer square root in Q8 (about 256 sqrt(x), within -0.58 % .. +1.27 %):
// normalise to a 12-bit mantissa on an even exponent, approximate
// sqrt(m/4096) by a quadratic in Q20, and scale back. No division, no table.
#include "vorl.h"

extern "C" int32_t SqrtInt(int32_t x) {
    if (x < 1) return 0;

    // Bit length by halving search.
    int32_t bits;
    int32_t t;
    if ((x >> 16) != 0) {
        bits = 17;
        t = x >> 16;
    } else {
        bits = 1;
        t = x;
    }
    for (int shift = 8; shift >= 2; shift /= 2) {
        if ((t >> shift) != 0) {
            t >>= shift;
            bits += shift;
        }
    }
    if (t > 1) bits += 1;

    const int32_t even = (bits + 1) & ~1;
    int32_t m;  // 1024 <= m <= 4095
    if (even < 12)
        m = x << (12 - even);
    else if (even == 12)
        m = x;
    else
        m = x >> (even - 12);

    // 0.2734375 + u - 0.27734375 u^2 in Q20, u = m / 4096.
    const int32_t p = m * 256 + ((m * m * -71) >> 12) + 0x46000;

    const int32_t half = even / 2;
    if (bits >= 25) return p << (half - 12);
    if (bits >= 23) return p;
    return (p + (1 << (11 - half))) >> (12 - half);
}
