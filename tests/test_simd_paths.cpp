// Vector paths against the scalar path, bit for bit: both transforms, the
// reciprocal (with hostile tables too) and the core on randomised inputs;
// the twiddle table against its recurrence. Whole runs on each path are the
// regression suite rerun with VORL_SIMD set (tests/CMakeLists.txt).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "fft/fft_common.h"
#include "fft/rfft_paths.h"
#include "nr/core_paths.h"
#include "nr/stages.h"
#include "table_builder.h"
#include "testkit.h"

namespace {

using vorl::simd::Path;

std::vector<Path> vector_paths() {
    std::vector<Path> paths;
    for (Path p : {Path::kSse2, Path::kAvx2, Path::kNeon})
        if (vorl::simd::kernels(p) != nullptr) paths.push_back(p);
    return paths;
}

template <typename T>
bool same_bits(const T &a, const T &b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// Equal bits, any NaN matching any NaN: which operand's NaN an operation
// passes on is the compiler's choice (it may swap a + b), and every NaN
// leaves the engine as a silent sample.
bool same_values(const std::vector<float> &a, const std::vector<float> &b) {
    for (size_t i = 0; i < a.size(); ++i)
        if (!same_bits(a[i], b[i]) && !(std::isnan(a[i]) && std::isnan(b[i]))) return false;
    return true;
}

// Random floats over many octaves, with a few specials.
float wild_float(vorl::testkit::Noise &noise) {
    const uint32_t r = noise.next();
    switch (r % 64) {
        case 0: return std::numeric_limits<float>::quiet_NaN();
        case 1: return std::numeric_limits<float>::infinity();
        case 2: return 0.0f;
        case 3: return -1e-40f;
        case 4: return -3.0e9f;
        case 5: return 3.0e9f;
        default: return noise.uniform() * std::ldexp(1.0f, static_cast<int>(r >> 8) % 60 - 30);
    }
}

TEST(SimdPaths, EnvironmentChoosesThePathAndAVectorPathExists) {
    const char *wanted = std::getenv("VORL_SIMD");
    if (wanted != nullptr) EXPECT_STREQ(vorl::simd::path_name(vorl::simd::active_path()), wanted);
#if defined(__x86_64__) || defined(__aarch64__)
    EXPECT_FALSE(vector_paths().empty());
#endif
}

TEST(SimdPaths, TwiddleTableIsTheRecurrence) {
    const vorl::fft::TwiddleTable &t = vorl::fft::twiddles_512();
    const float *seeds = IFFT_radix4_time_addition_theorem_wr_wi_2048;
    int q = 8;
    for (int stage = 0; stage < 3; ++stage, q *= 4) {
        vorl::fft::Twiddles w(seeds[2 * stage + 2], seeds[2 * stage + 3]);
        for (int k = 1; k < q / 2; ++k, w.next()) {
            const float expected[6] = {w.c1, w.s1, w.c2, w.s2, w.c3, w.s3};
            for (int r = 0; r < 6; ++r) EXPECT_TRUE(same_bits(t.w[stage][r][k], expected[r])) << q << " " << k;
        }
    }
    EXPECT_TRUE(same_bits(t.middle, vorl::fft::middle_constant()));
    EXPECT_TRUE(vorl::fft::has_table_seeds(seeds));  // the engine's seeds take the table
}

TEST(SimdPaths, TransformsMatchTheScalarPathInBothDirections) {
    st_vorl_inst inst{};
    inst.p_ifft_tbl = IFFT_radix4_time_addition_theorem_wr_wi_2048;
    vorl::testkit::Noise noise(7);
    for (Path path : vector_paths()) {
        for (int trial = 0; trial < 20; ++trial) {
            std::vector<float> x(512);
            for (float &v : x) v = trial < 18 ? noise.uniform() * 1e4f : wild_float(noise);
            std::vector<float> scalar = x, vec = x;
            vorl::fft::rfft(scalar.data(), 512, &inst, Path::kScalar);
            vorl::fft::rfft(vec.data(), 512, &inst, path);
            ASSERT_TRUE(same_values(scalar, vec)) << vorl::simd::path_name(path) << " trial " << trial;
            vorl::fft::irfft(scalar.data(), 512, &inst, Path::kScalar);
            vorl::fft::irfft(vec.data(), 512, &inst, path);
            ASSERT_TRUE(same_values(scalar, vec)) << vorl::simd::path_name(path) << " trial " << trial;
        }
    }
}

// The reciprocal and, in the same pass, the sum over both rows of the
// values as given; one row or two clamped, a count with leftover lanes.
TEST(SimdPaths, ReciprocalAndTotalMatchTheScalarPathWithAnyTable) {
    st_vorl p = vorl::tablekit::reference_table().st_vorl;
    vorl::testkit::Noise noise(3);
    constexpr int kCount = 259;
    for (Path path : vector_paths()) {
        for (int table = 0; table < 6; ++table) {
            if (table > 0)  // hostile tables: unordered thresholds, any seeds
                for (int j = 0; j < 28; ++j) {
                    p.div_search_tbl_f[j] = wild_float(noise);
                    p.div_init_value_tbl_f[j] = wild_float(noise);
                }
            const int rows = table % 2 ? 1 : 2;
            std::vector<float> x[2], clamped[2], recip[2];
            for (int row = 0; row < 2; ++row) {
                for (int i = 0; i < kCount; ++i)
                    x[row].push_back(i % 3 ? wild_float(noise) : p.div_search_tbl_f[i % 28]);
                recip[row].assign(kCount, 0.0f);
            }
            if (table < 2)  // finite values only, so every bit of the sum counts
                for (auto &row : x)
                    for (float &v : row) v = std::isfinite(v) ? v : 1.0f;
            clamped[0] = x[0], clamped[1] = x[1];
            float *pow[2] = {clamped[0].data(), clamped[1].data()};
            float *out[2] = {recip[0].data(), recip[1].data()};
            const float total = vorl::simd::kernels(path)->clamp_invert(pow, out, rows, kCount, 2, p.div_search_tbl_f,
                                                                        p.div_init_value_tbl_f);
            float expected = 0.0f;
            for (int i = 0; i < kCount; ++i) expected = (expected + x[0][i]) + x[1][i];
            EXPECT_TRUE(same_values({expected}, {total})) << vorl::simd::path_name(path) << " table " << table;
            for (int row = 0; row < 2; ++row)
                for (int i = 0; i < kCount; ++i) {
                    float v = x[row][i];
                    const float r = row < rows ? sound_vorl_recip(&v, 2, &p) : 0.0f;
                    ASSERT_TRUE(same_bits(v, clamped[row][i]) && same_bits(r, recip[row][i]))
                        << vorl::simd::path_name(path) << " table " << table << " row " << row << " x " << x[row][i];
                }
        }
    }
}

TEST(SimdPaths, CoreMatchesTheScalarPath) {
    for (Path path : vector_paths()) {
        for (uint32_t seed = 1; seed <= 4; ++seed) {
            static VORLWorkArea a, b;
            for (VORLWorkArea *w : {&a, &b}) {
                vorl::testkit::setup_engine(*w, vorl::tablekit::reference_table());
                w->ws.bgn_on = w->ws.zn_on = 1;
                w->inst.wind_state = seed % 2;
                vorl::testkit::Noise noise(seed);
                for (auto &frame : w->frame)
                    for (float &v : frame) v = noise.uniform() * (seed == 4 ? 1e-6f : 50.0f);
            }
            float *spec_a[2] = {a.frame[0], a.frame[1]}, *spec_b[2] = {b.frame[0], b.frame[1]};
            vorl::core(spec_a, &a.inst, Path::kScalar);
            vorl::core(spec_b, &b.inst, path);
            EXPECT_EQ(std::memcmp(a.frame, b.frame, sizeof a.frame), 0) << vorl::simd::path_name(path);
            EXPECT_EQ(std::memcmp(a.ws.gain_prev, b.ws.gain_prev, sizeof a.ws.gain_prev), 0);
            EXPECT_EQ(std::memcmp(a.ws.pow_spec, b.ws.pow_spec, sizeof a.ws.pow_spec), 0);
            EXPECT_EQ(std::memcmp(a.ws.zspec_acc, b.ws.zspec_acc, sizeof a.ws.zspec_acc), 0);
            EXPECT_EQ(std::memcmp(a.ws.band_acc, b.ws.band_acc, sizeof a.ws.band_acc), 0);
            EXPECT_TRUE(same_bits(a.ws.level_acc, b.ws.level_acc) && same_bits(a.ws.ctrl_pow_acc, b.ws.ctrl_pow_acc));
        }
    }
}

TEST(SimdPaths, AnalysisAndSynthesisMatchTheScalarPath) {
    vorl::testkit::Noise noise(5);
    for (Path path : vector_paths()) {
        for (int trial = 0; trial < 8; ++trial) {
            std::vector<int16_t> ring(1024 + 512), pending(1024);
            for (int16_t &v : ring) v = static_cast<int16_t>(noise.next());
            for (int16_t &v : pending) v = static_cast<int16_t>(noise.next());
            std::vector<float> f[4];
            for (auto &frame : f) frame.assign(512, 0.0f);
            vorl::analyse(f[0].data(), f[1].data(), ring.data(), 1024, sin_win_tbl, Path::kScalar);
            vorl::analyse(f[2].data(), f[3].data(), ring.data(), 1024, sin_win_tbl, path);
            ASSERT_TRUE(same_values(f[0], f[2]) && same_values(f[1], f[3])) << vorl::simd::path_name(path);

            // Frames at output scale, with values beyond 16 and 32 bits, NaN and infinities.
            for (auto &frame : f)
                for (float &v : frame) v = trial % 2 ? wild_float(noise) : noise.uniform() * 600.0f;
            std::vector<int16_t> out_scalar = pending, out_vec = pending;
            vorl::synthesise(f[0].data(), f[1].data(), out_scalar.data(), scale_sin_win_tbl, Path::kScalar);
            vorl::synthesise(f[0].data(), f[1].data(), out_vec.data(), scale_sin_win_tbl, path);
            ASSERT_EQ(out_scalar, out_vec) << vorl::simd::path_name(path);
        }
    }
}

}  // namespace
