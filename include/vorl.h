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
 * The interface is split in three headers; this one includes the others:
 *   vorl.h         host interface: VORLResource, status codes, the VORL*
 *                  functions, the DC-cut filter, the work-area map
 *   vorl_engine.h  engine records (st_vorl_hdr, st_vorl_inst, st_vorl_ws,
 *                  CPulseFilter, VORLWorkArea), stages, constant tables
 *   vorl_table.h   tuning-table file (st_vorl_tbl, st_vorl, st_vorlc) and
 *                  its operations
 * Names: host functions are CamelCase behind VORL; engine functions are
 * sound_..., with _sac for the per-block kernels and _tbl for table
 * operations; records begin with st_, pointers to them with p_st_.
 * Non-finite floats propagate as IEEE arithmetic makes them; every
 * conversion to an integer saturates and maps NaN to 0.
 */
#ifndef VORL_H
#define VORL_H

#include <stdint.h>

#include "vorl_engine.h"
#include "vorl_table.h"
#include "vorl_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* --------------------------------------------------------------- version */

/* The version of these headers; VORLGetVersion gives the library's. The
 * build checks that they equal the project's version. The shared library's
 * SONAME (libvorl.so.1) changes only when the binary interface does. */
#define VORL_VERSION_MAJOR 1
#define VORL_VERSION_MINOR 3
#define VORL_VERSION_PATCH 0
#define VORL_VERSION \
    ((VORL_VERSION_MAJOR << 16) | (VORL_VERSION_MINOR << 8) | VORL_VERSION_PATCH)

/* ---------------------------------------------------------------- status */

#define VORL_OK 0
#define VORL_ERR_CHECKSUM (-100)  /* table checksum word does not match   */
#define VORL_ERR_TBL_OPEN (-300)  /* table file cannot be opened          */
#define VORL_ERR_NULL (-500)      /* VORLResource pointer is null         */
#define VORL_ERR_TBL_WRITE (-600) /* table file cannot be written         */
#define VORL_ERR_VERSION (-1400)  /* table version word is not 0x01030000 */

/* ------------------------------------------------------------ dimensions */

#define VORL_WORK_SIZE 30312u      /* bytes of work area per instance      */
#define VORL_BLOCK_FRAMES 256u     /* stereo frames per block              */
#define VORL_FRAME_SIZE 512u       /* analysis frame length in samples     */
#define VORL_DELAY_FRAMES 768u     /* input-to-output delay in frames      */

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
    uint32_t reserved0;         /* layout only                            */
    int16_t *p_in_ch0;          /* out: newest 256 channel-0 samples      */
    int16_t *p_in_ch1;          /* out: newest 256 channel-1 samples      */
    int16_t *p_out;             /* out: 256 interleaved stereo frames     */
    uint32_t frame_num;         /* out: 256                               */
    uint32_t reserved1;         /* layout only                            */
    void *p_work;               /* in: the work area                      */
    const char *p_tbl_path;     /* in: tuning-table file path             */
} VORLResource;

/* ------------------------------------------------------- host functions */

/* Every VORL* function returns VORL_ERR_NULL for a null record and then
 * touches nothing. Except where stated, p_work must point to a work area of
 * resource_size bytes; it is not checked. */

/* Stores VORL_WORK_SIZE in resource_size. 0. */
VORL_API int32_t VORLGetResourceSize(VORLResource *res);
/* Stores the build texts, frame_num and the input/output places computed
 * from p_work (p_work itself is not read and may be null). 0. */
VORL_API int32_t VORLGetResourceInfo(VORLResource *res);
/* Clears the output area, both input rings and pulse_proc_flag and writes
 * the block settings record (2 channels, 512-sample frames, drive words 0,
 * channel offset 1024, table pointer); touches nothing else. 0. */
VORL_API int32_t VORLInitialize(VORLResource *res);
/* After VORLInitialize: reads the table file at p_tbl_path into the work
 * area's image, verifies its checksum and sets the engine up. 0, or
 * VORL_ERR_TBL_OPEN, VORL_ERR_CHECKSUM, VORL_ERR_VERSION (engine set up from
 * the image all the same). Blocks may be processed only after it returned
 * 0. */
