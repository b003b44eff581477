/*
 * libvorl - lens-drive noise reduction for stereo 16-bit audio.
 *
 * The library removes the noise of a camera lens's drive (zoom motor in both
 * directions, autofocus, with a wind allowance) from recorded stereo sound.
 * It is a spectral noise reducer on 512-sample frames (sine window, hop 256)
 * with a learning step for its zoom-noise model, an optional integer click
 * ("pulse") filter on its input, and a stand-alone DC-cut high-pass filter.
 *
 * Contracts that hold for every function declared here:
 *  - Nothing is allocated, no thread is created, no exception escapes.
 *  - All state of one noise-reduction instance lives in a work area of
 *    VORL_WORK_SIZE bytes that the host provides and owns (8-byte aligned).
 *    The size may change between versions: ask VORLGetResourceSize.
 *  - Instances in separate work areas are independent and may run on
 *    different threads at the same time. Calls on one work area must not
 *    overlap. The only shared state is the write-only diagnostic `dval`,
 *    which is stored with a relaxed atomic store.
 *  - Results are defined bit for bit: single precision in the spectral path,
 *    every product and sum rounded on its own (no fused multiply-add).
 *  - Only 64-bit little-endian targets are supported: the work area and the
 *    tuning-table file have fixed layouts.
 *
 * Host calling order (see README.md for a complete example):
 *   VORLGetResourceSize -> provide work area, set p_work and p_tbl_path
 *   VORLGetResourceInfo -> input/output places
 *   VORLInitialize      -> clears output and input rings, block settings
 *   VORLPreProcess      -> loads and verifies the tuning table (must be 0)
 *   per block: write 256 samples per channel at p_in_ch0 / p_in_ch1,
 *              optionally VORLSetDriveState, VORLEnterLibrary,
 *              read 256 interleaved stereo frames at p_out
 *              (the output is delayed by VORL_DELAY_FRAMES = 768 frames)
 *   VORLPostProcess     -> checks and saves the learned table
 *
 * Tuning-table rules the library relies on, and what it does when a table
 * (which anyone can forge: the checksum is a plain sum) breaks them:
 *  - zspec_comp_base_bin strictly increasing and ending at 255: otherwise
 *    the band counter is held at band 71 (no access past the last band).
 *  - Fit-point ranges zspec_comp_case{0,1}_{sp,ep} within 0..48: larger
 *    values are clamped to 48.
 *  - div_search_tbl_f decreasing and positive, div_init_value_tbl_f inside
 *    the Newton convergence range: otherwise the reciprocals (and so the
 *    output) are meaningless, but every index stays inside the tables.
 *  - Counters (nz/i/z_block_counter, nr_ctrl_counter) positive: a value of
 *    0 or below only delays the step it times by a 32-bit wrap.
 *  - zoom_state 0, 1 or 2: any other non-zero low byte counts as a running
 *    zoom drive and selects background template 0 ("AF").
 *  - Non-finite floats propagate as IEEE arithmetic makes them; every
 *    conversion to an integer saturates and maps NaN to 0.
 */
#ifndef VORL_H
#define VORL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#define VORL_API __declspec(dllexport)
#else
#define VORL_API __attribute__((visibility("default")))
#endif

/* ---------------------------------------------------------------- status */

#define VORL_OK 0
#define VORL_ERR_CHECKSUM (-100)  /* table checksum word does not match   */
#define VORL_ERR_TBL_OPEN (-300)  /* table file cannot be opened          */
#define VORL_ERR_NULL (-500)      /* VORLResource pointer is null         */
#define VORL_ERR_VERSION (-1400)  /* table version word is not 0x01030000 */

/* ------------------------------------------------------------ dimensions */

#define VORL_WORK_SIZE 30312u      /* bytes of work area per instance      */
#define VORL_BLOCK_FRAMES 256u     /* stereo frames per block              */
#define VORL_FRAME_SIZE 512u       /* analysis frame length in samples     */
#define VORL_DELAY_FRAMES 768u     /* input-to-output delay in frames      */
#define VORL_TBL_SIZE 4184u        /* bytes of the tuning-table file       */
#define VORL_TBL_WORDS 1046u       /* 32-bit words of the tuning table     */
#define VORL_TBL_VERSION 0x01030000u

