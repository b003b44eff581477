// Click ("pulse") filter on the 16-bit input rings, integer only. Each call
// measures the newest block's absolute first differences, judges the block
// of two calls earlier against 16-block statistics and the peaks of the
// blocks two before and two after it, and during a zoom drive rebuilds a
// detected click as a Q14 Hamming cross-fade (tblHamming, hamming_table.cpp)
// between the signal one block earlier and one block later (the second half
// finishes on the next call).
#include <cstring>

#include "../nr/engine_constants.h"
#include "pulse_stats.h"
#include "vorl.h"

namespace {

constexpr int kBlock = 256;
constexpr int kDiffs = 255;        // differences within one block
constexpr int kStatBlocks = 16;    // blocks of long-term statistics
constexpr int kPeakSlots = 5;      // peaks of blocks t-4..t
constexpr int kPatchLead = 16;     // a patch starts this many samples before the jump
constexpr uint32_t kPeakFactor = 5;
constexpr int32_t kDeviations = 8; // threshold: mean + 8 standard deviations

// Q14 weighting: product shifted right with the sign (toward minus infinity).
inline int32_t weigh(uint16_t w, int16_t x) { return (static_cast<int32_t>(w) * x) >> 14; }

// Sums wrap around in 16 bits; there is no saturation.
inline int16_t wrap16(int32_t v) { return static_cast<int16_t>(static_cast<uint16_t>(v)); }

inline int bit_length(uint32_t v) {
    int n = 0;
    while (v != 0) {
        ++n;
        v >>= 1;
    }
    return n;
}

// Index of the first of the judged block's differences above th, or -1.
// Runs of 16 are tested whole first (a loop the compiler vectorises).
int first_above(const uint16_t *hist, int64_t th) {
    if (th < 0) return 0;
    if (th >= 65535) return -1;
    const auto t = static_cast<uint16_t>(th);
    for (int k = 0; k < kBlock; k += 16) {
        bool any = false;
        for (int i = 0; i < 16; ++i) any |= hist[k + i] > t;
        if (!any) continue;
        for (int i = 0;; ++i)
            if (hist[k + i] > t) return k + i;
    }
    return -1;
}

// Completes a patch from the previous call: the falling-window share of the
// samples one block later.
void finish_patch(int16_t *x, const uint16_t *w, CPulseFilter *pf, int ch) {
    if (pf->fade_pending[ch] != 1) return;
    const int32_t p = pf->fade_pos[ch];
    for (int i = 0; i < kBlock; ++i)
        x[256 + p + i] = wrap16(x[256 + p + i] + weigh(w[256 + i], x[512 + p + i]));
    pf->fade_pending[ch] = 0;
    pf->fade_pos[ch] = 0;
}

// Cross-fades the stretch from p on, and blends the part of the judged block
// before it with the signal one block earlier.
void start_patch(int16_t *x, const uint16_t *w, CPulseFilter *pf, int ch, int32_t p) {
    for (int i = 0; i < kBlock; ++i) {
        const int16_t later = x[512 + p + i];
        const int16_t earlier = x[p + i];
        x[256 + p + i] = wrap16(weigh(w[i], later) + weigh(w[256 + i], earlier));
        x[512 + p + i] = static_cast<int16_t>(weigh(w[i], later));
    }
    for (int32_t j = 0; j < p; ++j)
        x[256 + j] = wrap16(weigh(w[512 - p + j], x[256 + j]) + weigh(w[256 - p + j], x[j]));
    pf->fade_pending[ch] = 1;
    pf->fade_pos[ch] = p;
}

}  // namespace

namespace vorl::pulse {

int32_t long_term_threshold(const CPulseFilter &pf, int ch) {
    int32_t e = 0;
    for (int j = 0; j < kStatBlocks; ++j)
        if (pf.sq_exp[ch][j] > e) e = pf.sq_exp[ch][j];
    uint32_t t1 = 0, t2 = 0;
    for (int j = 0; j < kStatBlocks; ++j) {
        t1 += pf.abs_sum[ch][j];
        t2 += pf.sq_sum[ch][j] >> (e - pf.sq_exp[ch][j]);
    }
    int h = 0;
    if (t1 >= 65536u && t1 < 0x80000000u) h = bit_length(t1) - 16;
    const uint32_t mean = t1 >> h;
    const auto variance = static_cast<int32_t>((t2 >> (12 - e)) - ((mean * mean) >> (24 - 2 * h)));
    const int32_t r = SqrtInt(variance);
    return (kDeviations * r + static_cast<int32_t>(t1 / 16)) / 256;
}

}  // namespace vorl::pulse

