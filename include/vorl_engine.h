/*
 * libvorl - the noise-reduction engine: its records in the work area, its
 * stages and its constant tables, for hosts that drive the stages one by
 * one. Most hosts need only vorl.h.
 *
 * Engine functions check nothing and report nothing: the caller guarantees
 * that the engine is set up (sound_vorl_init, then sound_vorl_set), that
 * buffers have the sizes stated and that calls on one instance do not
 * overlap. Spectra are 512 floats in half-complex order: element k holds
 * the real part of bin k (0..256), element 512-k the imaginary part of bin
 * k (1..255). No transform normalises.
 */
#ifndef VORL_ENGINE_H
#define VORL_ENGINE_H

#include "vorl_table.h"
#include "vorl_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------- engine records */

/* Block settings record, in the work area at VORL_OFS_HDR. The host writes
 * the three drive words before a block (or uses VORLSetDriveState); a
 * setting lasts until the host changes it. */
struct st_vorl_hdr {
    uint32_t ch_num;        /* 2 */
    uint32_t frame_size;    /* 512 */
    uint32_t zoom_state;    /* 0 idle, 1 "WT" drive, 2 "TW" drive (low byte) */
    uint32_t af_state;      /* autofocus drive; carried, read by no stage */
    uint32_t wind_state;    /* 1: wind present */
    uint32_t ch_offset;     /* 1024: samples from ring 0 to ring 1 */
    st_vorl_tbl *p_tbl;     /* the table image in the work area */
};

/* Pulse-filter state, in the work area at VORL_OFS_PULSE. */
struct CPulseFilter {
    uint16_t *p_diff_hist;       /* &diff_hist[0][0]; set up, read by no stage */
    uint16_t diff_hist[2][768];  /* |first differences| of blocks t-2..t */
    uint32_t sq_sum[2][16];      /* per-block sums of squared scaled diffs */
    int32_t sq_exp[2][16];       /* per-block exponents (2 x scaling shift) */
    uint32_t abs_sum[2][16];     /* per-block sums of absolute diffs */
    uint32_t fade_pending[2];    /* second half of a patch pending */
    int32_t fade_pos[2];         /* offset of the pending patch */
    int32_t blk_pos[2];          /* slot of the current block, 0..15 */
    uint16_t peak_hist[2][5];    /* per-block largest absolute difference */
    int32_t peak_pos[2];         /* slot of the current block, 0..4 */
};

/* Values of st_vorl_ws.learn_phase (a uint8_t). */
enum vorl_learn_phase {
    VORL_LEARN_IDLE = 0,          /* no zoom drive: no-zoom measuring periods */
    VORL_LEARN_DRIVE_RUNNING = 1, /* zoom drive: zoom measuring periods       */
    VORL_LEARN_DRIVE_STARTED = 2  /* opening blocks of a drive, not measured  */
};

/* Values of st_vorl_ws.eq_fade_state (a uint32_t). A finished fade stays in
 * its fading state; only set-up enters VORL_EQ_STEADY. */
enum vorl_eq_fade {
    VORL_EQ_STEADY = 0,
    VORL_EQ_FADING_IN = 1,
    VORL_EQ_FADING_OUT = 2
};

/* Engine workspace, in the work area at VORL_OFS_WS. The p_ pointers marked
 * "inspection" are set up for hosts that look into the workspace; no stage
 * reads them. */