/* Work-area map, in bytes from p_work. */
#define VORL_OFS_OUT 0u           /* int16[512][2] output area            */
#define VORL_OFS_RING_CH0 2048u   /* int16[1024] channel-0 input ring     */
#define VORL_OFS_IN_CH0 3584u     /* newest 256 channel-0 samples         */
#define VORL_OFS_RING_CH1 4096u   /* int16[1024] channel-1 input ring     */
#define VORL_OFS_IN_CH1 5632u     /* newest 256 channel-1 samples         */
#define VORL_OFS_TBL 6144u        /* st_vorl_tbl image                    */
#define VORL_OFS_FRAME_CH0 10328u /* float[512] channel-0 frame           */
#define VORL_OFS_FRAME_CH1 12376u /* float[512] channel-1 frame           */
#define VORL_OFS_WS 14424u        /* st_vorl_ws (12120-byte region)       */
#define VORL_OFS_PULSE 26544u     /* CPulseFilter (3536-byte region)      */
#define VORL_OFS_PULSE_FLAG 30080u /* uint32 pulse_proc_flag              */
#define VORL_OFS_HDR 30088u       /* st_vorl_hdr                          */
#define VORL_OFS_INST 30120u      /* st_vorl_inst (128-byte region)       */

/* -------------------------------------------------------- host record */

/* The record the host passes to every VORL* function. Owned by the host;
 * the library keeps no pointer to it between calls. */
typedef struct VORLResource {
    uint8_t host_area[48];      /* the host's own; never touched          */
    const char *build_date;     /* out: "Aug  1 2021"                     */
    const char *build_time;     /* out: "00:00:00"                        */
    uint32_t resource_size;     /* out: VORL_WORK_SIZE                    */
    uint32_t reserved0;
    int16_t *p_in_ch0;          /* out: newest 256 channel-0 samples      */
    int16_t *p_in_ch1;          /* out: newest 256 channel-1 samples      */
    int16_t *p_out;             /* out: 256 interleaved stereo frames     */
    uint32_t frame_num;         /* out: 256                               */
    uint32_t reserved1;
    void *p_work;               /* in: the work area                      */
    const char *p_tbl_path;     /* in: tuning-table file path             */
} VORLResource;

/* ------------------------------------------------------ parameter blocks */

/* Main parameter block: words 1..1021 of the tuning table (4084 bytes).
 * Curves over frequency are stored as per-bin increments per bin group
 * (65 groups: bin 0, then bins 4g-3..4g) or per band (72 bands ending at
 * zspec_comp_base_bin). */
typedef struct st_vorl {
    float eq_gain[65];
    float zspec_comp_coef_f_LR_d[2][72];
    float zspec_comp_coef_f_LR_d_max[2][72];
    float zspec_comp_inter_hop[72];
    uint8_t zspec_comp_base_bin[72];
    float back_ground_noise[3][2][65];   /* [AF, WT, TW][Lch, Rch][group] */
    float zspec_freq_weight_f_z[48];
    float zspec_freq_weight_f_nz[48];
    float div_search_tbl_f[28];
    float div_init_value_tbl_f[28];
    float over_est;
    float over_est_af;
    float est_noise_bias_z_max;
    float est_noise_bias_z_nor;
    float est_noise_bias_z_min;
    float est_noise_bias_nz_max;
    float est_noise_bias_nz_nor;
    float est_noise_bias_nz_min;
    float nr_floor_coef;
    float nr_gain_sm_coef;
    float wind_nr_proc_bias;
    float af_gain_bias_sm_coef;
    float over_est_af_sm_coef;
    float eq_sm_coef_in;
    float eq_sm_coef_out;
    float tolerance_range_zspec_max;
    float tolerance_range_zspec_min;
    uint8_t nr_proc_min_freq_bin;
    uint8_t nr_proc_max_freq_bin;
    uint8_t zspec_comp_max_freq;
    uint8_t train_mode;
    float zspec_ss_a_coef;
    float zspec_ss_b_coef;
    float zspec_comp_sm_coef;
    float zspec_comp_mod_time_coef_a;
    float zspec_comp_mod_time_coef_b;
    float zspec_comp_replace_value;
    float zspec_comp_max_floor_value;
    float zspec_comp_min_floor_value;
    float zspec_comp_case0_th;
    float zspec_comp_case0_th_wind;
    float nz_block_ave_coef;
    int16_t nz_block_counter;
    uint8_t zspec_comp_case0_sp;
    uint8_t zspec_comp_case0_ep;
    float z_block_ave_coef;
    int16_t i_block_counter;
    int16_t z_block_counter;
    float zspec_comp_case1_th;
    float zspec_comp_case1_th_wind;
    uint8_t zspec_comp_case1_sp;
    uint8_t zspec_comp_case1_ep;
    uint8_t wind_nr_proc_freq;
    uint8_t eq_proc_flag;   /* bit 0: EQ without zoom, bit 1: during zoom */
    uint8_t bn_proc_flag;   /* bits 0/1 as EQ; bit 2: always template 0 */
    uint8_t zn_proc_flag;   /* bits 0/1: zoom-noise estimate on          */
    uint8_t spare[2];
} st_vorl;

