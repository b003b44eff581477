#include "drive_ceilings.h"

#include <algorithm>
#include <cmath>

#include "vorl.h"

namespace vorl {

namespace {

constexpr std::size_t kBlock = 256, kFrame = 2 * kBlock, kBins = kFrame / 2 + 1;
constexpr double kPi = 3.14159265358979323846;

// A recording: interleaved stereo, `frames` frames.
struct Recording {
    const int16_t *samples;
    std::size_t frames;
};

// Forward transform of one windowed 512-sample frame of channel c, frame f
// covering frames 256(f-1) .. 256(f+1)-1 (zero outside the recording).
void analyse(Recording x, std::size_t f, int c, float *buf, const st_vorl_inst &inst) {
    for (std::size_t t = 0; t < kFrame; ++t) {
        const long n = static_cast<long>(f * kBlock + t) - static_cast<long>(kBlock);
        const float v = n >= 0 && static_cast<std::size_t>(n) < x.frames ? x.samples[2 * static_cast<std::size_t>(n) + c] : 0;
        buf[t] = v * sin_win_tbl[t <= 256 ? t : kFrame - t];
    }
    sound_vorl_rfft_sac(buf, static_cast<int32_t>(kFrame), &inst);
}

double bin_power(const float *buf, std::size_t k) {
    if (k == 0 || k == kFrame / 2) return static_cast<double>(buf[k]) * buf[k];
    return static_cast<double>(buf[k]) * buf[k] + static_cast<double>(buf[kFrame - k]) * buf[kFrame - k];
}

st_vorl_inst transform_instance() {
    st_vorl_inst inst{};
    inst.p_ifft_tbl = IFFT_radix4_time_addition_theorem_wr_wi_2048;
    return inst;
}

// Frames of the engine's framing that overlap a driven block.
std::vector<bool> acting_frames(std::size_t frames, const BlockWordsAt &words) {
    const std::size_t blocks = (frames + kBlock - 1) / kBlock;
    std::vector<bool> act(blocks + 1);
    for (std::size_t f = 0; f <= blocks; ++f) act[f] = (f > 0 && words(f - 1).driven()) || (f < blocks && words(f).driven());
    return act;
}

// Runs the noisy recording through the engine's framing: each acting frame's
// two spectra go through `modify(f, y)` (y[c] the 512-element spectrum of
// channel c) and back, overlap-added; other frames pass unchanged.
template <class Modify> std::vector<int16_t> filter_frames(Recording noisy, const std::vector<bool> &act, Modify modify) {
    const st_vorl_inst inst = transform_instance();
    double window_sq[kFrame];  // sine window squared: consecutive frames sum to 1
    for (std::size_t t = 0; t < kFrame; ++t) window_sq[t] = std::pow(std::sin(kPi * static_cast<double>(t) / kFrame), 2);
    std::vector<double> sum(2 * noisy.frames, 0.0);
    float y[2][kFrame];
    for (std::size_t f = 0; f < act.size(); ++f) {
        if (act[f]) {
            for (int c = 0; c < 2; ++c) analyse(noisy, f, c, y[c], inst);
            modify(f, y);
            for (int c = 0; c < 2; ++c) sound_vorl_irfft_sac(y[c], static_cast<int32_t>(kFrame), &inst);
        }
        for (int c = 0; c < 2; ++c)
            for (std::size_t t = 0; t < kFrame; ++t) {
                const long at = static_cast<long>(f * kBlock + t) - static_cast<long>(kBlock);
                if (at < 0 || static_cast<std::size_t>(at) >= noisy.frames) continue;
                const std::size_t i = 2 * static_cast<std::size_t>(at) + c;
                // The synthesis window takes back the transform's gain of 512
                // and the analysis window's 1/32768.
                sum[i] += act[f] ? static_cast<double>(y[c][t]) * scale_sin_win_tbl[t <= 256 ? t : kFrame - t]
                                 : window_sq[t] * noisy.samples[i];
            }
    }
    std::vector<int16_t> out(sum.size());
    for (std::size_t i = 0; i < sum.size(); ++i)
        out[i] = static_cast<int16_t>(std::lround(std::fmax(-32768.0, std::fmin(32767.0, sum[i]))));
    return out;
}

// Multiplies bin k of a 512-element spectrum (both halves) by g.
void scale_bin(float *y, std::size_t k, float g) {
    y[k] *= g;
    if (k > 0 && k < kFrame / 2) y[kFrame - k] *= g;
}

std::vector<int16_t> noise_of(const int16_t *clean, const int16_t *noisy, std::size_t frames) {
    std::vector<int16_t> noise(2 * frames);
    for (std::size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<int16_t>(noisy[i] - clean[i]);
    return noise;
}

}  // namespace

std::vector<int16_t> oracle_output(const int16_t *clean, const int16_t *noisy, std::size_t frames,
                                   const BlockWordsAt &words) {
    const st_vorl_inst inst = transform_instance();
    const std::vector<int16_t> noise = noise_of(clean, noisy, frames);
    float s[kFrame], n[kFrame];
    return filter_frames({noisy, frames}, acting_frames(frames, words), [&](std::size_t f, float (*y)[kFrame]) {
        for (int c = 0; c < 2; ++c) {
            analyse({clean, frames}, f, c, s, inst);
            analyse({noise.data(), frames}, f, c, n, inst);
            for (std::size_t k = 0; k < kBins; ++k) {
                const double ps = bin_power(s, k), pn = bin_power(n, k);
                scale_bin(y[c], k, ps + pn > 0.0 ? static_cast<float>(ps / (ps + pn)) : 1.0f);
            }
        }
    });
}

DriveMeasure difference_model_reach(const int16_t *clean, const int16_t *noisy, std::size_t frames,
                                    const BlockWordsAt &words, float floor, ContentDifference content) {
    const st_vorl_inst inst = transform_instance();
    const std::vector<bool> act = acting_frames(frames, words);

    // Each bin's ratio of channel noise power to the noise's difference power.
    const std::vector<int16_t> noise = noise_of(clean, noisy, frames);
    double channel[2][kBins] = {}, diff[kBins] = {};
    float n[2][kFrame], d[kFrame];
    for (std::size_t f = 0; f < act.size(); ++f) {
        if (!act[f]) continue;
        for (int c = 0; c < 2; ++c) analyse({noise.data(), frames}, f, c, n[c], inst);
        for (std::size_t t = 0; t < kFrame; ++t) d[t] = n[0][t] - n[1][t];
        for (std::size_t k = 0; k < kBins; ++k) {
            for (int c = 0; c < 2; ++c) channel[c][k] += bin_power(n[c], k);
            diff[k] += bin_power(d, k);
        }
    }
    double z[2][kBins];
    for (int c = 0; c < 2; ++c)
        for (std::size_t k = 0; k < kBins; ++k) z[c][k] = diff[k] > 0.0 ? channel[c][k] / diff[k] : 0.0;

    DriveMeasure best;
    double best_db = -1e9;
    for (const double over_est : {0.75, 1.0, 1.5, 2.0, 3.0})
        for (const double smoothing : {0.0, 0.3}) {
            double gain[2][kBins];
            std::fill(&gain[0][0], &gain[0][0] + 2 * kBins, 1.0);
            std::size_t next = 0;  // the frame after the last acting one
            const std::vector<int16_t> out = filter_frames({noisy, frames}, act, [&](std::size_t f, float (*y)[kFrame]) {
                // Between drives the gains relax towards 1, frame by frame.
                const double idle = f > next ? std::pow(smoothing, static_cast<double>(f - next)) : 1.0;
                next = f + 1;
                if (content == ContentDifference::heard) {
                    for (std::size_t t = 0; t < kFrame; ++t) d[t] = y[0][t] - y[1][t];
                } else {
                    for (int c = 0; c < 2; ++c) analyse({noise.data(), frames}, f, c, n[c], inst);
                    for (std::size_t t = 0; t < kFrame; ++t) d[t] = n[0][t] - n[1][t];
                }
                for (std::size_t k = 0; k < kBins; ++k) {
                    const double dp = bin_power(d, k);
                    for (int c = 0; c < 2; ++c) {
                        const double p = bin_power(y[c], k);
                        const double raw = p > 0.0 ? std::max<double>(floor, 1.0 - over_est * z[c][k] * dp / p) : 1.0;
                        double &g = gain[c][k];
                        g = 1.0 - (1.0 - g) * idle;
                        g = smoothing * g + (1.0 - smoothing) * raw;
                        scale_bin(y[c], k, static_cast<float>(g));
                    }
                }
            });
            const DriveMeasure m = measure_drives(clean, noisy, out.data(), frames, words);
            if (m.drives.attenuation_db() > best_db) {
                best_db = m.drives.attenuation_db();
                best = m;
            }
        }
    return best;
}

}  // namespace vorl
