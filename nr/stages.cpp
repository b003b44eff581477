// Analysis and synthesis stages: sine-windowed 512-sample frames with a hop
// of 256, rounded, saturated and overlap-added back into 16-bit stereo. The
// window tables carry the chain's whole level scaling (1/32768 in, 64 out).
#include "stages.h"

#include <cstdint>

#include "vorl.h"

namespace {

// Window over a frame from its rising half: symmetric about sample 256.
inline float window_at(const float *half, int t) { return t <= 256 ? half[t] : half[512 - t]; }

// Truncation toward zero, saturating at the 32-bit range; NaN gives 0.
inline int32_t truncate_saturating(float v) {
    if (!(v == v)) return 0;
    if (v >= 2147483648.0f) return INT32_MAX;
    if (v < -2147483648.0f) return INT32_MIN;
    return static_cast<int32_t>(v);
}

// Rounds half away from zero by adding or subtracting 0.5 in single
// precision, then adds the pending overlap value and saturates on the side
// of y's sign; the sum is formed in 64 bits.
inline int16_t synthesize(float y, int32_t pending) {
    if (y >= 0.0f) {
        const int64_t s = static_cast<int64_t>(pending) + truncate_saturating(y + 0.5f);
        return static_cast<int16_t>(s > 32767 ? 32767 : s);
    }
    if (y < 0.0f) {
        const int64_t s = static_cast<int64_t>(pending) + truncate_saturating(y - 0.5f);
        return static_cast<int16_t>(s < -32768 ? -32768 : s);
    }
    return static_cast<int16_t>(pending);  // NaN contributes nothing
}

}  // namespace

namespace vorl {

void analyse(float *frame0, float *frame1, const int16_t *ring, uint32_t ch_offset,
             const float *window) {
    const int16_t *ring1 = ring + ch_offset;
    for (int t = 0; t < 512; ++t) {
        const float w = window_at(window, t);
        frame0[t] = static_cast<float>(ring[t]) * w;
        frame1[t] = static_cast<float>(ring1[t]) * w;
    }
}

}  // namespace vorl

extern "C" {

void sound_vorl_pre_sac(float *frame0, float *frame1, const int16_t *ring,
                        const st_vorl_inst *inst) {
    vorl::analyse(frame0, frame1, ring, inst->ch_offset, inst->p_sin_win_tbl);
}

void sound_vorl_post_sac(const float *frame0, const float *frame1, int16_t *out,
                         const st_vorl_inst *inst) {
    const float *window = inst->p_scale_sin_win_tbl;
    const float *frames[2] = {frame0, frame1};
    for (int c = 0; c < 2; ++c) {
        const float *frame = frames[c];
        for (int t = 0; t < 256; ++t)  // completes the pending half
            out[2 * t + c] = synthesize(frame[t] * window_at(window, t), out[2 * t + c]);
        for (int t = 256; t < 512; ++t)  // starts the next block's half
            out[2 * t + c] = synthesize(frame[t] * window_at(window, t), 0);
    }
}

}  // extern "C"
