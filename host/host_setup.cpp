// Set-up functions of the host interface: work-area size, places of input
// and output, initialisation, and the drive-state and autofocus helpers.
#include <cstring>

#include "vorl.h"
#include "work_area.h"

namespace {
// Fixed build texts: hosts log them to identify the library build.
const char kBuildDate[] = "Aug  1 2021";
const char kBuildTime[] = "00:00:00";
}  // namespace

extern "C" {

int32_t VORLGetResourceSize(VORLResource *res) {
    if (res == nullptr) return VORL_ERR_NULL;
    res->resource_size = VORL_WORK_SIZE;
    return VORL_OK;
}

int32_t VORLGetResourceInfo(VORLResource *res) {
    if (res == nullptr) return VORL_ERR_NULL;
    // Computed from whatever p_work holds; pointer arithmetic on the integer
    // value keeps a null work area from being undefined behaviour.
    const uintptr_t base = reinterpret_cast<uintptr_t>(res->p_work);
    res->build_date = kBuildDate;
    res->build_time = kBuildTime;
    res->p_in_ch0 = reinterpret_cast<int16_t *>(base + VORL_OFS_IN_CH0);
    res->p_in_ch1 = reinterpret_cast<int16_t *>(base + VORL_OFS_IN_CH1);
    res->p_out = reinterpret_cast<int16_t *>(base + VORL_OFS_OUT);
    res->frame_num = VORL_BLOCK_FRAMES;
    return VORL_OK;
}

int32_t VORLInitialize(VORLResource *res) {
    if (res == nullptr) return VORL_ERR_NULL;
    VORLWorkArea *w = vorl::work_area(res);
    w->pulse_proc_flag = 0;
    std::memset(w, 0, VORL_OFS_TBL);  // output area and both input rings
    w->hdr.ch_num = 2;
    w->hdr.frame_size = VORL_FRAME_SIZE;
    w->hdr.zoom_state = 0;
    w->hdr.af_state = 0;
    w->hdr.wind_state = 0;
    w->hdr.ch_offset = 1024;
    w->hdr.p_tbl = &w->tbl;
    return VORL_OK;
}

int32_t VORLSetDriveState(VORLResource *res, uint32_t zoom_state, uint32_t af_state,
                          uint32_t wind_state) {
    if (res == nullptr || res->p_work == nullptr) return VORL_ERR_NULL;
    st_vorl_hdr &hdr = vorl::work_area(res)->hdr;
    hdr.zoom_state = zoom_state;
    hdr.af_state = af_state;
    hdr.wind_state = wind_state;
    return VORL_OK;
}

int32_t VORLSetAfTemplate(VORLResource *res, uint32_t on) {
    if (res == nullptr || res->p_work == nullptr) return VORL_ERR_NULL;
    // Bit 0 of bn_proc_flag adds the background template to blocks without
    // zoom drive, and those blocks select template 0 ("AF").
    uint8_t &flag = vorl::work_area(res)->ws.st_vorl_work.bn_proc_flag;
    flag = static_cast<uint8_t>(on != 0 ? flag | 1u : flag & ~1u);
    return VORL_OK;
}

}  // extern "C"
