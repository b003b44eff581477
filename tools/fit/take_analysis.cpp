#include "take_analysis.h"

#include <algorithm>

#include "vorl.h"

namespace vorl::fit {

namespace {

constexpr int kFrame = 512;

// The analysis stage's windowing of one channel (channel c of interleaved
// samples starting at frame `start`; samples past the end are 0).
void window(const Take &take, std::size_t start, int c, float *frame) {
    for (int t = 0; t < kFrame; ++t) {
        const std::size_t n = start + static_cast<std::size_t>(t);
        const float x = n < take.frames ? static_cast<float>(take.samples[2 * n + c]) : 0.0f;
        frame[t] = x * sin_win_tbl[t <= 256 ? t : kFrame - t];
    }
}

// The core's bin powers: bin 0 from the DC element alone.
void bin_powers(const float *l, const float *r, FramePowers &p) {
    p.left[0] = l[0] * l[0];
    p.right[0] = r[0] * r[0];
    const float d0 = l[0] - r[0];
    p.diff[0] = d0 * d0;
    for (int i = 1; i < kBins; ++i) {
        p.left[i] = l[i] * l[i] + l[kFrame - i] * l[kFrame - i];
        p.right[i] = r[i] * r[i] + r[kFrame - i] * r[kFrame - i];
        const float re = l[i] - r[i], im = l[kFrame - i] - r[kFrame - i];
        p.diff[i] = re * re + im * im;
    }
}

FrameKind kind_of(const BlockWords &w) {
    if (w.wind) return FrameKind::unused;
    if (w.zoom == 1) return FrameKind::zoom_in;
    if (w.zoom == 2) return FrameKind::zoom_out;
    if (w.af) return FrameKind::af;
    return FrameKind::quiet;
}

}  // namespace

BinStats robust_means(const TakeAnalysis &a, const std::vector<std::size_t> &frames) {
    BinStats s;
    if (frames.empty()) return s;
    std::vector<double> total(frames.size(), 0.0);
    for (std::size_t n = 0; n < frames.size(); ++n)
        for (int i = 0; i < kBins; ++i) total[n] += a.powers[frames[n]].left[i] + a.powers[frames[n]].right[i];
    std::vector<double> sorted = total;
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2), sorted.end());
    const double median = sorted[sorted.size() / 2];
    for (std::size_t n = 0; n < frames.size(); ++n) {
        if (total[n] > 4.0 * median || total[n] < 0.25 * median) continue;
        const FramePowers &p = a.powers[frames[n]];
        for (int i = 0; i < kBins; ++i) {
            s.left[i] += p.left[i];
            s.right[i] += p.right[i];
            s.diff[i] += p.diff[i];
        }
        ++s.frames;
    }
    for (int i = 0; i < kBins; ++i) {
        s.left[i] /= s.frames;
        s.right[i] /= s.frames;
        s.diff[i] /= s.frames;
    }
    return s;
}

TakeAnalysis analyse_take(const Take &take, int spin_up_blocks, int guard_blocks) {
    TakeAnalysis a;
    const std::size_t blocks = (take.frames + kBlock - 1) / kBlock;
    auto word = [&](std::ptrdiff_t b) {
        return b >= 0 && static_cast<std::size_t>(b) < take.words.size() ? take.words[b] : BlockWords{};
    };

    // Runs of zoom (by direction) and of autofocus without zoom.
    std::vector<int> run_of(blocks, -1);
    for (std::size_t b = 0; b < blocks;) {
        const FrameKind k = kind_of(word(static_cast<std::ptrdiff_t>(b)));
        const bool drive = k == FrameKind::zoom_in || k == FrameKind::zoom_out || k == FrameKind::af;
        std::size_t e = b + 1;
        while (e < blocks && kind_of(word(static_cast<std::ptrdiff_t>(e))) == k) ++e;
        if (drive) {
            for (std::size_t i = b; i < e; ++i) run_of[i] = static_cast<int>(a.runs.size());
            a.runs.push_back({k, b, e, 0});
        }
        b = e;
    }

    const std::size_t frames = blocks > 0 ? blocks - 1 : 0;
    a.powers.resize(frames);
    a.kind.assign(frames, FrameKind::unused);
    a.run.assign(frames, -1);
    st_vorl_inst inst{};
    inst.p_ifft_tbl = IFFT_radix4_time_addition_theorem_wr_wi_2048;
    float l[kFrame], r[kFrame];
    for (std::size_t f = 0; f < frames; ++f) {
        window(take, f * kBlock, 0, l);
        window(take, f * kBlock, 1, r);
        sound_vorl_rfft_sac(l, kFrame, &inst);
        sound_vorl_rfft_sac(r, kFrame, &inst);
        bin_powers(l, r, a.powers[f]);

        const int run = run_of[f];
        if (run >= 0 && run_of[f + 1] == run) {
            DriveRun &d = a.runs[static_cast<std::size_t>(run)];
            const int skip = d.kind == FrameKind::af ? 1 : spin_up_blocks;
            if (f >= d.first_block + static_cast<std::size_t>(skip) && f + 3 <= d.end_block) {
                a.kind[f] = d.kind;
                a.run[f] = run;
                ++d.frames_used;
            }
            continue;
        }
        bool quiet = true;
        for (std::ptrdiff_t b = static_cast<std::ptrdiff_t>(f) - guard_blocks;
             quiet && b <= static_cast<std::ptrdiff_t>(f) + 1 + guard_blocks; ++b)
            quiet = word(b).idle();
        if (quiet) a.kind[f] = FrameKind::quiet;
    }
    for (std::size_t n = 0; n < 2 * take.frames; ++n)
        if (take.samples[n] >= 32767 || take.samples[n] <= -32767) ++a.clipped_samples;
    return a;
}

}  // namespace vorl::fit