struct st_vorl_ws {
    float gain_prev[2][256];     /* smoothed gain per channel and bin */
    float pow_spec[2][256];      /* power spectrum of the current frame */
    float diff_pow[256];         /* power of the left-minus-right spectrum */
    float *p_gain_prev;          /* inspection */
    float *p_zspec_acc;          /* inspection */
    float *p_band_ref;           /* inspection */
    float *p_band_acc;           /* inspection */
    float *p_pow_spec;           /* inspection */
    float *p_diff_pow;           /* inspection */
    float *p_zcomp;              /* coefficient increments the core reads */
    float *p_zcomp_tbl;          /* working copy's zspec_comp_coef_f_LR_d */
    float *p_zcomp_max;          /* inspection: ..._LR_d_max of the copy */
    st_vorl *p_st_vorl;          /* inspection: &st_vorl_work */
    st_vorlc *p_st_vorlc;        /* inspection: &st_vorlc_work */
    float zcomp[2][72];          /* increments in use outside training mode */
    float zspec_acc[3][48];      /* odd bins 1..95: rows 0/1 diff, row 2 sum */
    float band_acc[3][72];       /* band ends: diff, left, right */
    float band_ref[2][72];       /* band_acc rows 1, 2 of the last no-zoom period */
    int32_t z_frame_cnt;         /* zoom blocks so far, counting this one */
    int32_t blk_cnt;             /* blocks to the next learning step */
    int32_t ctrl_cnt;            /* blocks to the next control step */
    float level_acc;
    float level_ref;
    float ctrl_pow_acc;
    float ctrl_pow_hist[4];
    float over_est_cur;
    float bias_z;
    float bias_nz;
    float bias_cur;
    float zcomp_rate;
    float eq_base;
    float eq_start;
    float eq_fade;
    float eq_slope_scale;
    uint32_t eq_fade_state;      /* enum vorl_eq_fade */
    uint32_t eq_on;
    uint32_t bgn_on;
    uint32_t zn_on;
    int32_t bgn_sel;             /* background template: 0 "AF", 1 "WT", 2 "TW" */
    uint32_t eq_on_prev;
    uint32_t zoom_prev;
    uint32_t ctrl_flags;
    uint32_t zoom_blk_sum;
    uint8_t learn_phase;         /* enum vorl_learn_phase */
    uint8_t ctrl_hist_idx;
    uint8_t zspec_slot;
    uint32_t fit_ok_z;
    uint32_t fit_ok_nz;
    struct st_vorl st_vorl_work;   /* working copy of the main block */
    struct st_vorlc st_vorlc_work; /* working copy of the control block */
};

/* Engine instance record, in the work area at VORL_OFS_INST. */
struct st_vorl_inst {
    uint32_t ch_num;             /* channel count of the transforms */
    uint32_t frame_size;
    uint32_t zoom_state;
    uint32_t af_state;           /* carried, read by no stage */
    uint32_t wind_state;
    uint32_t ch_offset;
    st_vorl_tbl *p_tbl;
    uint32_t learn_cnt;          /* learning updates since set-up */
    int32_t ch_num_proc;         /* channel count of core, pulse filter, check */
    float *p_frame[2];
    const float *p_sin_win_tbl;
    const float *p_scale_sin_win_tbl;
    const float *p_ifft_tbl;
    const uint16_t *p_hamming_tbl;
    st_vorl_ws *p_ws;
    CPulseFilter *p_pulse;
};

/* The whole work area as one record (VORL_WORK_SIZE bytes; the offsets are
 * the VORL_OFS_ values of vorl.h). The reserve and reserved members keep
 * the fixed map and are never used. */
typedef struct VORLWorkArea {
    int16_t out[512][2];
    int16_t ring[2][1024];
    st_vorl_tbl tbl;
    float frame[2][512];
    st_vorl_ws ws;
    uint8_t ws_reserve[12120 - sizeof(st_vorl_ws)];
    CPulseFilter pulse;
    uint8_t pulse_reserve[3536 - sizeof(CPulseFilter)];
    uint32_t pulse_proc_flag;    /* non-zero: VORLEnterLibrary runs the pulse filter */
    uint32_t reserved0;
    st_vorl_hdr hdr;
    st_vorl_inst inst;
    uint8_t inst_reserve[128 - sizeof(st_vorl_inst)];
    uint8_t reserved1[64];
} VORLWorkArea;

/* -------------------------------------------------------------- set-up */

/* work is a VORLWorkArea. Points the instance at the two frames, the
 * constant tables, the workspace and the pulse-filter state; sets the
 * pulse filter's history pointer and block slots. Touches nothing else. */
