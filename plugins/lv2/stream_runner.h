// The noise reducer as a stream of any block size: one library instance set
// up from a table held in memory, fed block by block from whatever number of
// frames the host hands over, with the strength mix applied on the way out.
//
// Latency. The library's output is 768 frames late and its block driver
// reads only the two oldest blocks of its input ring, so a block can be
// placed in the ring one call later than the host interface does it (at
// ring position 512 after the call that would have taken it at 768): the
// call for block m is made as soon as block m-1 is complete, and the whole
// stream is exactly 768 frames late. The click filter reads the newest
// block, so with it on the call waits for its block and the stream is 1024
// frames late. Both give the outputs of the host interface bit for bit.
// With drive detection the call waits for the detector's words of its
// block, DriveDetector::kLatencyBlocks + 1 blocks: 9984 frames in all.
#pragma once

#include <cstdint>
#include <vector>

#include "drive_detector.h"
#include "drive_onset.h"
#include "vorl.h"

namespace vorl::lv2 {

struct Controls {
    uint32_t zoom = 0;      // 0 idle, 1 zoom-in ("WT"), 2 zoom-out ("TW")
    uint32_t af = 0;        // autofocus drive
    uint32_t wind = 0;      // 1 while wind is present
    bool pulse = false;     // click filter
    bool detect = false;    // drive words from the streaming detector, not the three above
    float strength = 1.0f;  // 0 input only .. 1 the library's output
};

class StreamRunner {
public:
    StreamRunner();  // allocates the work area; no table yet

    // Sets the engine up from `table` (the library's checks: checksum and
    // version) and restarts the stream. Returns the library's status; on
    // failure the previous table stays in use. Allocation-free.
    int32_t load(const st_vorl_tbl &table);
    // The library's checks of a table image alone: VORL_OK, VORL_ERR_CHECKSUM
    // or VORL_ERR_VERSION.
    static int32_t check(const st_vorl_tbl &table);
    bool loaded() const { return loaded_; }

    // Restarts the stream from silence with the loaded table.
    void restart();

    // n frames of float audio (full scale 1.0) in, n frames out; any n,
    // including 0. Controls are taken at each 256-frame boundary inside the
    // run. Changing the click filter or detection restarts the stream.
    // Allocation-free.
    void run(const float *in_l, const float *in_r, float *out_l, float *out_r, uint32_t n,
             const Controls &c);

    // Frames between an input frame and its output: 768, 1024 with the
    // click filter, 9984 with detection.
    uint32_t latency() const;

private:
    static constexpr int kBlock = VORL_BLOCK_FRAMES;
    static constexpr int kMaxLag = DriveDetector::kLatencyBlocks + 1;
    // The block being filled and those before it still needed; with this
    // many, the slot of a block before the first is one never written yet.
    static constexpr int kSlots = kMaxLag + 5;

    VORLWorkArea &work() { return *static_cast<VORLWorkArea *>(res_.p_work); }
    // Blocks between the one completed and the one the library is given
    // (its words are known and, for the click filter, the block itself).
    int lag() const;
    void block_boundary(const Controls &c);
    void enter_library(const Controls &words);

    std::vector<uint64_t> storage_;
    VORLResource res_{};
    st_vorl_tbl table_{};
    bool loaded_ = false;

    bool pulse_ = false;           // click filter in this stream
    bool detect_ = false;          // detector's words in this stream
    DriveDetector detector_;
    DriveOnsetDelay onset_;  // as the tool hands drive words
    bool follow_af_ = false;       // an autofocus word has been seen
    int64_t block_ = 0;            // index of the block being filled
    int pos_ = 0;                  // frames of it filled so far
    int16_t input_[kSlots][kBlock][2] = {};  // input blocks by index mod kSlots
    int16_t processed_[kBlock][2] = {};      // the library's current output block
    const int16_t (*dry_)[2] = nullptr;      // the input block it came from
    Controls words_[kSlots] = {};  // drive words by block, as the input
};

}  // namespace vorl::lv2
