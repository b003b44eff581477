// Real FFT pair: agreement with an exact DFT, the half-complex layout and
// scaling, length handling, and pinned bits on a fixed frame.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "testkit.h"
#include "vorl.h"

namespace {

const double kPi = 3.14159265358979323846;

st_vorl_inst transform_instance() {
    st_vorl_inst inst{};
    inst.p_ifft_tbl = IFFT_radix4_time_addition_theorem_wr_wi_2048;
    return inst;
}

std::vector<float> random_frame(int n, uint32_t seed) {
    vorl::testkit::Noise noise(seed);
    std::vector<float> x(n);
    for (float &v : x) v = noise.uniform();
    return x;
}

// Exact DFT in the library's layout (cosine sums forward, sine sums backward).
std::vector<double> exact_spectrum(const std::vector<float> &x) {
    const int n = static_cast<int>(x.size());
    std::vector<double> s(n, 0.0);
    for (int k = 0; k <= n / 2; ++k) {
        double re = 0, im = 0;
        for (int t = 0; t < n; ++t) {
            const double a = 2 * kPi * static_cast<double>((static_cast<long>(k) * t) % n) / n;
            re += x[t] * std::cos(a);
            im += x[t] * std::sin(a);
        }
        s[k] = re;
        if (k > 0 && k < n / 2) s[n - k] = im;
    }
    return s;
}

// Signal-to-error ratio in dB.
template <typename A, typename B>
double snr_db(const A &reference, const B &actual) {
    double sig = 0, err = 0;
    for (size_t i = 0; i < reference.size(); ++i) {
        sig += static_cast<double>(reference[i]) * reference[i];
        const double d = static_cast<double>(actual[i]) - static_cast<double>(reference[i]);
        err += d * d;
    }
    return 10 * std::log10(sig / err);
}

TEST(Fft, ForwardAgreesWithExactDftAtEverySupportedLength) {
    const st_vorl_inst inst = transform_instance();
    for (int n : {8, 32, 128, 512, 2048}) {
        std::vector<float> x = random_frame(n, 1000 + n);
        const std::vector<double> exact = exact_spectrum(x);
        sound_vorl_rfft_sac(x.data(), n, &inst);
        EXPECT_GT(snr_db(exact, x), 110.0) << "n = " << n;
    }
}

TEST(Fft, InverseMatchesTheExactSynthesisSumAndUndoesTheForward) {
    const st_vorl_inst inst = transform_instance();
    std::vector<float> spec = random_frame(512, 11);
    std::vector<double> exact(512);
    for (int t = 0; t < 512; ++t) {
        double y = spec[0] + (t % 2 ? -1.0 : 1.0) * spec[256];
        for (int k = 1; k < 256; ++k) {
            const double a = 2 * kPi * ((k * t) % 512) / 512;
            y += 2 * (spec[k] * std::cos(a) + spec[512 - k] * std::sin(a));
        }
        exact[t] = y;
    }
    EXPECT_EQ(sound_vorl_irfft_sac(spec.data(), 512, &inst), spec.data());
    EXPECT_GT(snr_db(exact, spec), 110.0);

    const std::vector<float> x = random_frame(512, 3);
    std::vector<float> y = x;
    sound_vorl_rfft_sac(y.data(), 512, &inst);
    sound_vorl_irfft_sac(y.data(), 512, &inst);
    std::vector<double> scaled(x.begin(), x.end());
    for (double &v : scaled) v *= 512;
    EXPECT_GT(snr_db(scaled, y), 105.0);  // two transforms' rounding
}

TEST(Fft, LayoutOfSimpleSignals) {
    const st_vorl_inst inst = transform_instance();
    std::vector<float> ones(512, 1.0f), impulse(512, 0.0f), c3(512), s3(512);
    impulse[0] = 1.0f;
    for (int t = 0; t < 512; ++t) {
        c3[t] = static_cast<float>(std::cos(2 * kPi * 3 * t / 512));
        s3[t] = static_cast<float>(std::sin(2 * kPi * 3 * t / 512));
    }
    for (auto *v : {&ones, &impulse, &c3, &s3}) sound_vorl_rfft_sac(v->data(), 512, &inst);
    for (int k = 0; k < 512; ++k) {
        EXPECT_NEAR(ones[k], k == 0 ? 512.0f : 0.0f, 1e-4) << k;
        EXPECT_NEAR(impulse[k], k <= 256 ? 1.0f : 0.0f, 1e-6) << k;
        EXPECT_NEAR(c3[k], k == 3 ? 256.0f : 0.0f, 1e-3) << k;
        EXPECT_NEAR(s3[k], k == 509 ? 256.0f : 0.0f, 1e-3) << k;
    }
}

TEST(Fft, InverseLeavesOtherLengthsUntouched) {
    const st_vorl_inst inst = transform_instance();
    for (int n : {256, 1024, 0, -512}) {
        std::vector<float> x = random_frame(1024, 5);
        const std::vector<float> before = x;
        sound_vorl_irfft_sac(x.data(), n, &inst);
        EXPECT_EQ(x, before) << n;
    }
}

// Pinned bits: any change of operation order shows here (and on every target).
TEST(Fft, BitsOfBothDirectionsArePinned) {
    const st_vorl_inst inst = transform_instance();
    std::vector<float> x = random_frame(512, 20211);
    sound_vorl_rfft_sac(x.data(), 512, &inst);
    EXPECT_EQ(vorl::testkit::digest(x), "f87d1244d49dcba2");
    sound_vorl_irfft_sac(x.data(), 512, &inst);
    EXPECT_EQ(vorl::testkit::digest(x), "b72cf156d07fb049");
}

}  // namespace
