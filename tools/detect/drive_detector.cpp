#include "drive_detector.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace vorl {

namespace {

constexpr int kFrame = 2 * DriveDetector::kBlock;
// 1.5-7.5 kHz: motor hiss, clicks, whine harmonics. Not higher: far-field
// sound reaches the capsules up to about 1.5 samples apart, which alone
// lifts |L-R|^2 to the level of |L+R|^2 from about 7 kHz up (cymbals and
// hi-hats then looked like a motor and held drives on past their end).
constexpr int kFirstBin = 16, kEndBin = 80;
constexpr int kRank = (kEndBin - kFirstBin) * 3 / 4;  // 75th percentile
constexpr float kFloor = 1e-5f;                // about -80 dBFS per bin: silence is idle
constexpr float kZoomOnDb = -1.0f, kZoomOffDb = -4.0f;
constexpr int kWindow = DriveDetector::kMinBlocks + DriveDetector::kMaxGapBlocks;  // filter reach
constexpr int kWindBins = 3;                   // bins 0-2, below 280 Hz
constexpr float kWindSmooth = 0.125f;          // about 8 blocks
constexpr float kWindOnRatio = 0.4f, kWindOffRatio = 0.2f;   // -4 dB, -7 dB
constexpr float kWindOnPower = 0.15f, kWindOffPower = 0.04f;  // difference power in bins 0-2
constexpr float kIdleSmooth = 0.05f;
constexpr int kGroups = 64;                    // template groups 1..64 (bins 4g-3..4g)

float window_at(int t) { return sin_win_tbl[t <= 256 ? t : kFrame - t]; }

}  // namespace

DriveDetector::DriveDetector(const st_vorl_tbl *table) {
    inst_.p_ifft_tbl = IFFT_radix4_time_addition_theorem_wr_wi_2048;
    if (table == nullptr) return;
    // Templates are stored as per-bin increments per group, rebuilt by
    // running sums over the bins; compare them per group, both channels.
    for (int d = 0; d < 2; ++d)
        for (int c = 0; c < 2; ++c) {
            const float *inc = table->st_vorl.back_ground_noise[1 + d][c];
            float value = inc[0];
            for (int bin = 1; bin <= 4 * kGroups; ++bin) {
                value += inc[(bin + 3) / 4];
                templates_[d][(bin - 1) / 4] += value / 8.0f;
            }
        }
    for (int g = 0; g < kGroups; ++g) {
        const float a = templates_[0][g], b = templates_[1][g];
        if (std::fabs(a - b) > 0.05f * std::max(std::fabs(a), std::fabs(b))) directions_differ_ = true;
    }
}