/* Control parameter block: words 1022..1043 of the tuning table (88 bytes). */
typedef struct st_vorlc {
    float tbl_x[8];
    float val_x[8];
    float over_est_sm_coef;
    float nr_ctrl_pow_th_u;
    float nr_ctrl_pow_th_d;
    float nr_ctrl_t_ave_coef;
    float nr_ctrl_f_ave_coef;
    int16_t nr_ctrl_counter;
    uint8_t nr_ctrl_freq_sp;
    uint8_t nr_ctrl_freq_ep;
} st_vorlc;

/* The tuning-table file and its image: 1046 little-endian 32-bit words. */
typedef struct st_vorl_tbl {
    uint32_t tbl_version;     /* VORL_TBL_VERSION                           */
    struct st_vorl st_vorl;
    struct st_vorlc st_vorlc;
    uint32_t tbl_cnt;         /* learning updates, accumulated over runs    */
    uint32_t check_sum;       /* sum of words 0..1044 modulo 2^32           */
} st_vorl_tbl;

/* ------------------------------------------------------- engine records */

/* Block settings record, in the work area at VORL_OFS_HDR. The host writes
 * the three drive words before a block (or uses VORLSetDriveState); a
 * setting lasts until the host changes it. */
typedef struct st_vorl_hdr {
    uint32_t ch_num;        /* 2 */
    uint32_t frame_size;    /* 512 */
    uint32_t zoom_state;    /* 0 idle, 1 "WT" drive, 2 "TW" drive (low byte) */
    uint32_t af_state;      /* autofocus drive; carried, read by no stage */
    uint32_t wind_state;    /* 1: wind present */
    uint32_t ch_offset;     /* 1024: samples from ring 0 to ring 1 */
    st_vorl_tbl *p_tbl;     /* the table image in the work area */
} st_vorl_hdr;

/* Pulse-filter state, in the work area at VORL_OFS_PULSE. */
typedef struct CPulseFilter {
    uint16_t *p_diff_hist;
    uint16_t diff_hist[2][768];  /* |first differences| of blocks t-2..t */
    uint32_t sq_sum[2][16];      /* per-block sums of squared scaled diffs */
    int32_t sq_exp[2][16];       /* per-block exponents (2 x scaling shift) */
    uint32_t abs_sum[2][16];     /* per-block sums of absolute diffs */
    uint32_t fade_pending[2];    /* second half of a patch pending */
    int32_t fade_pos[2];         /* offset of the pending patch */
    int32_t blk_pos[2];          /* slot of the current block, 0..15 */
    uint16_t peak_hist[2][5];    /* per-block largest absolute difference */
    int32_t peak_pos[2];         /* slot of the current block, 0..4 */
} CPulseFilter;

/* Engine workspace, in the work area at VORL_OFS_WS. */
typedef struct st_vorl_ws {
    float gain_prev[2][256];     /* smoothed gain per channel and bin */
    float pow_spec[2][256];      /* power spectrum of the current frame */
    float diff_pow[256];         /* power of the left-minus-right spectrum */
    float *p_gain_prev;
    float *p_zspec_acc;
    float *p_band_ref;
    float *p_band_acc;
    float *p_pow_spec;
    float *p_diff_pow;
    float *p_zcomp;              /* coefficient increments in use */
    float *p_zcomp_tbl;          /* working copy's zspec_comp_coef_f_LR_d */
    float *p_zcomp_max;          /* working copy's zspec_comp_coef_f_LR_d_max */
    st_vorl *p_st_vorl;
    st_vorlc *p_st_vorlc;
    float zcomp[2][72];
    float zspec_acc[3][48];      /* odd bins 1..95: rows 0/1 diff, row 2 sum */
    float band_acc[3][72];       /* band ends: diff, left, right */
    float band_ref[2][72];       /* band_acc rows 1, 2 of the last no-zoom period */
    int32_t z_frame_cnt;
    int32_t blk_cnt;
    int32_t ctrl_cnt;
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
    uint32_t eq_fade_state;      /* 0 steady, 1 fading in, 2 fading out */
    uint32_t eq_on;
    uint32_t bgn_on;
    uint32_t zn_on;
    int32_t bgn_sel;             /* 0 "AF", 1 "WT", 2 "TW" */
    uint32_t eq_on_prev;
    uint32_t zoom_prev;
    uint32_t ctrl_flags;
    uint32_t zoom_blk_sum;
    uint8_t learn_phase;         /* 2 drive started, 1 drive running, 0 idle */
    uint8_t ctrl_hist_idx;
    uint8_t zspec_slot;
    uint32_t fit_ok_z;
    uint32_t fit_ok_nz;
    struct st_vorl st_vorl;      /* working copy of the main block */
    struct st_vorlc st_vorlc;    /* working copy of the control block */
} st_vorl_ws;