VORL_API int32_t VORLPreProcess(VORLResource *res);
/* Processes one block: the 256 samples per channel the host wrote at
 * p_in_ch0 / p_in_ch1 in, 256 interleaved frames out at p_out, delayed by
 * VORL_DELAY_FRAMES. Hands the drive words of the block settings record to
 * the engine (without clearing them) and runs the pulse filter first when
 * pulse_proc_flag is non-zero. Returns 0. */
VORL_API int32_t VORLEnterLibrary(VORLResource *res);
/* Checks the learned coefficients (diagnostics on stderr), writes them back
 * into the image and adds the learning count only if the check passed,
 * renews the checksum and rewrites the file at p_tbl_path in place
 * (fopen "wb": a crash, power loss or full disk during the write leaves a
 * truncated file). Always 0, even when the file could not be written. With
 * p_tbl_path null it updates only the image; hosts that cannot afford a torn
 * table do that and then save the image with VORLSaveTable. */
VORL_API int32_t VORLPostProcess(VORLResource *res);
/* Saves the work area's table image (after VORLPostProcess: the learned
 * table with its new checksum) to `path` atomically: writes a temporary file
 * beside it, flushes it to disk, renames it over `path` (which keeps its
 * permissions) and syncs the folder. On failure `path` is untouched and the
 * temporary file removed. 0; VORL_ERR_NULL when the record, its p_work or
 * `path` is null; VORL_ERR_TBL_WRITE when the file cannot be written (errno
 * then says why). */
VORL_API int32_t VORLSaveTable(const VORLResource *res, const char *path);
/* Sets the drive words of the block settings record, which VORLEnterLibrary
 * hands to the engine before every block until they are changed again.
 * zoom_state: low byte 0 idle, 1 "WT" or 2 "TW" zoom drive; any other
 * non-zero low byte counts as a drive and selects background template 0.
 * af_state is carried but read by no stage; wind_state 1: wind.
 * 0, or VORL_ERR_NULL when the record or its p_work is null. */
VORL_API int32_t VORLSetDriveState(VORLResource *res, uint32_t zoom_state,
                                   uint32_t af_state, uint32_t wind_state);
/* Switches background template 0 ("AF") on (on != 0) or off for the
 * following blocks without zoom drive, e.g. while the autofocus motor runs.
 * It changes only bit 0 of bn_proc_flag in the engine's working copy of the
 * main parameter block (which blocks without zoom drive read each block);
 * blocks with zoom drive, the table image and the table file are not
 * affected: VORLPostProcess saves the table's own bit 0. The setting lasts
 * until the next call or VORLPreProcess, which reloads the table's bit.
 * Without calls every result is as before. 0, or VORL_ERR_NULL when the
 * record or its p_work is null. */
VORL_API int32_t VORLSetAfTemplate(VORLResource *res, uint32_t on);

/* VORL_VERSION of the library that is running: major << 16 | minor << 8 |
 * patch. */
VORL_API uint32_t VORLGetVersion(void);

/* ------------------------------------------------------- DC-cut filter */

/* State of one stereo DC-cut (35.7 Hz at 48 kHz Butterworth high-pass,
 * direct form II): w1, w2 the two delayed intermediate values per channel;
 * w0 the newest one, equal to w1 after each sample and never read. */
typedef struct VORLDcCutState {
    double w0_l, w1_l, w2_l;
    double w0_r, w1_r, w2_r;
} VORLDcCutState;

/* Clears the state. Returns 0. */
VORL_API int32_t VORLDcCutInit(VORLDcCutState *state);
/* Filters `frames` interleaved stereo frames (channel 0 first) in place,
 * rounding half away from zero and saturating to 16 bits; runs of any
 * length give the same output as one run; frames = 0 touches nothing.
 * samples and state must not overlap. Returns 0. */
VORL_API int32_t VORLDcCutProc(int16_t *samples, VORLDcCutState *state,
                               uint32_t frames);

#ifdef __cplusplus
}
#endif

#endif /* VORL_H */
