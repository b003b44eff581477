// Whether two recordings of one scene are time-aligned: the lag at which
// their channel sums correlate best. A host that does not make up for a
// plugin's latency, or "vorl process --raw", delays a processed recording
// against its input; figures that compare the two sample by sample are
// then meaningless.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace vorl {

struct Lag {
    int64_t frames;      // other[t + frames] matches reference[t]: positive when other runs late
    double correlation;  // normalised correlation at that lag
    double at_zero;      // normalised correlation without a lag
};

// The lag by which `other` runs late or early, within +-max_frames, from
// the middle of the recordings (interleaved stereo, `frames` frames each):
// a coarse search on 16-frame sums over up to 11 s, refined frame by frame.
// None when the recordings are aligned, or no lag correlates clearly (0.5
// or more, as with silence or unrelated recordings), or the best lag is not
// clearly better than none (a fraction of a frame, as from resampling).
std::optional<Lag> find_lag(const int16_t *reference, const int16_t *other, std::size_t frames, int64_t max_frames);

// "NAME runs 768 frames (16.0 ms) late against REFERENCE (correlation 1.00
// there, -0.11 as it stands)".
std::string describe_lag(const Lag &lag, int rate, const std::string &name, const std::string &reference);

// Whether `other` holds `reference`'s channels swapped, or one or both in
// opposite polarity, judged over up to 2.7 s from the middle at lag 0 from
// the correlations of the channels, their sums and their differences:
// "NAME has its left and right channels swapped against REFERENCE (...)",
// or empty when no fault is clear.
std::string describe_channel_fault(const int16_t *reference, const int16_t *other, std::size_t frames,
                                   const std::string &name, const std::string &reference_name);

}  // namespace vorl
