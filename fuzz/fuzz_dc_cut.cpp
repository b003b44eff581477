// Fuzz target: the DC-cut filter with arbitrary samples and, in half of the
// inputs, an arbitrary starting state (NaN, infinities, huge values). Beside
// memory and undefined-behaviour errors it checks the filter's promise that
// a stream filtered in runs of any length equals the stream filtered whole.
//
// Input layout: byte 0 bit 0: take the state from the next 48 bytes (six
// doubles) instead of VORLDcCutInit; bits 1-7 seed the run lengths. The rest
// is the interleaved stereo stream (a trailing odd byte or half-frame is
// dropped).
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz_common.h"
#include "vorl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vorl::fuzz::Bytes in(data, size);
    const uint8_t mode = in.u8();
    VORLDcCutState start;
    VORLDcCutInit(&start);
    if (mode & 1) in.take(&start, sizeof start);

    const uint32_t frames = static_cast<uint32_t>(in.left() / 4);
    std::vector<int16_t> whole(2 * static_cast<size_t>(frames));
    if (frames != 0) std::memcpy(whole.data(), in.data(), whole.size() * sizeof(int16_t));
    std::vector<int16_t> pieces = whole;

    VORLDcCutState a = start;
    if (VORLDcCutProc(whole.data(), &a, frames) != 0) vorl::fuzz::invariant_broken("result not 0");

    VORLDcCutState b = start;
    vorl::fuzz::Noise lengths(mode >> 1);
    for (uint32_t done = 0; done < frames;) {
        uint32_t run = lengths.next() % 300;  // 0 is a legal run: it touches nothing
        if (run > frames - done) run = frames - done;
        VORLDcCutProc(pieces.data() + 2 * static_cast<size_t>(done), &b, run);
        done += run;
    }
    if (whole != pieces)
        vorl::fuzz::invariant_broken("runs give other samples than one call");
    if (std::memcmp(&a, &b, sizeof a) != 0) vorl::fuzz::invariant_broken("runs leave another state");
    return 0;
}
