// Fuzz target: a hostile tuning table and hostile drive words through the
// whole host sequence (VORLPreProcess, a few hundred VORLEnterLibrary
// blocks, VORLPostProcess to a scratch file).
//
// Input layout (missing bytes read as 0):
//   byte 0      bits 0-1: 0 keeps the table's version word, else it is made
//               valid (so three inputs in four reach the engine);
//               bit 2: dump the working blocks; bits 4-7: block count
//               16 + 19 * n (16..301)
//   next 4184   laid over the reference table (a short input changes only
//               the front); the checksum is then fixed up
//   the rest    per-block controls, four bytes a block, used cyclically:
//               c0 zoom_state low byte (any value, not only 0..2),
//               c1 wind_state (any byte) and click position,
//               c2 bit 0 pulse filter on, bit 1 click, bit 2 garbage in
//                  zoom_state's upper bytes, bit 3 clipped input, bit 4
//                  identical channels, bit 5 silence, bit 6 samples taken
//                  raw from the control bytes, bit 7 af_state,
//               c3 noise amplitude
#include <cstdint>
#include <cstring>

#include "fuzz_common.h"
#include "table_builder.h"
#include "vorl.h"

using vorl::fuzz::Bytes;

namespace {

void fill_block(int16_t *left, int16_t *right, const uint8_t c[4], vorl::fuzz::Noise &noise,
                const uint8_t *controls, size_t n_controls, size_t at) {
    const int32_t amplitude = (static_cast<int32_t>(c[3]) << 7) | 127;  // 127..32767
    for (int i = 0; i < 256; ++i) {
        left[i] = noise.sample(amplitude);
        right[i] = noise.sample(amplitude);
    }
    if (c[2] & 64)
        for (size_t i = 0; i < 256; ++i) {
            auto raw = [&](size_t k) {
                return static_cast<int16_t>(static_cast<uint16_t>(vorl::fuzz::cyclic(controls, n_controls, k) |
                                                                  vorl::fuzz::cyclic(controls, n_controls, k + 1) << 8));
            };
            left[i] = raw(at + 4 * i);
            right[i] = raw(at + 4 * i + 2);
        }
    if (c[2] & 2) left[c[1]] = static_cast<int16_t>(c[1] & 1 ? 32767 : -32768);
    if (c[2] & 8)
        for (int i = 0; i < 256; ++i) {
            left[i] = left[i] < 0 ? -32768 : 32767;
            right[i] = right[i] < 0 ? 32767 : -32768;
        }
    if (c[2] & 16) std::memcpy(right, left, 256 * sizeof(int16_t));
    if (c[2] & 32) {
        std::memset(left, 0, 256 * sizeof(int16_t));
        std::memset(right, 0, 256 * sizeof(int16_t));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static VORLWorkArea work;
    std::memset(&work, 0, sizeof work);  // every input starts from the same memory

    Bytes in(data, size);
    const uint8_t flags = in.u8();
    st_vorl_tbl table = vorl::tablekit::reference_table();
    in.take(&table, sizeof table);
    const bool version_forced = (flags & 3) != 0;
    if (version_forced) table.tbl_version = VORL_TBL_VERSION;
    vorl::tablekit::seal(table);
    const char *path = vorl::fuzz::write_scratch(&table, sizeof table);

    VORLResource res{};
    res.p_work = &work;
    res.p_tbl_path = path;
    VORLGetResourceSize(&res);
    VORLGetResourceInfo(&res);
    VORLInitialize(&res);
    const int32_t status = VORLPreProcess(&res);
    if (status != VORL_OK) {
        if (version_forced || status != VORL_ERR_VERSION) vorl::fuzz::invariant_broken("sealed table refused");
        return 0;  // the host must not process blocks after a refusal
    }
    if (flags & 4) sound_vorl_print_tbl(&work.inst);

    const int blocks = 16 + 19 * (flags >> 4);
    const uint8_t *controls = in.data();
    const size_t n_controls = in.left();
    vorl::fuzz::Noise noise(static_cast<uint32_t>(size) * 2654435761u ^ flags);
    for (int b = 0; b < blocks; ++b) {
        uint8_t c[4];
        for (int k = 0; k < 4; ++k) c[k] = vorl::fuzz::cyclic(controls, n_controls, 4u * b + k);
        fill_block(res.p_in_ch0, res.p_in_ch1, c, noise, controls, n_controls, 4u * b + 4u);
        uint32_t zoom = c[0];
        if (c[2] & 4) zoom |= (static_cast<uint32_t>(c[3]) << 8) | (static_cast<uint32_t>(c[1]) << 24);
        VORLSetDriveState(&res, zoom, c[2] >> 7, c[1]);
        work.pulse_proc_flag = c[2] & 1;
        VORLEnterLibrary(&res);
    }

    VORLPostProcess(&res);
    if (sound_vorl_comp_check_sum(&work.hdr) != 0) vorl::fuzz::invariant_broken("image checksum after write-back");
    return 0;
}
