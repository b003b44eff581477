// Drive detection: the drive words of a recording made without a motor log.
//
// The zoom and autofocus motors sit a few centimetres from the two capsules
// and reach them through different paths, so while a motor runs the power
// of the channel difference L-R rises to about that of the sum L+R across
// the mid bands, where far-field sound (nearly the same in both channels)
// leaves the difference 10-30 dB below the sum. Per block the detector
// takes the 75th percentile over bins 16..79 (1.5-7.5 kHz) of the per-bin
// ratio |L-R|^2 / (|L+R|^2 + floor), smooths it over three blocks and
// switches with hysteresis; runs shorter than kMinBlocks are dropped, then
// gaps shorter than kMaxGapBlocks are closed, and each run is widened by a
// block on both sides (a drive rarely starts on a block boundary). Wind is
// low-frequency sound (bins 0-2, below 280 Hz) that is incoherent between
// the channels: strong difference power at about the level of the sum.
//
// Analysis uses the library's own window and transform (sin_win_tbl,
// sound_vorl_rfft_sac) on its framing: block b is judged on the 512-sample
// frame of blocks b and b+1. Nothing here touches a library instance.
//
// Direction: the words 1 and 2 only select the table's "WT" or "TW"
// background template. When the table's two templates are equal (the
// built-in table), the direction makes no difference and zoom drives are
// reported as 1 (zoom-in). When they differ (a fitted camera table), each
// drive gets the direction whose template is closer, on a log scale, to the
// common-mode power the drive adds over the idle level before it.
//
// Autofocus: a motor run shorter than kAutofocusMaxBlocks (about 0.35 s) is
// an autofocus move; only the offline detect_drives() can tell, since it
// sees the whole run. The streaming detector reports every run as zoom.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "drive_words.h"
#include "vorl.h"

namespace vorl {

class DriveDetector {
public:
    static constexpr int kBlock = 256;              // frames per block and word
    static constexpr int kMinBlocks = 8;            // shortest motor run kept (43 ms)
    static constexpr int kMaxGapBlocks = 24;        // shorter gaps (128 ms) inside a run are closed
    static constexpr int kAutofocusMaxBlocks = 64;  // runs up to this long are autofocus (offline)
    // Words come out this many blocks after their audio went in.
    static constexpr int kLatencyBlocks = 3 + kMinBlocks + kMaxGapBlocks;

    // `table` (may be null: the built-in behaviour) is read once here, for
    // the direction templates.
    explicit DriveDetector(const st_vorl_tbl *table = nullptr);

    // Streaming: hands in the next block of 256 interleaved stereo frames
    // (left first). Returns true and sets `words` to the words of block
    // (blocks pushed so far - 1 - kLatencyBlocks) once there is one. No
    // allocation; one instance per stream.
    bool push(const int16_t *block, DriveWords &words);

    // After the last block: returns the remaining words one per call (as
    // many as were pushed), false when all are out.
    bool flush(DriveWords &words);

private:
    static constexpr int kHistory = 128;  // ring of per-block decisions (power of two)
    struct BlockState {
        float ratio_db = -100.0f;     // zoom statistic
        float smoothed_db = -100.0f;  // median of three
        bool raw = false;             // after hysteresis
        bool wind = false;
        float common[64] = {};        // common-mode power per template group
    };

    void step(const int16_t *block);  // analysis and hysteresis, no output
    void analyse(const int16_t *frame_blocks[2], BlockState &out);
    bool filtered(int64_t block) const;  // gap-closed, short runs dropped
    bool output(DriveWords &words);
    uint32_t direction_at_onset(int64_t block);
    BlockState &at(int64_t block) { return ring_[static_cast<std::size_t>(block) & (kHistory - 1)]; }
    const BlockState &at(int64_t block) const { return ring_[static_cast<std::size_t>(block) & (kHistory - 1)]; }

    st_vorl_inst inst_{};         // only the transform's seed table is set
    float templates_[2][64] = {};  // "WT", "TW" per group, both channels summed
    bool directions_differ_ = false;
    int16_t previous_[2 * kBlock] = {};
    int64_t pushed_ = 0, emitted_ = 0, real_blocks_ = -1;
    bool zoom_on_ = false, wind_on_ = false;
    float wind_diff_ = 0.0f, wind_sum_ = 0.0f;
    float idle_common_[64] = {};
    bool kept_[2] = {false, false};  // filtered decisions of blocks k - 1 and k at output(k)
    int64_t run_start_ = -1;
    uint32_t run_direction_ = 1;
    BlockState ring_[kHistory];
};

// Marks motor runs of at most kAutofocusMaxBlocks blocks as autofocus
// (af 1, zoom 0): what the offline detector adds to the streaming words.
void mark_autofocus_runs(std::vector<DriveWords> &words);

// Offline: the drive words of a whole recording (`frames` interleaved
// stereo frames), one per block, with autofocus runs told from zoom runs.
std::vector<DriveWords> detect_drives(const int16_t *samples, std::size_t frames, const st_vorl_tbl *table = nullptr);

}  // namespace vorl
