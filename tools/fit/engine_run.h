// Runs a take through the library's host interface, as "vorl process" does
// (time-aligned output, each block's words handed in with it, autofocus
// words switching the "AF" template), without any audio file.
#pragma once

#include <cstdint>
#include <vector>

#include "learning_tally.h"
#include "take_analysis.h"
#include "vorl.h"

namespace vorl::fit {

struct EngineRun {
    std::vector<int16_t> out;  // interleaved, time-aligned with the input
    st_vorl learned{};         // the working parameters at the end
    uint32_t updates = 0;      // learning updates applied
    LearningTally tally;       // what the learning tests made of the take
};

// Throws FitError when the library refuses the table.
EngineRun run_engine(const st_vorl_tbl &table, const int16_t *in, std::size_t frames,
                     const std::vector<BlockWords> &words);

}  // namespace vorl::fit