void DriveDetector::analyse(const int16_t *blocks[2], BlockState &out) {
    float spec[2][kFrame];
    for (int c = 0; c < 2; ++c) {
        for (int t = 0; t < kFrame; ++t) spec[c][t] = blocks[t / kBlock][2 * (t % kBlock) + c] * window_at(t);
        sound_vorl_rfft_sac(spec[c], kFrame, &inst_);
    }
    auto bin = [&spec](int c, int k, float &re, float &im) {
        re = spec[c][k];
        im = k == 0 || k == kFrame / 2 ? 0.0f : spec[c][kFrame - k];
    };
    auto powers = [&bin](int k, float &diff, float &sum) {  // |L-R|^2 and |L+R|^2
        float lr, li, rr, ri;
        bin(0, k, lr, li);
        bin(1, k, rr, ri);
        diff = (lr - rr) * (lr - rr) + (li - ri) * (li - ri);
        sum = (lr + rr) * (lr + rr) + (li + ri) * (li + ri);
    };
    float ratio[kEndBin - kFirstBin];
    for (int k = kFirstBin; k < kEndBin; ++k) {
        float diff, sum;
        powers(k, diff, sum);
        ratio[k - kFirstBin] = diff / (sum + kFloor);
    }
    float wind_diff = 0.0f, wind_sum = 0.0f;
    for (int k = 0; k < kWindBins; ++k) {
        float diff, sum;
        powers(k, diff, sum);
        wind_diff += diff;
        wind_sum += sum;
    }
    // The common-mode power per template group only tells the directions
    // apart; with equal templates it is not needed.
    std::fill(std::begin(out.common), std::end(out.common), 0.0f);
    if (directions_differ_)
        for (int k = 1; k <= 4 * kGroups; ++k) {
            float lr, li, rr, ri;
            bin(0, k, lr, li);
            bin(1, k, rr, ri);
            out.common[(k - 1) / 4] += (lr * rr + li * ri);  // Re(L conj R)
        }
    std::nth_element(ratio, ratio + kRank, std::end(ratio));
    out.ratio_db = ratio[kRank] > 0.0f ? 10.0f * std::log10(ratio[kRank]) : -100.0f;

    // Wind: smoothed difference power below 280 Hz and its share of the sum.
    wind_diff_ += kWindSmooth * (wind_diff - wind_diff_);
    wind_sum_ += kWindSmooth * (wind_sum - wind_sum_);
    const float share = wind_diff_ / (wind_sum_ + kFloor);
    if (!wind_on_ && share > kWindOnRatio && wind_diff_ > kWindOnPower) wind_on_ = true;
    else if (wind_on_ && (share < kWindOffRatio || wind_diff_ < kWindOffPower)) wind_on_ = false;
    out.wind = wind_on_;

    if (directions_differ_ && out.ratio_db < kZoomOffDb)
        for (int g = 0; g < kGroups; ++g) idle_common_[g] += kIdleSmooth * (out.common[g] - idle_common_[g]);
}

// The hysteresis decisions of blocks block-kWindow .. block+kWindow with
// runs shorter than kMinBlocks dropped, then gaps shorter than
// kMaxGapBlocks closed, at `block`. In that order a click of the scene just
// before or after a drive cannot stretch the drive over the gap to it.
bool DriveDetector::filtered(int64_t block) const {
    bool on[2 * kWindow + 1];
    for (int j = 0; j <= 2 * kWindow; ++j) {
        const int64_t b = block - kWindow + j;
        on[j] = b >= 0 && at(b).raw;
    }
    for (int j = 0, end; j <= 2 * kWindow; j = end) {  // drop short runs (not those the window cuts)
        for (end = j; end <= 2 * kWindow && on[end] == on[j]; ++end) {}
        if (on[j] && j > 0 && end <= 2 * kWindow && end - j < kMinBlocks) std::fill(on + j, on + end, false);
    }
    for (int j = 0, end; j <= 2 * kWindow; j = end) {  // close short gaps between runs
        for (end = j; end <= 2 * kWindow && on[end] == on[j]; ++end) {}
        if (!on[j] && j > 0 && end <= 2 * kWindow && end - j < kMaxGapBlocks) std::fill(on + j, on + end, true);
    }
    return on[kWindow];
}

uint32_t DriveDetector::direction_at_onset(int64_t block) {
    if (!directions_differ_) return 1;
    float added[kGroups] = {};
    const int64_t last = pushed_ - 3;  // newest block with a decision
    for (int64_t b = block; b <= last && b < block + kWindow; ++b)
        for (int g = 0; g < kGroups; ++g) added[g] += at(b).common[g] - idle_common_[g];
    double distance[2] = {0.0, 0.0};
    const int64_t count = std::max<int64_t>(1, std::min<int64_t>(last, block + kWindow - 1) - block + 1);
    for (int d = 0; d < 2; ++d)
        for (int g = 0; g < kGroups; ++g) {
            const double measured = std::max(0.0f, added[g] / static_cast<float>(count)) + 1e-6;
            const double expected = std::max(0.0f, templates_[d][g]) + 1e-6;
            distance[d] += std::pow(std::log(measured / expected), 2.0);
        }
    return distance[1] < distance[0] ? 2 : 1;
}

