/* The README's host example in C: loads a tuning table, processes ten
 * blocks of silence with a zoom drive and the click filter on, and saves the
 * learned table. Usage: host_example TABLE_FILE */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vorl.h"

static void read_silence(int16_t *left, int16_t *right) {
    memset(left, 0, 256 * sizeof *left);
    memset(right, 0, 256 * sizeof *right);
}

static void write_nothing(const int16_t *interleaved) { (void)interleaved; }

static int denoise(const char *table_path, int blocks, void (*read_block)(int16_t *, int16_t *),
                   void (*write_block)(const int16_t *)) {
    VORLResource res = {0};
    VORLGetResourceSize(&res);
    res.p_work = aligned_alloc(8, res.resource_size);
    res.p_tbl_path = table_path;
    VORLGetResourceInfo(&res);
    VORLInitialize(&res);
    int32_t status = VORLPreProcess(&res);
    if (status != VORL_OK) {
        free(res.p_work);
        return status;
    }
    ((VORLWorkArea *)res.p_work)->pulse_proc_flag = 1;
    for (int b = 0; b < blocks; ++b) {
        VORLSetDriveState(&res, 1, 0, 0);
        read_block(res.p_in_ch0, res.p_in_ch1);
        VORLEnterLibrary(&res);
        write_block(res.p_out);
    }
    VORLPostProcess(&res);
    free(res.p_work);
    return VORL_OK;
}

int main(int argc, char **argv) {
    if (argc < 2) return 2;
    const int status = denoise(argv[1], 10, read_silence, write_nothing);
    printf("status %d\n", status);
    return status == VORL_OK ? 0 : 1;
}
