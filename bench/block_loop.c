/* Runs BLOCKS blocks of a tone with hiss through the library, zoom drive
 * on, for counting the machine instructions a block costs where there is
 * no timer worth the name (under emulation): the difference of two runs of
 * different lengths is the cost of the blocks alone.
 * Usage: block_loop TABLE_FILE BLOCKS [PULSE 0|1] */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "vorl.h"

int main(int argc, char **argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: block_loop TABLE_FILE BLOCKS [PULSE 0|1]\n");
        return 1;
    }
    const int blocks = atoi(argv[2]);
    VORLResource res = {0};
    VORLGetResourceSize(&res);
    res.p_work = aligned_alloc(8, (res.resource_size + 7) / 8 * 8);
    res.p_tbl_path = argv[1];
    VORLGetResourceInfo(&res);
    VORLInitialize(&res);
    const int32_t status = VORLPreProcess(&res);
    if (status != VORL_OK) {
        fprintf(stderr, "block_loop: %s: the library refused the table (status %d)\n", argv[1], (int)status);
        return 2;
    }
    ((VORLWorkArea *)res.p_work)->pulse_proc_flag = argc > 3 && atoi(argv[3]) != 0;
    uint32_t seed = 1;
    long n = 0;
    int32_t sum = 0;
    for (int b = 0; b < blocks; ++b) {
        for (int i = 0; i < 256; ++i, ++n) {
            seed = seed * 1664525u + 1013904223u;
            const int16_t hiss = (int16_t)((int32_t)seed >> 21);
            const int16_t tone = (int16_t)(3000.0 * sin(0.05 * (double)n));
            res.p_in_ch0[i] = (int16_t)(tone + hiss);
            res.p_in_ch1[i] = (int16_t)(tone - hiss);
        }
        VORLSetDriveState(&res, 1, 0, 0);
        VORLEnterLibrary(&res);
        sum += res.p_out[0];
    }
    printf("%d\n", (int)sum);  /* keeps the work */
    free(res.p_work);
    return 0;
}
