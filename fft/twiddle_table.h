// Twiddles of the 512-point transforms' radix-4 stages, produced once by the
// same angle-addition recurrence the stages run, so a stage reading them
// gets the recurrence's bits without its serial dependency.
#pragma once

namespace vorl::fft {

struct TwiddleTable {
    // [stage Q = 8, 32, 128][c1, s1, c2, s2, c3, s3][k], k = 1 .. Q/2 - 1.
    float w[3][6][64];
    float middle;  // the middle butterflies' constant
};

// Built while compiling from the seed pairs 1..3 of the library's seed table.
const TwiddleTable &twiddles_512();

// Whether seeds (a seed table as inst->p_ifft_tbl gives it) hold the pairs
// the table was built from; other seeds take the recurrence.
bool has_table_seeds(const float *seeds);

}  // namespace vorl::fft
