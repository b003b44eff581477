#include "stream_runner.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace vorl::lv2 {

namespace {

int16_t to_pcm16(float x) {
    const float v = x * 32768.0f;
    if (!(v == v)) return 0;  // NaN
    if (v >= 32767.0f) return 32767;
    if (v <= -32768.0f) return -32768;
    return static_cast<int16_t>(std::lrint(v));
}

// The slot of block `index` in a ring of `slots` (index may be negative).
int slot_of(int64_t index, int slots) { return static_cast<int>(((index % slots) + slots) % slots); }

}  // namespace

StreamRunner::StreamRunner() {
    VORLGetResourceSize(&res_);
    const std::size_t bytes = std::max<std::size_t>(res_.resource_size, sizeof(VORLWorkArea));
    storage_.assign((bytes + 7) / 8, 0);
    res_.p_work = storage_.data();
    VORLGetResourceInfo(&res_);
    dry_ = input_[kSlots - 1];  // silent: the last slot is first written much later
}

int32_t StreamRunner::check(const st_vorl_tbl &table) {
    // The checks VORLPreProcess makes after reading a table file.
    st_vorl_hdr probe{};
    probe.p_tbl = const_cast<st_vorl_tbl *>(&table);
    if (sound_vorl_comp_check_sum(&probe) != 0) return VORL_ERR_CHECKSUM;
    return table.tbl_version == VORL_TBL_VERSION ? VORL_OK : VORL_ERR_VERSION;
}

int32_t StreamRunner::load(const st_vorl_tbl &table) {
    const int32_t status = check(table);
    if (status != VORL_OK) return status;
    table_ = table;
    loaded_ = true;
    restart();
    return VORL_OK;
}

void StreamRunner::restart() {
    // VORLPreProcess with the image already in place instead of read from a file.
    VORLInitialize(&res_);
    VORLWorkArea &w = work();
    w.tbl = table_;
    sound_vorl_init(&w);
    sound_vorl_set(&w.hdr, &w.inst);
    sound_vorl_variable_param_set(&w.hdr, &w.inst);
    sound_CPulseFilter_init(&w.inst);
    w.pulse_proc_flag = pulse_ ? 1u : 0u;

    follow_af_ = false;
    block_ = 0;
    pos_ = 0;
    std::memset(input_, 0, sizeof input_);
    std::memset(processed_, 0, sizeof processed_);
    dry_ = input_[kSlots - 1];  // silent: the last slot is first written much later
    std::fill(std::begin(words_), std::end(words_), Controls{});
    detector_ = DriveDetector(&table_);
    onset_.reset();
}

int StreamRunner::lag() const { return detect_ ? DriveDetector::kLatencyBlocks + 1 : pulse_ ? 1 : 0; }

uint32_t StreamRunner::latency() const { return VORL_DELAY_FRAMES + static_cast<uint32_t>(lag() * kBlock); }

void StreamRunner::enter_library(const Controls &c) {
    if (c.af != 0) follow_af_ = true;  // as the tool: af words switch the "AF" template
    hand_drive_words(&res_, onset_, DriveWords{c.zoom, c.af, c.wind}, follow_af_);
    VORLEnterLibrary(&res_);
    std::memcpy(processed_, res_.p_out, sizeof processed_);
}

// Called before the first frame of block `block_` enters; block_ - 1 is complete.
void StreamRunner::block_boundary(const Controls &c) {
    if (c.pulse != pulse_ || c.detect != detect_) {
        pulse_ = c.pulse;
        detect_ = c.detect;
        restart();
    }
    words_[slot_of(block_, kSlots)] = c;  // a block's words: the controls at its first frame
    DriveWords found;
    if (detect_ && block_ > 0 && detector_.push(&input_[slot_of(block_ - 1, kSlots)][0][0], found)) {
        Controls &w = words_[slot_of(block_ - 1 - DriveDetector::kLatencyBlocks, kSlots)];
        w.zoom = found.zoom;
        w.af = found.af;
        w.wind = found.wind;
    }
    const int64_t call = block_ - lag();  // the library call for input block `call`
    if (call < 0) return;                 // output stays silent until the first one
    VORLWorkArea &w = work();
    if (lag() == 0) {
        // Block call - 1 goes to ring position 512, where the host
        // interface's copy of it lies after the call that took it.
        const int16_t(*done)[2] = input_[slot_of(call - 1, kSlots)];
        for (int i = 0; i < kBlock; ++i) {
            w.ring[0][2 * kBlock + i] = done[i][0];
            w.ring[1][2 * kBlock + i] = done[i][1];
        }
    } else {
        const int16_t(*done)[2] = input_[slot_of(call, kSlots)];
        for (int i = 0; i < kBlock; ++i) {
            res_.p_in_ch0[i] = done[i][0];
            res_.p_in_ch1[i] = done[i][1];
        }
    }
    enter_library(words_[slot_of(call, kSlots)]);
    dry_ = input_[slot_of(call - 3, kSlots)];  // the input block the output block came from
}

void StreamRunner::run(const float *in_l, const float *in_r, float *out_l, float *out_r, uint32_t n,
                       const Controls &c) {
    if (!loaded_) {
        std::fill(out_l, out_l + n, 0.0f);
        std::fill(out_r, out_r + n, 0.0f);
        return;
    }
    const float s = c.strength > 0.0f ? std::min(c.strength, 1.0f) : 0.0f;  // NaN gives 0
    uint32_t i = 0;
    while (i < n) {
        if (pos_ == 0) block_boundary(c);
        const uint32_t chunk = std::min<uint32_t>(n - i, static_cast<uint32_t>(kBlock - pos_));
        int16_t(*fill)[2] = input_[slot_of(block_, kSlots)];
        for (uint32_t j = 0; j < chunk; ++j, ++i, ++pos_) {
            // Read before writing: the host may process in place.
            fill[pos_][0] = to_pcm16(in_l[i]);
            fill[pos_][1] = to_pcm16(in_r[i]);
            for (int ch = 0; ch < 2; ++ch) {
                // Exactly the library's sample at strength 1 (integers below 2^24).
                const float d = dry_[pos_][ch], p = processed_[pos_][ch];
                (ch == 0 ? out_l : out_r)[i] = (d + s * (p - d)) / 32768.0f;
            }
        }
        if (pos_ == kBlock) {
            pos_ = 0;
            ++block_;
        }
    }
}

}  // namespace vorl::lv2
