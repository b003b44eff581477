#include "evaluate.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "host_session.h"
#include "signals.h"

namespace scenekit {

namespace {

constexpr std::size_t kFrame = 2 * kBlock;

// Forward transform of one windowed 512-sample frame of channel c, frame f
// covering frames 256(f-1) .. 256(f+1)-1 (zero outside the recording).
void analyse(const Pcm &x, std::size_t frames, std::size_t f, int c, float *buf, const st_vorl_inst &inst) {
    for (std::size_t t = 0; t < kFrame; ++t) {
        const long n = static_cast<long>(f * kBlock + t) - static_cast<long>(kBlock);
        const float v = n >= 0 && static_cast<std::size_t>(n) < frames ? x[2 * static_cast<std::size_t>(n) + c] : 0;
        buf[t] = v * sin_win_tbl[t <= 256 ? t : kFrame - t];
    }
    sound_vorl_rfft_sac(buf, static_cast<int32_t>(kFrame), &inst);
}

double bin_power(const float *buf, std::size_t k) {
    if (k == 0 || k == kFrame / 2) return static_cast<double>(buf[k]) * buf[k];
    return static_cast<double>(buf[k]) * buf[k] + static_cast<double>(buf[kFrame - k]) * buf[kFrame - k];
}

}  // namespace

Pcm run_library(const st_vorl_tbl &table, const Pcm &in, const std::vector<DriveWords> &words, bool prime) {
    vorl::HostSession session(table, "evaluated table");
    for (const DriveWords &w : words)
        if (w.af != 0) {
            session.follow_autofocus_word();
            break;
        }
    const std::size_t frames = in.size() / 2, delay = VORL_DELAY_FRAMES;
    if (prime) session.prime(in.data(), frames, words.empty() ? DriveWords{} : words[0]);  // as vorl process does
    const std::size_t blocks = (frames + kBlock - 1) / kBlock + delay / kBlock;
    Pcm out(in.size());
    int16_t block_in[2 * kBlock], block_out[2 * kBlock];
    for (std::size_t b = 0; b < blocks; ++b) {
        for (std::size_t i = 0; i < 2 * kBlock; ++i) block_in[i] = 2 * b * kBlock + i < in.size() ? in[2 * b * kBlock + i] : 0;
        session.process(block_in, block_out, b < words.size() ? words[b] : DriveWords{});
        for (std::size_t i = 0; i < kBlock; ++i) {  // output frame b*256+i is input frame b*256+i-768
            const std::size_t n = b * kBlock + i;
            if (n >= delay && n - delay < frames) std::memcpy(&out[2 * (n - delay)], &block_out[2 * i], 2 * sizeof(int16_t));
        }
    }
    return out;
}

namespace {

// Frames of the engine's framing that overlap a driven block of `words`.
std::vector<bool> acting_frames(std::size_t blocks, const std::vector<DriveWords> &words) {
    auto driven = [&](std::size_t b) { return b < words.size() && words[b].driven(); };
    std::vector<bool> act(blocks + 1);
    for (std::size_t f = 0; f <= blocks; ++f) act[f] = (f > 0 && driven(f - 1)) || driven(f);
    return act;
}

// Runs the noisy recording through the engine's framing: each acting frame's
// two spectra go through `modify(f, y)` (y[c] the 512-element spectrum of
// channel c) and back, overlap-added; other frames pass unchanged.
template <class Modify> Pcm filter_frames(const Scene &scene, const std::vector<bool> &act, Modify modify) {
    st_vorl_inst inst{};
    inst.p_ifft_tbl = IFFT_radix4_time_addition_theorem_wr_wi_2048;
    const std::size_t frames = scene.frames();
    double window_sq[kFrame];  // sine window squared: consecutive frames sum to 1
    for (std::size_t t = 0; t < kFrame; ++t) window_sq[t] = std::pow(std::sin(kPi * static_cast<double>(t) / kFrame), 2);
    std::vector<double> sum(scene.noisy.size(), 0.0);
    float y[2][kFrame];
    for (std::size_t f = 0; f < act.size(); ++f) {
        if (act[f]) {
            for (int c = 0; c < 2; ++c) analyse(scene.noisy, frames, f, c, y[c], inst);
            modify(f, y);
            for (int c = 0; c < 2; ++c) sound_vorl_irfft_sac(y[c], static_cast<int32_t>(kFrame), &inst);
        }
        for (int c = 0; c < 2; ++c)
            for (std::size_t t = 0; t < kFrame; ++t) {
                const long at = static_cast<long>(f * kBlock + t) - static_cast<long>(kBlock);
                if (at < 0 || static_cast<std::size_t>(at) >= frames) continue;
                const std::size_t i = 2 * static_cast<std::size_t>(at) + c;
                // The synthesis window takes back the transform's gain of 512
                // and the analysis window's 1/32768.
                sum[i] += act[f] ? static_cast<double>(y[c][t]) * scale_sin_win_tbl[t <= 256 ? t : kFrame - t]
                                 : window_sq[t] * scene.noisy[i];
            }
    }
    Pcm out(sum.size());
    for (std::size_t i = 0; i < sum.size(); ++i)
        out[i] = static_cast<int16_t>(std::lround(std::fmax(-32768.0, std::fmin(32767.0, sum[i]))));
    return out;
}

// Multiplies bin k of a 512-element spectrum (both halves) by g.
void scale_bin(float *y, std::size_t k, float g) {
    y[k] *= g;
    if (k > 0 && k < kFrame / 2) y[kFrame - k] *= g;
}

Pcm noise_of(const Scene &scene) {
    Pcm noise(scene.noisy.size());
    for (std::size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<int16_t>(scene.noisy[i] - scene.clean[i]);
    return noise;
}

}  // namespace

Pcm oracle(const Scene &scene, const std::vector<DriveWords> &words) {
    st_vorl_inst inst{};
    inst.p_ifft_tbl = IFFT_radix4_time_addition_theorem_wr_wi_2048;
    const std::size_t frames = scene.frames(), blocks = (frames + kBlock - 1) / kBlock;
    const Pcm noise = noise_of(scene);
    float s[kFrame], n[kFrame];
    return filter_frames(scene, acting_frames(blocks, words), [&](std::size_t f, float (*y)[kFrame]) {
        for (int c = 0; c < 2; ++c) {
            analyse(scene.clean, frames, f, c, s, inst);
            analyse(noise, frames, f, c, n, inst);
            for (std::size_t k = 0; k <= kFrame / 2; ++k) {
                const double ps = bin_power(s, k), pn = bin_power(n, k);
                scale_bin(y[c], k, ps + pn > 0.0 ? static_cast<float>(ps / (ps + pn)) : 1.0f);
            }
        }
    });
}

DriveMeasure model_ceiling(const Scene &scene, float floor) {
    st_vorl_inst inst{};
    inst.p_ifft_tbl = IFFT_radix4_time_addition_theorem_wr_wi_2048;
    const std::size_t frames = scene.frames(), blocks = (frames + kBlock - 1) / kBlock;
    const std::vector<bool> act = acting_frames(blocks, scene.words);
    constexpr std::size_t kBins = kFrame / 2 + 1;

    // Each bin's ratio of channel noise power to the noise's difference power.
    const Pcm noise = noise_of(scene);
    double channel[2][kBins] = {}, diff[kBins] = {};
    float n[2][kFrame], d[kFrame];
    for (std::size_t f = 0; f < act.size(); ++f) {
        if (!act[f]) continue;
        for (int c = 0; c < 2; ++c) analyse(noise, frames, f, c, n[c], inst);
        for (std::size_t t = 0; t < kFrame; ++t) d[t] = n[0][t] - n[1][t];
        for (std::size_t k = 0; k < kBins; ++k) {
            for (int c = 0; c < 2; ++c) channel[c][k] += bin_power(n[c], k);
            diff[k] += bin_power(d, k);
        }
    }
    double z[2][kBins];
    for (int c = 0; c < 2; ++c)
        for (std::size_t k = 0; k < kBins; ++k) z[c][k] = diff[k] > 0.0 ? channel[c][k] / diff[k] : 0.0;

    auto truth = [&](std::size_t b) { return b < scene.words.size() ? scene.words[b] : DriveWords{}; };
    DriveMeasure best;
    double best_db = -1e9;
    for (const double over_est : {0.75, 1.0, 1.5, 2.0, 3.0})
        for (const double smoothing : {0.0, 0.3}) {
            double gain[2][kBins];
            std::fill(&gain[0][0], &gain[0][0] + 2 * kBins, 1.0);
            std::size_t next = 0;  // the frame after the last acting one
            const Pcm out = filter_frames(scene, act, [&](std::size_t f, float (*y)[kFrame]) {
                // Between drives the gains relax towards 1, frame by frame.
                const double idle = f > next ? std::pow(smoothing, static_cast<double>(f - next)) : 1.0;
                next = f + 1;
                for (std::size_t t = 0; t < kFrame; ++t) d[t] = y[0][t] - y[1][t];
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
            const DriveMeasure m = vorl::measure_drives(scene.clean.data(), scene.noisy.data(), out.data(), frames, truth);
            if (m.drives.attenuation_db() > best_db) {
                best_db = m.drives.attenuation_db();
                best = m;
            }
        }
    return best;
}

SceneResult evaluate(const Scene &scene, const st_vorl_tbl &table, const std::vector<DriveWords> &words,
                     bool prime) {
    const Pcm processed = run_library(table, scene.noisy, words, prime);
    const Pcm ideal = oracle(scene, scene.words);
    auto truth = [&](std::size_t b) { return b < scene.words.size() ? scene.words[b] : DriveWords{}; };
    return {vorl::measure_drives(scene.clean.data(), scene.noisy.data(), processed.data(), scene.frames(), truth),
            vorl::measure_drives(scene.clean.data(), scene.noisy.data(), ideal.data(), scene.frames(), truth)};
}

}  // namespace scenekit
