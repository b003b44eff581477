// Stand-alone stereo DC-cut: bilinear second-order Butterworth high-pass at
// 0.000743059 fs in direct form II, gain split between input and output so
// that the state of a constant input x settles at x/16.
#include "vorl.h"

namespace {

constexpr double kInGain = 1.357856826166719e-06;   // (1 - a1 + a2) / 16
constexpr double kA1 = 1.9933973771045725;          // 2(1 - K^2) / (1 + sqrt2 K + K^2)
constexpr double kA2 = 0.9934191028137912;          // (1 - sqrt2 K + K^2) / (1 + sqrt2 K + K^2)
constexpr double kOutGain = 734027.4031639434;      // b0 / kInGain
constexpr double kOutGain2 = 1468054.8063278869;    // 2 kOutGain

// Round half away from zero, saturating to 16 bits (NaN gives 0).
int16_t round_to_i16(double y) {
    if (!(y == y)) return 0;
    if (y >= 32767.0) return 32767;
    if (y <= -32768.0) return -32768;
    const auto whole = static_cast<int32_t>(y);  // truncates; |y| < 2^15
    const double frac = y - whole;               // exact
    int32_t r = whole;
    if (frac >= 0.5) r += 1;
    if (frac <= -0.5) r -= 1;
    if (r > 32767) r = 32767;
    if (r < -32768) r = -32768;
    return static_cast<int16_t>(r);
}

// One channel, one sample: returns the output and updates w0..w2.
int16_t filter_sample(int16_t sample, double &w0, double &w1, double &w2) {
    const double x = sample;
    const double w = (x * kInGain + w1 * kA1) - w2 * kA2;
    const double y = w2 * kOutGain + (w * kOutGain - w1 * kOutGain2);
    w2 = w1;
    w1 = w;
    w0 = w;
    return round_to_i16(y);
}

}  // namespace

extern "C" {

int32_t VORLDcCutInit(VORLDcCutState *s) {
    *s = VORLDcCutState{0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
    return 0;
}

int32_t VORLDcCutProc(int16_t *samples, VORLDcCutState *s, uint32_t frames) {
    for (uint32_t k = 0; k < frames; ++k) {
        const int16_t left = samples[2 * k];
        const int16_t right = samples[2 * k + 1];
        samples[2 * k] = filter_sample(left, s->w0_l, s->w1_l, s->w2_l);
        samples[2 * k + 1] = filter_sample(right, s->w0_r, s->w1_r, s->w2_r);
    }
    return 0;
}

}  // extern "C"