extern "C" {

st_vorl_inst *sound_CPulseFilter_init(st_vorl_inst *inst) {
    CPulseFilter *pf = inst->p_pulse;
    const int channels = vorl::stage_channels(inst->ch_num_proc);
    for (int ch = 0; ch < channels; ++ch) {
        pf->fade_pending[ch] = 0;
        pf->fade_pos[ch] = 0;
        std::memset(pf->diff_hist[ch], 0, sizeof pf->diff_hist[ch]);
        std::memset(pf->sq_sum[ch], 0, sizeof pf->sq_sum[ch]);
        std::memset(pf->sq_exp[ch], 0, sizeof pf->sq_exp[ch]);
        std::memset(pf->abs_sum[ch], 0, sizeof pf->abs_sum[ch]);
        std::memset(pf->peak_hist[ch], 0, sizeof pf->peak_hist[ch]);
        pf->peak_pos[ch] = 0;
    }
    return inst;
}

void sound_pulse_filter(const int16_t *in, int16_t *out, st_vorl_inst *inst) {
    const int channels = vorl::stage_channels(inst->ch_num_proc);
    for (int ch = 0; ch < channels; ++ch)
        sound_pulse_filter_sac(in, out + static_cast<size_t>(ch) * inst->ch_offset, ch, inst);
}

int32_t sound_pulse_filter_sac(const int16_t * /*in*/, int16_t *x, int32_t ch, st_vorl_inst *inst) {
    CPulseFilter *pf = inst->p_pulse;
    const uint16_t *w = inst->p_hamming_tbl;
    uint16_t *hist = pf->diff_hist[ch];

    finish_patch(x, w, pf, ch);

    // Newest block: differences, peak and the scaling shift of the squares.
    uint32_t peak = 0;
    for (int j = 0; j < kDiffs; ++j) {
        const int32_t d = x[769 + j] - x[768 + j];
        const auto ad = static_cast<uint32_t>(d < 0 ? -d : d);
        hist[512 + j] = static_cast<uint16_t>(ad);
        peak = ad > peak ? ad : peak;
    }
    const int max_bits = bit_length(peak);  // the largest bit length is the peak's
    const int shift = max_bits >= 11 ? max_bits - 10 : 0;
    uint32_t abs_sum = 0, sq_sum = 0;
    for (int j = 0; j < kDiffs; ++j) {
        const uint32_t d = hist[512 + j];
        abs_sum += d;
        sq_sum += (d >> shift) * (d >> shift);
    }
    const int b = pf->blk_pos[ch] & (kStatBlocks - 1);
    pf->abs_sum[ch][b] = abs_sum;
    pf->sq_sum[ch][b] = sq_sum;
    pf->sq_exp[ch][b] = 2 * shift;

    const int32_t th1 = vorl::pulse::long_term_threshold(*pf, ch);

    // Peak rule: the judged block must also stand out from the blocks two
    // before (slot q', four calls old) and two after it (the newest).
    const int32_t q = pf->peak_pos[ch] >= 0 && pf->peak_pos[ch] < kPeakSlots ? pf->peak_pos[ch] : 0;
    pf->peak_hist[ch][q] = static_cast<uint16_t>(peak);
    const int32_t q_next = q > 3 ? 0 : q + 1;
    const uint32_t old_peak = pf->peak_hist[ch][q_next];
    const uint32_t pref = peak > old_peak ? peak : old_peak;
    const int64_t th = static_cast<int64_t>(kPeakFactor * pref) > th1 ? kPeakFactor * pref : th1;

    const int found = first_above(hist, th);
    if (found >= kPatchLead && (inst->zoom_state & 0xFFu) != 0)
        start_patch(x, w, pf, ch, found - kPatchLead);

    std::memmove(hist, hist + kBlock, 2 * kBlock * sizeof hist[0]);
    pf->blk_pos[ch] = (b + 1) % kStatBlocks;
    pf->peak_pos[ch] = q_next;
    return 0;
}

}  // extern "C"
