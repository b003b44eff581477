// Fuzz target: the pulse filter, through sound_pulse_filter on a work area
// set up from the reference table, with arbitrary ring contents and drive
// words. Between calls the rings move down one block as the host layer
// moves them. Checked beside memory and undefined-behaviour errors: the
// filter never writes the oldest block of a ring, and its positions stay in
// their ranges.
//
// Input layout: byte 0: number of calls (1..64); next 4096 bytes: both rings
// (channel 0 then 1, missing bytes 0); the rest: per-call controls, eight
// bytes a call, used cyclically: c0..c3 zoom_state (any 32-bit word),
// c4 noise amplitude, c5 click position, c6 click height, c7 bit 0: take the
// new block's samples raw from the controls instead of noise.
#include <cstdint>
#include <cstring>

#include "fuzz_common.h"
#include "table_builder.h"
#include "vorl.h"

namespace {

void set_up(VORLWorkArea &w) {
    std::memset(&w, 0, sizeof w);
    VORLResource res{};
    res.p_work = &w;
    VORLInitialize(&res);
    w.tbl = vorl::tablekit::reference_table();
    sound_vorl_init(&w);
    sound_vorl_set(&w.hdr, &w.inst);
    sound_vorl_variable_param_set(&w.hdr, &w.inst);
    sound_CPulseFilter_init(&w.inst);
}

void check_state(const VORLWorkArea &w) {
    const CPulseFilter &pf = w.pulse;
    for (int ch = 0; ch < 2; ++ch) {
        if (pf.blk_pos[ch] < 0 || pf.blk_pos[ch] > 15) vorl::fuzz::invariant_broken("blk_pos out of range");
        if (pf.peak_pos[ch] < 0 || pf.peak_pos[ch] > 4) vorl::fuzz::invariant_broken("peak_pos out of range");
        if (pf.fade_pending[ch] > 1) vorl::fuzz::invariant_broken("fade_pending not 0 or 1");
        if (pf.fade_pos[ch] < 0 || pf.fade_pos[ch] > 239) vorl::fuzz::invariant_broken("fade_pos out of range");
        if (pf.diff_hist[ch][255] != 0 || pf.diff_hist[ch][511] != 0 || pf.diff_hist[ch][767] != 0)
            vorl::fuzz::invariant_broken("unused history entry written");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static VORLWorkArea work;
    set_up(work);

    vorl::fuzz::Bytes in(data, size);
    const int calls = 1 + in.u8() % 64;
    in.take(work.ring, sizeof work.ring);
    const uint8_t *controls = in.data();
    const size_t n_controls = in.left();
    vorl::fuzz::Noise noise(static_cast<uint32_t>(size) ^ 0x5bd1e995u);

    for (int call = 0; call < calls; ++call) {
        uint8_t c[8];
        for (int k = 0; k < 8; ++k) c[k] = vorl::fuzz::cyclic(controls, n_controls, 8u * call + k);
        if (call > 0) {  // the host's new block at ring positions 768..1023
            for (int ch = 0; ch < 2; ++ch) {
                int16_t *newest = work.ring[ch] + 768;
                if (c[7] & 1) {
                    for (int i = 0; i < 256; ++i)
                        newest[i] = static_cast<int16_t>(
                            vorl::fuzz::cyclic(controls, n_controls, 512u * call + 2 * i + ch) |
                            vorl::fuzz::cyclic(controls, n_controls, 512u * call + 2 * i + ch + 7) << 8);
                } else {
                    const int32_t amplitude = (static_cast<int32_t>(c[4]) << 7) | 127;
                    for (int i = 0; i < 256; ++i) newest[i] = noise.sample(amplitude);
                }
                newest[c[5]] = static_cast<int16_t>(static_cast<uint16_t>(c[6] << 8 | c[6]));
            }
        }
        work.hdr.zoom_state = static_cast<uint32_t>(c[0]) | static_cast<uint32_t>(c[1]) << 8 |
                              static_cast<uint32_t>(c[2]) << 16 | static_cast<uint32_t>(c[3]) << 24;
        sound_vorl_variable_param_set(&work.hdr, &work.inst);

        int16_t oldest[2][256];
        std::memcpy(oldest[0], work.ring[0], sizeof oldest[0]);
        std::memcpy(oldest[1], work.ring[1], sizeof oldest[1]);
        sound_pulse_filter(work.ring[0], work.ring[0], &work.inst);
        if (std::memcmp(oldest[0], work.ring[0], sizeof oldest[0]) != 0 ||
            std::memcmp(oldest[1], work.ring[1], sizeof oldest[1]) != 0)
            vorl::fuzz::invariant_broken("oldest block of a ring written");
        check_state(work);

        for (auto &ring : work.ring) std::memmove(ring, ring + 256, 768 * sizeof ring[0]);
    }
    return 0;
}