VORL_API void sound_vorl_init(void *work);
/* Copies the block settings (channel counts, frame size, channel offset,
 * table pointer, wind word) into inst, clears learn_cnt, copies the image's
 * st_vorl and st_vorlc into the workspace's working copies, then calls
 * sound_vorl_init_vorl_data. Needs sound_vorl_init first. 0, or -1 when the
 * image's version word is not VORL_TBL_VERSION (set up all the same). */
VORL_API int32_t sound_vorl_set(const st_vorl_hdr *hdr, st_vorl_inst *inst);
/* Clears both frames, the spectra, gains and accumulators and puts every
 * control and learning state word to its start value from the working
 * copies. With train_mode 1 the core reads the learned curve itself
 * (p_zcomp = p_zcomp_tbl); otherwise a fixed copy in zcomp. Returns 0. */
VORL_API int32_t sound_vorl_init_vorl_data(st_vorl_inst *inst);
/* Copies zoom_state, af_state and wind_state from hdr to inst. */
VORL_API void sound_vorl_variable_param_set(const st_vorl_hdr *hdr, st_vorl_inst *inst);

/* -------------------------------------------------------- signal path
 * Per-block kernels end in _sac. */

/* One block. ring: the channel-0 input ring (samples 0..511 read), channel
 * 1 at ring + ch_offset; out: the output area, frames 0..255 read (the
 * pending half) and frames 0..511 written. Runs analysis, forward
 * transforms, core, post stage, inverse transforms and synthesis, and every
 * nr_ctrl_counter blocks the control step.
 * Drive word: the low byte of zoom_state, 0 idle, 1 or 2 a zoom drive; any
 * other non-zero value counts as a running drive and selects template 0.
 * ch_num above 2 is taken as 2 (the record holds two frames); below 1 no
 * transform runs. A counter (block or control) of 0 or below delays the
 * step it times by a 32-bit wrap. */
VORL_API void sound_vorl(const int16_t *ring, int16_t *out, st_vorl_inst *inst);
/* Analysis: frame_c[t] = ring_c[t] * w[t], t = 0..511, w the sine window
 * (sin_win_tbl mirrored, carrying the input scale 1/32768), ring_1 = ring
 * + ch_offset. Frames must not overlap the ring. */
VORL_API void sound_vorl_pre_sac(float *frame0, float *frame1, const int16_t *ring,
                                 const st_vorl_inst *inst);
/* Synthesis: multiplies each frame by the synthesis window (output scale
 * 64), rounds half away from zero, adds frames 0..255 to the pending half
 * in out and writes frames 256..511 fresh; sums saturate to 16 bits, NaN
 * adds nothing. Frames are read only; out is interleaved, channel 0 first. */
VORL_API void sound_vorl_post_sac(const float *frame0, const float *frame1, int16_t *out,
                                  const st_vorl_inst *inst);
/* Reciprocal of *x from the table seed div_init_value_tbl_f and n Newton
 * steps. *x is clamped in place to S[27]..S[0] of S = div_search_tbl_f and
 * the caller sees the clamped value. S must be decreasing
 * and positive and the seeds inside Newton's convergence range, else the
 * result is meaningless (every index stays inside the tables). */
VORL_API float sound_vorl_recip(float *x, int32_t n, const st_vorl *p_st_vorl);
/* Suppression core. spec[0], spec[1]: the channels' spectra, modified in
 * place for the first min(ch_num_proc, 2) channels. Writes the workspace's
 * power spectra (clamped by sound_vorl_recip), gains and accumulators.
 * zspec_comp_base_bin must increase strictly and end at 255; otherwise the
 * band counter holds at band 71. bgn_sel outside 0..2 uses template 0.
 * Returns 0. */
VORL_API int32_t sound_vorl_core_sac(float *const *spec, st_vorl_inst *inst);
/* Post stage: when blk_cnt has reached 0, ends the measuring period by its
 * fit test (dval takes the error ratio) and, after a passing no-zoom and a
 * passing zoom period, refits the working curve. Fit-point ranges
 * zspec_comp_case{0,1}_{sp,ep} above 48 are taken as 48. Returns 0. */
