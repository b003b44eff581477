// The drive-state options (--drive FILE, or --zoom-in/--zoom-out/--af/--wind
// RANGES), parsed in one place for every command that takes them.
#pragma once

#include <vector>

#include "cli.h"
#include "drive_schedule.h"

namespace vorl {

// `own` followed by the drive options, for cli::parse_args.
std::vector<cli::OptionDef> with_drive_options(std::vector<cli::OptionDef> own);

// True when any drive option was given.
bool drive_given(const cli::ParsedArgs &args);

// The schedule the options describe (all idle when none was given). Usage
// error when a file is combined with ranges, given twice, or when zoom-in
// and zoom-out ranges overlap; input error for a bad drive file.
DriveSchedule drive_from_args(const cli::ParsedArgs &args);

}  // namespace vorl
