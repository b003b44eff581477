#include "drive_options.h"

namespace vorl {

namespace {
const char *const kRangeOptions[] = {"zoom-in", "zoom-out", "af", "wind"};
}

std::vector<cli::OptionDef> with_drive_options(std::vector<cli::OptionDef> own) {
    own.push_back({"drive", true});
    for (const char *name : kRangeOptions) own.push_back({name, true});
    return own;
}

bool drive_given(const cli::ParsedArgs &args) {
    if (args.has("drive")) return true;
    for (const char *name : kRangeOptions)
        if (args.has(name)) return true;
    return false;
}

DriveSchedule drive_from_args(const cli::ParsedArgs &args) {
    DriveSchedule drive;
    if (args.has("drive")) {
        if (args.all("drive").size() > 1) cli::usage_error("--drive given more than once");
        for (const char *name : kRangeOptions)
            if (args.has(name)) cli::usage_error("--drive cannot be combined with --zoom-in/--zoom-out/--af/--wind");
        drive = DriveSchedule::from_file(args.value("drive"));
    }
    for (const auto &v : args.all("zoom-in")) drive.add_zoom_in(v, "zoom-in");
    for (const auto &v : args.all("zoom-out")) drive.add_zoom_out(v, "zoom-out");
    for (const auto &v : args.all("af")) drive.add_af(v, "af");
    for (const auto &v : args.all("wind")) drive.add_wind(v, "wind");
    drive.check_conflicts();
    return drive;
}

}  // namespace vorl
