#include "drive_measure.h"

#include <algorithm>
#include <cmath>

#include "vorl.h"

namespace vorl {

EnergySums &EnergySums::operator+=(const EnergySums &o) {
    noise += o.noise;
    residual += o.residual;
    processed += o.processed;
    noisy += o.noisy;
    change += o.change;
    blocks += o.blocks;
    return *this;
}

double EnergySums::ratio_db(double num, double den) {
    if (den <= 0.0) return num <= 0.0 ? 0.0 : INFINITY;
    if (num <= 0.0) return -INFINITY;
    const double v = 10.0 * std::log10(num / den);
    return std::fabs(v) < 0.005 ? 0.0 : v;
}

DriveMeasure &DriveMeasure::operator+=(const DriveMeasure &o) {
    drives += o.drives;
    outside += o.outside;
    wind += o.wind;
    return *this;
}

DriveMeasure measure_drives(const int16_t *clean, const int16_t *noisy, const int16_t *processed, std::size_t frames,
                            const std::function<DriveWords(std::size_t block)> &words) {
    DriveMeasure m;
    for (std::size_t start = 0; start < frames; start += VORL_BLOCK_FRAMES) {
        const DriveWords w = words(start / VORL_BLOCK_FRAMES);
        EnergySums &e = w.driven() ? m.drives : m.outside;
        const bool windy = !w.driven() && w.wind;
        e.blocks++;
        if (windy) m.wind.blocks++;
        for (std::size_t i = 2 * start; i < 2 * std::min(frames, start + VORL_BLOCK_FRAMES); ++i) {
            const double c = clean[i], n = noisy[i], p = processed[i];
            const double noise = (n - c) * (n - c), residual = (p - c) * (p - c);
            e.noise += noise;
            e.residual += residual;
            e.processed += p * p;
            e.noisy += n * n;
            e.change += (p - n) * (p - n);
            if (windy) {
                m.wind.noise += noise;
                m.wind.residual += residual;
            }
        }
    }
    return m;
}

}  // namespace vorl
