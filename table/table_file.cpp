// The tuning-table file: whole-file read and write, the additive checksum,
// the plausibility check of learned coefficients, write-back and counts.
#include <cstdio>
#include <cstring>

#include "../nr/engine_constants.h"
#include "vorl.h"

namespace {

constexpr unsigned kSummedWords = VORL_TBL_WORDS - 1;  // all but the checksum

uint32_t table_word_sum(const st_vorl_tbl *t) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(t);
    uint32_t sum = 0;
    for (unsigned i = 0; i < kSummedWords; ++i) {
        uint32_t word;
        std::memcpy(&word, bytes + 4 * i, 4);
        sum += word;  // wraps modulo 2^32
    }
    return sum;
}

}  // namespace

extern "C" {

int32_t sound_vorl_read_tbl(const char *path, st_vorl_tbl *image) {
    if (path == nullptr) return -1;  // no file to open
    std::FILE *f = std::fopen(path, "rb");
    if (f == nullptr) return -1;
    // A short read leaves the rest of the image as it was; the checksum
    // test is what rejects such a table.
    (void)std::fread(image, VORL_TBL_SIZE, 1, f);
    std::fclose(f);
    return 0;
}

int32_t sound_vorl_write_tbl(const char *path, const st_vorl_tbl *image) {
    if (path == nullptr) return -1;  // the host saves the image itself
    std::FILE *f = std::fopen(path, "wb");
    if (f == nullptr) return -1;
    (void)std::fwrite(image, VORL_TBL_SIZE, 1, f);
    std::fclose(f);
    return 0;
}

int32_t sound_vorl_comp_check_sum(const st_vorl_hdr *hdr) {
    return table_word_sum(hdr->p_tbl) == hdr->p_tbl->check_sum ? 0 : -1;
}

int32_t sound_vorl_calc_check_sum(st_vorl_hdr *hdr) {
    hdr->p_tbl->check_sum = table_word_sum(hdr->p_tbl);
    return 0;
}

int32_t sound_vorl_check_tbl(const st_vorl_inst *inst) {
    const int channels = vorl::stage_channels(inst->ch_num_proc);
    if (channels < 1) return 0;
    const st_vorl *p = &inst->p_ws->st_vorl_work;
    const float lower = p->zspec_comp_min_floor_value * p->tolerance_range_zspec_min;
    const float tol_max = p->tolerance_range_zspec_max;
    bool failed = false;
    for (int c = 0; c < channels; ++c) {
        const float *inc = p->zspec_comp_coef_f_LR_d[c];
        const float *max = p->zspec_comp_coef_f_LR_d_max[c];
        float v = inc[0];
        if (v < lower) {
            std::fputc('1', stderr);
            failed = true;
        }
        if (v > max[0] * tol_max) {
            std::fputc('2', stderr);
            failed = true;
        }
        for (int j = 1; j < vorl::kBands; ++j) {
            const int bins = static_cast<int>(p->zspec_comp_base_bin[j]) -
                             static_cast<int>(p->zspec_comp_base_bin[j - 1]);
            v = v + inc[j] * static_cast<float>(bins);
            if (v < lower) {
                std::fputc('3', stderr);
                failed = true;
            }
            if (v > max[j] * tol_max) {
                std::fprintf(stderr, "4:%d\n", j);
                failed = true;
            }
        }
    }
    return failed ? -1 : 0;
}

int32_t sound_vorl_write_back_tbl(const st_vorl_inst *inst, st_vorl_hdr *hdr) {
    std::memcpy(&hdr->p_tbl->st_vorl, &inst->p_ws->st_vorl_work, sizeof(st_vorl));
    std::memcpy(&hdr->p_tbl->st_vorlc, &inst->p_ws->st_vorlc_work, sizeof(st_vorlc));
    return 0;
}

int32_t sound_vorl_set_tbl_cnt_info(const st_vorl_inst *inst, st_vorl_hdr *hdr) {
    hdr->p_tbl->tbl_cnt += inst->learn_cnt;  // unsigned: wraps at 2^32
    return 0;
}

uint32_t sound_vorl_get_tbl_cnt_info(const st_vorl_hdr *hdr) { return hdr->p_tbl->tbl_cnt; }

uint32_t sound_vorl_info_get(const st_vorl_inst *inst) { return inst->learn_cnt; }

}  // extern "C"
