#include "time_alignment.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace vorl {

namespace {

constexpr int kCoarseStep = 16;                // frames summed per coarse sample
constexpr std::size_t kCoarseWindow = 1 << 15;  // coarse samples compared: ~11 s at 48 kHz
constexpr std::size_t kFineWindow = 1 << 17;    // frames compared in the refinement: ~2.7 s
constexpr double kClear = 0.5;                  // a correlation that says "the same sound"
constexpr double kBetter = 0.05;                // how much a lag must beat none
// The channel difference of a processed recording follows its input's at
// 0.36-0.88 on the scene kit (the drive noise in it removed), a clean one's
// at 0.02-0.87; turned over by swapped channels it goes as far negative.
constexpr double kDifferenceClear = 0.25;

// Sums of both channels over `count` runs of `step` frames from frame `first`.
std::vector<float> channel_sums(const int16_t *s, std::size_t first, std::size_t count, int step) {
    std::vector<float> out(count);
    const int16_t *p = s + 2 * first;
    for (std::size_t i = 0; i < count; ++i) {
        int32_t acc = 0;
        for (int j = 0; j < 2 * step; ++j) acc += *p++;
        out[i] = static_cast<float>(acc);
    }
    return out;
}

// Normalised correlation of ref[t] with other[t + k] for t in [begin, end)
// where t + k lies inside `other`.
double correlation(const std::vector<float> &ref, const std::vector<float> &other, int64_t begin, int64_t end,
                   int64_t k) {
    const int64_t lo = std::max(begin, -k), hi = std::min(end, static_cast<int64_t>(other.size()) - k);
    double xy = 0, xx = 0, yy = 0;
    for (int64_t t = lo; t < hi; ++t) {
        const double x = ref[static_cast<std::size_t>(t)], y = other[static_cast<std::size_t>(t + k)];
        xy += x * y;
        xx += x * x;
        yy += y * y;
    }
    return xx > 0 && yy > 0 ? xy / std::sqrt(xx * yy) : 0.0;
}

struct Best {
    int64_t lag = 0;
    double correlation = -2.0;
};

Best best_lag(const std::vector<float> &ref, const std::vector<float> &other, int64_t begin, int64_t end,
              int64_t lowest, int64_t highest) {
    Best best;
    for (int64_t k = lowest; k <= highest; ++k)
        if (const double c = correlation(ref, other, begin, end, k); c > best.correlation) best = {k, c};
    return best;
}

}  // namespace

std::optional<Lag> find_lag(const int16_t *reference, const int16_t *other, std::size_t frames, int64_t max_frames) {
    const std::size_t coarse_n = frames / kCoarseStep;
    if (coarse_n < 64) return std::nullopt;  // too short to tell
    const int64_t max_lag = std::min<int64_t>(max_frames, static_cast<int64_t>(frames / 2));

    // Coarse: 16-frame sums of the middle, every lag a multiple of 16 frames.
    const auto ref_c = channel_sums(reference, 0, coarse_n, kCoarseStep);
    const auto other_c = channel_sums(other, 0, coarse_n, kCoarseStep);
    const std::size_t window_c = std::min(coarse_n, kCoarseWindow);
    const auto begin_c = static_cast<int64_t>((coarse_n - window_c) / 2);
    const int64_t reach_c = max_lag / kCoarseStep;
    const Best coarse = best_lag(ref_c, other_c, begin_c, begin_c + static_cast<int64_t>(window_c), -reach_c, reach_c);

    // Fine: frame by frame around the coarse lag (and at 0), on the middle.
    const int64_t centre = coarse.lag * kCoarseStep;
    const std::size_t window = std::min(frames, kFineWindow);
    const auto first = static_cast<int64_t>((frames - window) / 2);
    const int64_t margin = std::abs(centre) + kCoarseStep;
    const int64_t span_first = std::max<int64_t>(0, first - margin);
    const int64_t span_end = std::min(static_cast<int64_t>(frames), first + static_cast<int64_t>(window) + margin);
    const auto count = static_cast<std::size_t>(span_end - span_first);
    const auto ref_f = channel_sums(reference, static_cast<std::size_t>(span_first), count, 1);
    const auto other_f = channel_sums(other, static_cast<std::size_t>(span_first), count, 1);
    const int64_t begin = first - span_first, end = begin + static_cast<int64_t>(window);
    const Best fine = best_lag(ref_f, other_f, begin, end, std::max(centre - kCoarseStep, -max_lag),
                               std::min(centre + kCoarseStep, max_lag));
    if (fine.lag == 0 || fine.correlation < kClear) return std::nullopt;
    const double at_zero = correlation(ref_f, other_f, begin, end, 0);
    if (fine.correlation < at_zero + kBetter) return std::nullopt;
    return Lag{fine.lag, fine.correlation, at_zero};
}

std::string describe_lag(const Lag &lag, int rate, const std::string &name, const std::string &reference) {
    const auto frames = static_cast<long long>(std::llabs(lag.frames));
    char text[160];
    std::snprintf(text, sizeof text, " runs %lld frame%s (%.1f ms) %s against ", frames, frames == 1 ? "" : "s",
                  1000.0 * static_cast<double>(frames) / rate, lag.frames > 0 ? "late" : "early");
    char correlations[96];
    std::snprintf(correlations, sizeof correlations, " (correlation %.2f there, %.2f as it stands)", lag.correlation,
                  lag.at_zero);
    return name + text + reference + correlations;
}

std::string describe_channel_fault(const int16_t *reference, const int16_t *other, std::size_t frames,
                                   const std::string &name, const std::string &reference_name) {
    const std::size_t window = std::min(frames, kFineWindow), first = (frames - window) / 2;
    // Correlation of a * left + b * right of the two recordings over the window.
    const auto correlate = [&](int a, int b) {
        const auto mix = [&](const int16_t *s) {
            std::vector<float> out(window);
            for (std::size_t t = 0; t < window; ++t)
                out[t] = static_cast<float>(a * s[2 * (first + t)] + b * s[2 * (first + t) + 1]);
            return out;
        };
        return correlation(mix(reference), mix(other), 0, static_cast<int64_t>(window), 0);
    };
    const double left = correlate(1, 0), right = correlate(0, 1), sum = correlate(1, 1);
    // Far sound reaches both capsules nearly alike, so channels swapped show
    // in the difference of the channels (what sets them apart) turning over.
    const double difference = correlate(1, -1);
    const char *fault = nullptr;
    if (sum >= kClear && difference <= -kDifferenceClear)
        fault = "has its left and right channels swapped";
    else if (sum <= -kClear)
        fault = "is in opposite polarity";
    else if (left <= -kClear && right >= kClear)
        fault = "has its left channel in opposite polarity";
    else if (right <= -kClear && left >= kClear)
        fault = "has its right channel in opposite polarity";
    if (fault == nullptr) return "";
    char correlations[128];
    std::snprintf(correlations, sizeof correlations,
                  " (correlation of left channels %.2f, right %.2f, channel sums %.2f, differences %.2f)", left, right,
                  sum, difference);
    return name + " " + fault + " against " + reference_name + correlations;
}

}  // namespace vorl
