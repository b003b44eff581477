// Drive detection for "vorl process" without a motor log: a first pass over
// the input through the drive detector.
#pragma once

#include <string>
#include <vector>

#include "drive_words.h"
#include "vorl.h"

namespace vorl {

class SampleReader;

// Reads `in` to its end through the drive detector. Returns
// the words of the noise reducer's blocks at `engine_rate` (48 kHz when the
// input is resampled: each engine block gets the word of the input block
// holding its first frame). `table` informs the direction; may be null.
std::vector<DriveWords> detect_input_drives(SampleReader &in, const st_vorl_tbl *table, int engine_rate);

struct DriveTally {
    int drives = 0;        // runs of driven blocks
    double seconds = 0.0;  // their total length
};
DriveTally tally_drives(const std::vector<DriveWords> &words, int rate);

}  // namespace vorl
