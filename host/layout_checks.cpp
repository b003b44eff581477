// Layout checks of the host interface: the host record, the work-area map
// and the block settings record (where hosts write the drive words) are
// fixed offsets hosts compile against.
#include <cstddef>

#include "vorl.h"

static_assert(sizeof(void *) == 8, "the work area holds 64-bit pointers");

// Host record.
static_assert(offsetof(VORLResource, build_date) == 48, "");
static_assert(offsetof(VORLResource, build_time) == 56, "");
static_assert(offsetof(VORLResource, resource_size) == 64, "");
static_assert(offsetof(VORLResource, p_in_ch0) == 72, "");
static_assert(offsetof(VORLResource, p_in_ch1) == 80, "");
static_assert(offsetof(VORLResource, p_out) == 88, "");
static_assert(offsetof(VORLResource, frame_num) == 96, "");
static_assert(offsetof(VORLResource, p_work) == 104, "");
static_assert(offsetof(VORLResource, p_tbl_path) == 112, "");
static_assert(sizeof(VORLResource) == 120, "");

// Work-area map.
static_assert(offsetof(VORLWorkArea, out) == VORL_OFS_OUT, "");
static_assert(offsetof(VORLWorkArea, ring) == VORL_OFS_RING_CH0, "");
static_assert(offsetof(VORLWorkArea, ring[1]) == VORL_OFS_RING_CH1, "");
static_assert(offsetof(VORLWorkArea, ring[0][768]) == VORL_OFS_IN_CH0, "");
static_assert(offsetof(VORLWorkArea, ring[1][768]) == VORL_OFS_IN_CH1, "");
static_assert(offsetof(VORLWorkArea, tbl) == VORL_OFS_TBL, "");
static_assert(offsetof(VORLWorkArea, frame[0]) == VORL_OFS_FRAME_CH0, "");
static_assert(offsetof(VORLWorkArea, frame[1]) == VORL_OFS_FRAME_CH1, "");
static_assert(offsetof(VORLWorkArea, ws) == VORL_OFS_WS, "");
static_assert(offsetof(VORLWorkArea, pulse) == VORL_OFS_PULSE, "");
static_assert(offsetof(VORLWorkArea, pulse_proc_flag) == VORL_OFS_PULSE_FLAG, "");
static_assert(offsetof(VORLWorkArea, hdr) == VORL_OFS_HDR, "");
static_assert(offsetof(VORLWorkArea, inst) == VORL_OFS_INST, "");
static_assert(sizeof(VORLWorkArea) == VORL_WORK_SIZE, "");

// Block settings record.
static_assert(offsetof(st_vorl_hdr, zoom_state) == 8, "");
static_assert(offsetof(st_vorl_hdr, af_state) == 12, "");
static_assert(offsetof(st_vorl_hdr, wind_state) == 16, "");
static_assert(offsetof(st_vorl_hdr, ch_offset) == 20, "");
static_assert(offsetof(st_vorl_hdr, p_tbl) == 24, "");
static_assert(sizeof(st_vorl_hdr) == 32, "");
