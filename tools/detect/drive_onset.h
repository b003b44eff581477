// Which drive words the library gets with each block, given the words of
// the blocks as recorded.
//
// At the call that takes block t the engine analyses the frame of blocks
// t-3 and t-2, and its gain smoothing carries suppression on for a while
// after a drive word ends. Handed on time, a drive therefore starts
// suppressing three blocks before its motor sounds (damage to the content
// there) while the end needs no help. So a drive reaches the library three
// calls after the block it starts in, with the words of three blocks
// earlier, and leaves with the block it ends in. Wind words go on time.
//
// Measured on held-out scenes: distortion outside drives 3 to 12 dB lower
// on every scene type, drive attenuation unchanged (within 0.01 dB).
#pragma once

#include <cstdint>

#include "drive_words.h"
#include "vorl.h"

namespace vorl {

class DriveOnsetDelay {
public:
    static constexpr int kBlocks = 3;

    // The words to hand the library with the next block, whose own words
    // are `recorded`. Blocks before the first count as idle.
    DriveWords next(const DriveWords &recorded) {
        const DriveWords earlier = past_[at_];
        past_[at_] = recorded;
        at_ = (at_ + 1) % kBlocks;
        DriveWords handed = recorded.driven() && earlier.driven() ? earlier : DriveWords{};
        handed.wind = recorded.wind;
        return handed;
    }

    void reset() { *this = DriveOnsetDelay{}; }

private:
    DriveWords past_[kBlocks] = {};  // the last kBlocks blocks' words, oldest at at_
    int at_ = 0;
};

// Sets the library's drive words for its next block from that block's
// recorded words, through `onset`; with `follow_af` the "AF" template
// follows the autofocus word. Every host of the library does this.
inline void hand_drive_words(VORLResource *res, DriveOnsetDelay &onset, const DriveWords &recorded, bool follow_af) {
    const DriveWords w = onset.next(recorded);
    VORLSetDriveState(res, w.zoom, w.af, w.wind);
    if (follow_af) VORLSetAfTemplate(res, w.af != 0 ? 1u : 0u);
}

}  // namespace vorl
