/*
 * libvorl - the tuning-table file and its operations.
 *
 * The file is 1046 little-endian 32-bit words: a version word, the main
 * parameter block st_vorl, the control parameter block st_vorlc, a learning
 * count and an additive checksum. VORLPreProcess reads it into the table
 * image of the work area; the engine copies both blocks into its workspace
 * and works only on those copies until VORLPostProcess writes them back.
 * The checksum is a plain sum, so anyone can forge a table: the rules the
 * engine relies on, and what it does with a table that breaks them, are
 * written beside the functions that read the fields (vorl_engine.h).
 */
#ifndef VORL_TABLE_H
#define VORL_TABLE_H

#include "vorl_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VORL_TBL_SIZE 4184u        /* bytes of the tuning-table file       */
#define VORL_TBL_WORDS 1046u       /* 32-bit words of the tuning table     */
#define VORL_TBL_VERSION 0x01030000u

/* Main parameter block: words 1..1021 of the tuning table (4084 bytes).
 * Curves over frequency are stored as per-bin increments per bin group
 * (65 groups: bin 0, then bins 4g-3..4g) or per band (72 bands ending at
 * zspec_comp_base_bin). */
struct st_vorl {
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
    uint8_t spare[2];       /* layout only: pads the block to 1021 words */
};

/* Control parameter block: words 1022..1043 of the tuning table (88 bytes). */
struct st_vorlc {
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
};

/* The tuning-table file and its image: 1046 little-endian 32-bit words. */
struct st_vorl_tbl {
    uint32_t tbl_version;     /* VORL_TBL_VERSION                           */
    struct st_vorl st_vorl;   /* words 1..1021                              */
    struct st_vorlc st_vorlc; /* words 1022..1043                           */
    uint32_t tbl_cnt;         /* learning updates, accumulated over runs    */
    uint32_t check_sum;       /* sum of words 0..1044 modulo 2^32           */
};

/* ------------------------------------------------------ table operations
 * Status results: 0, or -1. hdr is the block settings record (its p_tbl
 * names the image), inst the engine instance record. */

/* Reads VORL_TBL_SIZE bytes of the file at path into *image. -1 only if the
 * file cannot be opened (or path is null); a short file leaves the rest of
 * *image as it was (the checksum test then rejects it). */
VORL_API int32_t sound_vorl_read_tbl(const char *path, st_vorl_tbl *image);
/* Writes *image (VORL_TBL_SIZE bytes) to path, truncating the file. -1 only
 * if the file cannot be opened for writing (or path is null); a failed write
 * is not seen. VORLSaveTable (vorl.h) writes atomically. */
VORL_API int32_t sound_vorl_write_tbl(const char *path, const st_vorl_tbl *image);
/* 0 if the image's check_sum equals the sum of its words 0..1044 (modulo
 * 2^32), else -1. Reads only. */
VORL_API int32_t sound_vorl_comp_check_sum(const st_vorl_hdr *hdr);
/* Stores that sum in the image's check_sum. Returns 0. */
VORL_API int32_t sound_vorl_calc_check_sum(st_vorl_hdr *hdr);
/* Plausibility of the learned curve in the workspace copy, for the first
 * min(ch_num_proc, 2) channels: every running sum of the band increments
 * must lie between zspec_comp_min_floor_value * tolerance_range_zspec_min
 * and zspec_comp_coef_f_LR_d_max * tolerance_range_zspec_max. 0 if so,
 * else -1, with one diagnostic on stderr per violation: '1' / '2' for band
 * 0 below / above, '3' / "4:<band>\n" for later bands. 0 when
 * ch_num_proc < 1. */
VORL_API int32_t sound_vorl_check_tbl(const st_vorl_inst *inst);
/* Copies the workspace's working st_vorl and st_vorlc over the image's
 * words 1..1043; the version, count and checksum words stay. Returns 0. */
VORL_API int32_t sound_vorl_write_back_tbl(const st_vorl_inst *inst, st_vorl_hdr *hdr);
/* Adds inst->learn_cnt to the image's tbl_cnt (wrapping). Returns 0. */
VORL_API int32_t sound_vorl_set_tbl_cnt_info(const st_vorl_inst *inst, st_vorl_hdr *hdr);
/* The image's tbl_cnt. */
VORL_API uint32_t sound_vorl_get_tbl_cnt_info(const st_vorl_hdr *hdr);
/* Learning updates since set-up (inst->learn_cnt). */
VORL_API uint32_t sound_vorl_info_get(const st_vorl_inst *inst);
/* Prints both working parameter blocks on stdout in the fixed dump form.
 * Meaningful after set-up. Returns 0. */
VORL_API int32_t sound_vorl_print_tbl(const st_vorl_inst *inst);

#ifdef __cplusplus
}
#endif

#endif /* VORL_TABLE_H */
