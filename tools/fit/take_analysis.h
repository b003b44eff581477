// A calibration take seen through the engine's own analysis: for every
// 512-sample frame (hop 256, sine window sin_win_tbl, transform
// sound_vorl_rfft_sac) the bin powers of each channel and of the channel
// difference exactly as the suppression core forms them, and what the lens
// did during the frame.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "drive_words.h"

namespace vorl::fit {

constexpr int kBins = 256;
constexpr std::size_t kBlock = 256;  // frames per drive word

struct BlockWords {
    uint32_t zoom = 0;  // 0 idle, 1 zoom-in ("WT"), 2 zoom-out ("TW")
    bool af = false;
    bool wind = false;
    bool idle() const { return zoom == 0 && !af && !wind; }
};

// A host's drive words as the fitter reads them.
inline BlockWords block_words(const DriveWords &w) { return {w.zoom, w.af != 0, w.wind != 0}; }

// The take: interleaved stereo 16-bit samples and one word per block.
struct Take {
    const int16_t *samples = nullptr;
    std::size_t frames = 0;
    int rate = 48000;
    std::vector<BlockWords> words;  // words[b] for frames 256b .. 256b+255
};

enum class FrameKind : uint8_t { unused, quiet, zoom_in, zoom_out, af };

struct FramePowers {
    std::array<float, kBins> left, right, diff;
};

// A run of consecutive blocks with the same zoom direction (or autofocus).
struct DriveRun {
    FrameKind kind;
    std::size_t first_block, end_block;  // [first, end)
    int frames_used = 0;                 // analysis frames that measure it
};

struct TakeAnalysis {
    std::vector<FramePowers> powers;  // frame f covers blocks f and f+1
    std::vector<FrameKind> kind;
    std::vector<int> run;             // index into runs, -1 if none
    std::vector<DriveRun> runs;       // zoom and autofocus runs in time order
    std::size_t clipped_samples = 0;  // at or beyond +-32767
};

// Frame labels: a zoom or autofocus frame lies wholly in one run (no wind),
// leaves out the run's first `spin_up_blocks` blocks and its last block
// (which the motor may leave part-way); a quiet frame has no drive, af or
// wind within `guard_blocks` blocks on either side.
TakeAnalysis analyse_take(const Take &take, int spin_up_blocks, int guard_blocks = 8);

// Per bin means over the frames `use` selects, leaving out frames whose
// total power is over four times or under a quarter of the median frame's
// (a knock or a voice in the room, a motor that stalled). Whole frames are
// left out, never single bins, so the means of steady noise stay unbiased.
struct BinStats {
    std::array<double, kBins> left{}, right{}, diff{};
    int frames = 0;  // frames averaged
};
BinStats robust_means(const TakeAnalysis &a, const std::vector<std::size_t> &frames);

template <class Pred> BinStats robust_means(const TakeAnalysis &a, Pred use) {
    std::vector<std::size_t> frames;
    for (std::size_t f = 0; f < a.powers.size(); ++f)
        if (use(f)) frames.push_back(f);
    return robust_means(a, frames);
}

}  // namespace vorl::fit