/* Engine instance record, in the work area at VORL_OFS_INST. */
typedef struct st_vorl_inst {
    uint32_t ch_num;
    uint32_t frame_size;
    uint32_t zoom_state;
    uint32_t af_state;
    uint32_t wind_state;
    uint32_t ch_offset;
    st_vorl_tbl *p_tbl;
    uint32_t learn_cnt;          /* learning updates since set-up */
    int32_t ch_num_proc;
    float *p_frame[2];
    const float *p_sin_win_tbl;
    const float *p_scale_sin_win_tbl;
    const float *p_ifft_tbl;
    const uint16_t *p_hamming_tbl;
    st_vorl_ws *p_ws;
    CPulseFilter *p_pulse;
} st_vorl_inst;

/* The whole work area as one record (VORL_WORK_SIZE bytes). */
typedef struct VORLWorkArea {
    int16_t out[512][2];
    int16_t ring[2][1024];
    st_vorl_tbl tbl;
    float frame[2][512];
    st_vorl_ws ws;
    uint8_t ws_reserve[12120 - sizeof(st_vorl_ws)];
    CPulseFilter pulse;
    uint8_t pulse_reserve[3536 - sizeof(CPulseFilter)];
    uint32_t pulse_proc_flag;
    uint32_t reserved0;
    st_vorl_hdr hdr;
    st_vorl_inst inst;
    uint8_t inst_reserve[128 - sizeof(st_vorl_inst)];
    uint8_t reserved1[64];
} VORLWorkArea;

/* ------------------------------------------------------- host functions */

/* Stores VORL_WORK_SIZE in resource_size. 0, or VORL_ERR_NULL. */
VORL_API int32_t VORLGetResourceSize(VORLResource *res);
/* Stores the build texts and the input/output places computed from p_work
 * (which is not checked). 0, or VORL_ERR_NULL. */
VORL_API int32_t VORLGetResourceInfo(VORLResource *res);
/* Clears the output area, both input rings and pulse_proc_flag and writes
 * the block settings record; touches nothing else. 0, or VORL_ERR_NULL. */
VORL_API int32_t VORLInitialize(VORLResource *res);
/* Reads the table file at p_tbl_path, verifies its checksum and sets the
 * engine up. 0; VORL_ERR_TBL_OPEN, VORL_ERR_CHECKSUM, VORL_ERR_VERSION
 * (engine set up from the image all the same); VORL_ERR_NULL. Blocks may be
 * processed only after it returned 0. */
VORL_API int32_t VORLPreProcess(VORLResource *res);
/* Processes one block: 256 new samples per channel in, 256 interleaved
 * frames out at p_out, delayed by 768 frames. Runs the pulse filter first
 * when pulse_proc_flag is non-zero. Returns 0 (VORL_ERR_NULL for a null
 * record, without touching anything). */
VORL_API int32_t VORLEnterLibrary(VORLResource *res);
/* Checks the learned coefficients (diagnostics on stderr), writes them back
 * and adds the learning count only if the check passed, renews the checksum
 * and rewrites the table file. Always 0 (VORL_ERR_NULL for a null record),
 * even when the file could not be written. */
VORL_API int32_t VORLPostProcess(VORLResource *res);
/* Sets the drive words of the block settings record, which VORLEnterLibrary
 * hands to the engine before every block until they are changed again.
 * 0, or VORL_ERR_NULL when the record or its p_work is null. */
VORL_API int32_t VORLSetDriveState(VORLResource *res, uint32_t zoom_state,
                                   uint32_t af_state, uint32_t wind_state);

/* ------------------------------------------------------- DC-cut filter */

/* State of one stereo DC-cut (35.7 Hz at 48 kHz Butterworth high-pass). */
typedef struct VORLDcCutState {
    double w0_l, w1_l, w2_l;
    double w0_r, w1_r, w2_r;
} VORLDcCutState;

/* Clears the state. Returns 0. */
VORL_API int32_t VORLDcCutInit(VORLDcCutState *state);
/* Filters `frames` interleaved stereo frames in place; runs of any length
 * give the same output as one run. Returns 0. */
