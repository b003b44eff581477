// One noise-reduction instance driven through the library's host interface
// only: resource query, initialisation, table load, one call per block and
// the closing table save.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "drive_schedule.h"
#include "vorl.h"

namespace vorl {

struct LearnOutcome {
    bool passed = false;      // the plausibility check accepted the learned curve
    std::string diagnostics;  // what the check wrote, empty when it passed
};

class NoiseReducer {
public:
    // Loads the table at `table_path`, a private copy: the library rewrites
    // that file in finish(). `table_name` is the file the user knows, for
    // error messages. Input error on any status but 0.
    NoiseReducer(const std::string &table_path, const std::string &table_name, bool pulse_filter);

    // One block: 256 interleaved stereo frames in, the block finished 768
    // frames earlier out. `drive` describes the block handed in.
    void process(const int16_t *in, int16_t *out, const DriveWords &drive);

    // Learning updates this instance has applied since the table was loaded.
    uint32_t learn_count() const;

    // Checks and saves the learned table to the table path. Returns what the
    // check said; the library's diagnostics are captured, not shown.
    LearnOutcome finish();

private:
    VORLWorkArea &work();
    const VORLWorkArea &work() const;

    std::vector<uint64_t> storage_;  // 8-byte aligned work area
    VORLResource res_{};
    std::string table_path_;
};

}  // namespace vorl
