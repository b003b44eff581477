// The figures "vorl measure" prints (and Python's vorl.measure returns):
// per group of blocks (during drives, outside them, during wind) how many
// there are and each figure in dB, as text for a reader or JSON for a
// script.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "drive_ceilings.h"
#include "drive_measure.h"

namespace vorl {

using NamedFigures = std::vector<std::pair<std::string, double>>;  // e.g. {"level change", -0.02}

struct MeasureFigures {
    struct Group {
        std::string name;  // "during drives", ...
        int64_t blocks;
        double seconds;
        NamedFigures values;
    };
    std::vector<Group> groups;

    // "during drives: 638 blocks (3.40 s)" and a line per figure.
    std::string text() const;
    // {"during_drives": {"blocks": 638, "seconds": 3.40, "noise_attenuation_db": 12.9, ...}, ...};
    // an infinite figure (nothing left, or nothing to compare) is null.
    std::string json() const;
};

// The figures of `m` for recordings at `rate` Hz; `yardsticks` (see
// ceiling_figures) follow the attenuation during drives.
MeasureFigures measure_figures(const DriveMeasure &m, int rate, NamedFigures yardsticks = {});

// The yardsticks that know the noise, during drives: the oracle, the
// engine's reach at `floor`, and that reach with the scene taken as mono.
NamedFigures ceiling_figures(const int16_t *clean, const int16_t *noisy, std::size_t frames, const BlockWordsAt &words,
                             float floor);

}  // namespace vorl