VORL_API int32_t VORLDcCutProc(int16_t *samples, VORLDcCutState *state,
                               uint32_t frames);

/* --------------------------------------------------- engine: tables I/O */

VORL_API int32_t sound_vorl_read_tbl(const char *path, st_vorl_tbl *image);
VORL_API int32_t sound_vorl_write_tbl(const char *path, const st_vorl_tbl *image);
VORL_API int32_t sound_vorl_comp_check_sum(const st_vorl_hdr *hdr);
VORL_API int32_t sound_vorl_calc_check_sum(st_vorl_hdr *hdr);
VORL_API int32_t sound_vorl_check_tbl(const st_vorl_inst *inst);
VORL_API int32_t sound_vorl_write_back_tbl(const st_vorl_inst *inst, st_vorl_hdr *hdr);
VORL_API int32_t sound_vorl_set_tbl_cnt_info(const st_vorl_inst *inst, st_vorl_hdr *hdr);
VORL_API uint32_t sound_vorl_get_tbl_cnt_info(const st_vorl_hdr *hdr);
VORL_API uint32_t sound_vorl_info_get(const st_vorl_inst *inst);
/* Prints both working parameter blocks on stdout. Returns 0. */
VORL_API int32_t sound_vorl_print_tbl(const st_vorl_inst *inst);

/* ------------------------------------------------------ engine: set-up */

VORL_API void sound_vorl_init(void *work);
VORL_API int32_t sound_vorl_set(const st_vorl_hdr *hdr, st_vorl_inst *inst);
VORL_API int32_t sound_vorl_init_vorl_data(st_vorl_inst *inst);
VORL_API void sound_vorl_variable_param_set(const st_vorl_hdr *hdr, st_vorl_inst *inst);

/* ------------------------------------------------ engine: signal path */

VORL_API void sound_vorl(const int16_t *ring, int16_t *out, st_vorl_inst *inst);
VORL_API void sound_vorl_pre_sac(float *frame0, float *frame1, const int16_t *ring,
                                 const st_vorl_inst *inst);
VORL_API void sound_vorl_post_sac(const float *frame0, const float *frame1, int16_t *out,
                                  const st_vorl_inst *inst);
/* Reciprocal of *x by table seed and n Newton steps; clamps *x in place. */
VORL_API float sound_vorl_recip(float *x, int32_t n, const st_vorl *p_st_vorl);
VORL_API int32_t sound_vorl_core_sac(float *const *spec, st_vorl_inst *inst);
VORL_API int32_t sound_vorl_core_post_sac(st_vorl_inst *inst);
VORL_API void sound_vorl_learn_coef(st_vorl_inst *inst, float ref_scale, float zoom_scale,
                                    float rate);

/* ------------------------------------------------------- transforms */

/* In-place unnormalised real FFT of n = 2*4^m points (8..2048) into the
 * half-complex layout: buf[k] real part of bin k (0..256), buf[n-k] the
 * sine part of bin k (1..n/2-1). Reads the seeds through inst->p_ifft_tbl. */
VORL_API float *sound_vorl_rfft_sac(float *buf, int32_t n, const st_vorl_inst *inst);
/* Inverse of the above for n = 512 only (other lengths: buffer untouched);
 * inverse(forward(x)) = 512 x. */
VORL_API float *sound_vorl_irfft_sac(float *buf, int32_t n, const st_vorl_inst *inst);

/* ------------------------------------------------------- pulse filter */

VORL_API st_vorl_inst *sound_CPulseFilter_init(st_vorl_inst *inst);
VORL_API void sound_pulse_filter(const int16_t *in, int16_t *out, st_vorl_inst *inst);
VORL_API int32_t sound_pulse_filter_sac(const int16_t *in, int16_t *ring, int32_t ch,
                                        st_vorl_inst *inst);
/* About 256*sqrt(x) (Q8), integer only; 0 for x < 1. */
VORL_API int32_t SqrtInt(int32_t x);

/* --------------------------------------------------- constant tables */

VORL_API extern const float sin_win_tbl[257];
VORL_API extern const float scale_sin_win_tbl[257];
VORL_API extern const uint16_t tblHamming[512];
VORL_API extern const float IFFT_radix4_time_addition_theorem_wr_wi_2048[10];
VORL_API extern const float IFFT_radix4_time_addition_theorem_wr_wi_4096[10];
VORL_API extern const uint16_t scramble_tbl_512[240][2];
VORL_API extern const uint16_t scramble_tbl_1024[496][2];

/* Error ratio of the last fit test of any instance (diagnostic only). */
VORL_API extern float dval;

#ifdef __cplusplus
}
#endif

#endif /* VORL_H */