bool DriveDetector::output(DriveWords &words) {
    // Block k's word needs decisions up to k + 1 + kWindow; the newest
    // decision is for block pushed_ - 3.
    const int64_t k = emitted_;
    if (k > pushed_ - 3 - 1 - kWindow) return false;
    // Each block's filtered decision is made once: as k + 1, then kept for
    // the next two words (runs are widened by a block on both sides).
    if (k == 0) kept_[1] = filtered(0);
    const bool next = filtered(k + 1);
    const bool zoom = kept_[0] || kept_[1] || next;
    kept_[0] = kept_[1];
    kept_[1] = next;
    if (zoom && run_start_ < 0) {
        run_start_ = k;
        run_direction_ = direction_at_onset(k);
    } else if (!zoom) {
        run_start_ = -1;
    }
    words = DriveWords{};
    words.zoom = zoom ? run_direction_ : 0;
    words.wind = at(k).wind ? 1 : 0;
    ++emitted_;
    return true;
}

void DriveDetector::step(const int16_t *block) {
    const int64_t i = pushed_++;
    if (i >= 1) {  // the frame of blocks i-1 and i judges block i-1
        const int16_t *blocks[2] = {previous_, block};
        analyse(blocks, at(i - 1));
    }
    std::memcpy(previous_, block, sizeof previous_);
    if (i >= 2) {  // median of three, then hysteresis, for block i-2
        const float a = i >= 3 ? at(i - 3).ratio_db : at(i - 2).ratio_db, b = at(i - 2).ratio_db, c = at(i - 1).ratio_db;
        BlockState &s = at(i - 2);
        s.smoothed_db = std::max(std::min(a, b), std::min(std::max(a, b), c));
        zoom_on_ = zoom_on_ ? s.smoothed_db >= kZoomOffDb : s.smoothed_db > kZoomOnDb;
        s.raw = zoom_on_;
    }
}

bool DriveDetector::push(const int16_t *block, DriveWords &words) {
    step(block);
    return output(words);
}

bool DriveDetector::flush(DriveWords &words) {
    static const int16_t kSilence[2 * kBlock] = {};
    if (real_blocks_ < 0) real_blocks_ = pushed_;
    if (emitted_ >= real_blocks_) return false;
    while (!output(words)) step(kSilence);
    return true;
}

void mark_autofocus_runs(std::vector<DriveWords> &words) {
    for (std::size_t b = 0; b < words.size();) {
        std::size_t end = b;
        while (end < words.size() && words[end].zoom != 0) ++end;
        if (end > b && end - b <= static_cast<std::size_t>(DriveDetector::kAutofocusMaxBlocks))
            for (std::size_t j = b; j < end; ++j) {
                words[j].zoom = 0;
                words[j].af = 1;
            }
        b = end > b ? end : b + 1;
    }
}

std::vector<DriveWords> detect_drives(const int16_t *samples, std::size_t frames, const st_vorl_tbl *table) {
    DriveDetector detector(table);
    std::vector<DriveWords> words;
    const std::size_t blocks = (frames + DriveDetector::kBlock - 1) / DriveDetector::kBlock;
    words.reserve(blocks);
    int16_t block[2 * DriveDetector::kBlock];
    DriveWords w;
    for (std::size_t b = 0; b < blocks; ++b) {
        const std::size_t begin = b * DriveDetector::kBlock, n = std::min<std::size_t>(DriveDetector::kBlock, frames - begin);
        std::memset(block, 0, sizeof block);
        std::memcpy(block, samples + 2 * begin, n * 2 * sizeof(int16_t));
        if (detector.push(block, w)) words.push_back(w);
    }
    while (detector.flush(w)) words.push_back(w);
    mark_autofocus_runs(words);
    return words;
}

}  // namespace vorl
