// Processing entry points: table load and engine set-up, one block of
// processing, and the learned table's check and save.
#include <cstring>

#include "vorl.h"
#include "work_area.h"

extern "C" {

void sound_vorl_variable_param_set(const st_vorl_hdr *hdr, st_vorl_inst *inst) {
    inst->zoom_state = hdr->zoom_state;
    inst->af_state = hdr->af_state;
    inst->wind_state = hdr->wind_state;
}

int32_t VORLPreProcess(VORLResource *res) {
    if (res == nullptr) return VORL_ERR_NULL;
    VORLWorkArea *w = vorl::work_area(res);
    if (sound_vorl_read_tbl(res->p_tbl_path, &w->tbl) != 0) return VORL_ERR_TBL_OPEN;
    if (sound_vorl_comp_check_sum(&w->hdr) != 0) return VORL_ERR_CHECKSUM;
    sound_vorl_init(w);
    if (sound_vorl_set(&w->hdr, &w->inst) != 0) return VORL_ERR_VERSION;
    sound_vorl_variable_param_set(&w->hdr, &w->inst);
    sound_CPulseFilter_init(&w->inst);
    return VORL_OK;
}

int32_t VORLEnterLibrary(VORLResource *res) {
    if (res == nullptr) return VORL_ERR_NULL;
    VORLWorkArea *w = vorl::work_area(res);
    constexpr size_t kHalf = VORL_BLOCK_FRAMES;  // stereo frames per half
    // The pending second half of the last synthesis frame starts this block.
    std::memcpy(w->out[0], w->out[kHalf], kHalf * sizeof w->out[0]);
    // Drive words stay in force until the host changes them.
    sound_vorl_variable_param_set(&w->hdr, &w->inst);
    if (w->pulse_proc_flag != 0) sound_pulse_filter(w->ring[0], w->ring[0], &w->inst);
    sound_vorl(w->ring[0], w->out[0], &w->inst);
    // Move each ring down by one block; the host writes the newest at 768.
    for (auto &ring : w->ring)
        std::memmove(ring, ring + VORL_BLOCK_FRAMES, 3 * VORL_BLOCK_FRAMES * sizeof ring[0]);
    return VORL_OK;
}

int32_t VORLPostProcess(VORLResource *res) {
    if (res == nullptr) return VORL_ERR_NULL;
    VORLWorkArea *w = vorl::work_area(res);
    if (sound_vorl_check_tbl(&w->inst) == 0) {
        // The autofocus switch (VORLSetAfTemplate) is a setting of this run,
        // not something learned: the file keeps the table's own bit.
        const uint8_t table_bn_flag = w->tbl.st_vorl.bn_proc_flag;
        sound_vorl_write_back_tbl(&w->inst, &w->hdr);
        uint8_t &saved = w->tbl.st_vorl.bn_proc_flag;
        saved = static_cast<uint8_t>((saved & ~1u) | (table_bn_flag & 1u));
        sound_vorl_set_tbl_cnt_info(&w->inst, &w->hdr);
    }
    sound_vorl_calc_check_sum(&w->hdr);
    (void)sound_vorl_write_tbl(res->p_tbl_path, &w->tbl);  // not reported
    return VORL_OK;
}

}  // extern "C"