VORL_API int32_t sound_vorl_core_post_sac(st_vorl_inst *inst);
/* Refits the 144 increments behind p_zcomp_tbl from the band accumulators:
 * stored = (1 - rate) * stored + (inter_hop * rate) * (c - c_previous_band).
 * ref_scale and zoom_scale turn accumulated sums into averages. */
VORL_API void sound_vorl_learn_coef(st_vorl_inst *inst, float ref_scale, float zoom_scale,
                                    float rate);

/* --------------------------------------------------------- transforms */

/* In-place unnormalised real FFT of n points into the half-complex layout
 * (for n = 512: the spectrum layout above). Written for n = 2*4^m: correct
 * for n = 8..2048 (and 4); longer such n reuse the last seed pair and give
 * a wrong spectrum. Reads the seeds through inst->p_ifft_tbl. Returns buf. */
VORL_API float *sound_vorl_rfft_sac(float *buf, int32_t n, const st_vorl_inst *inst);
/* Inverse of the above for n = 512 only (other lengths: buf untouched);
 * inverse(forward(x)) = 512 x. Returns buf. */
VORL_API float *sound_vorl_irfft_sac(float *buf, int32_t n, const st_vorl_inst *inst);

/* -------------------------------------------------------- pulse filter */

/* Clears the pulse-filter state of the first min(ch_num_proc, 2) channels
 * (block slots and history pointer are set-up's). Returns inst. */
VORL_API st_vorl_inst *sound_CPulseFilter_init(st_vorl_inst *inst);
/* Click filter over both input rings, in place: channel ch's 1024-sample
 * ring starts at out + ch * ch_offset, for the first min(ch_num_proc, 2)
 * channels. in is not read and may equal out (the host passes the same
 * pointer). Judges the block of two calls earlier; patches only while the
 * low byte of zoom_state is non-zero. */
VORL_API void sound_pulse_filter(const int16_t *in, int16_t *out, st_vorl_inst *inst);
/* One channel of the above: ring is that channel's ring, ch 0 or 1; in is
 * not read. Returns 0. */
VORL_API int32_t sound_pulse_filter_sac(const int16_t *in, int16_t *ring, int32_t ch,
                                        st_vorl_inst *inst);
/* About 256*sqrt(x) (Q8, within -0.58 % .. +1.27 %), integer only; 0 for
 * x < 1. */
VORL_API int32_t SqrtInt(int32_t x);

/* ---------------------------------------------------- constant tables
 * Constant tables end in _tbl or begin with tbl. */

/* Rising half of the analysis window, sin(pi i / 512) / 32768, i = 0..256. */
VORL_API extern const float sin_win_tbl[257];
/* Synthesis window: exactly 2^21 times sin_win_tbl (64 sin(pi i / 512)). */
VORL_API extern const float scale_sin_win_tbl[257];
/* Q14 Hamming window of the pulse filter's cross-fade, n = 0..511. */
VORL_API extern const uint16_t tblHamming[512];
/* (cos, sin) of 2 pi / L for L = 8, 32, 128, 512, 2048: the transforms'
 * twiddle seeds. */
VORL_API extern const float IFFT_radix4_time_addition_theorem_wr_wi_2048[10];
/* The same for L = 16, 64, 256, 1024, 4096 (used by no stage). */
VORL_API extern const float IFFT_radix4_time_addition_theorem_wr_wi_4096[10];
/* Byte offsets (4 i, 4 rev(i)) of the pairs a bit reversal of 512 or 1024
 * points swaps (used by no stage). */
VORL_API extern const uint16_t scramble_tbl_512[240][2];
VORL_API extern const uint16_t scramble_tbl_1024[496][2];

/* Error ratio of the last fit test of any instance (diagnostic only,
 * written with a relaxed atomic store). */
VORL_API extern float dval;

#ifdef __cplusplus
}
#endif

#endif /* VORL_ENGINE_H */
