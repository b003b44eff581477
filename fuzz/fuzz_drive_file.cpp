// Fuzz target: hostile drive files and drive ranges, as "vorl process" and
// "vorl table fit" read them (--drive FILE, --zoom-in/--zoom-out/--af/--wind).
//
// Input layout (missing bytes read as 0):
//   byte 0   bit 0: read the drive file; bits 1-2: which range option takes
//            the range text (zoom-in, zoom-out, af, wind); bit 3: give the
//            range text to zoom-in and zoom-out both; bits 4-7: the
//            recording's rate (one of 16 rates, 1 Hz to 384 kHz)
//   byte 1   length of the range text (the next bytes)
//   4 bytes  the recording's length in frames
//   the rest the drive file's text
//
// A refusal must be a usage or input failure with a message. Whatever is
// accepted must give drive words the library takes: zoom 0..2, wind 0 or 1,
// ranges that start before they end.
#include <cstdint>
#include <string>

#include "cli.h"
#include "drive_schedule.h"
#include "fuzz_common.h"

using vorl::fuzz::Bytes;

namespace {

constexpr int kRates[16] = {1,     8000,  11025, 16000, 22050, 32000, 44100,  48000,
                            64000, 88200, 96000, 12345, 176400, 192000, 352800, 384000};

// Runs `step`; a Failure is an accepted outcome if it says something.
template <typename Step>
bool refused(Step step) {
    try {
        step();
        return false;
    } catch (const vorl::cli::Failure &e) {
        if (e.what()[0] == '\0') vorl::fuzz::invariant_broken("a refusal without a message");
        if (e.exit_code != vorl::cli::kExitUsage && e.exit_code != vorl::cli::kExitInput)
            vorl::fuzz::invariant_broken("a refusal with an unexpected exit code");
        return true;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Bytes in(data, size);
    const uint8_t flags = in.u8();
    std::string range(in.u8(), '\0');
    range.resize(in.take(range.data(), range.size()));
    const int64_t frames = in.u32();
    const int rate = kRates[flags >> 4];

    vorl::DriveSchedule schedule;
    if (flags & 1) {
        const char *path = vorl::fuzz::write_scratch(in.data(), in.left());
        if (refused([&] { schedule = vorl::DriveSchedule::from_file(path); })) return 0;
    }
    if (!range.empty()) {
        refused([&] {
            for (const auto &r : vorl::parse_ranges(range, "zoom-in"))
                if (!(r.start < r.end) || r.start < 0) vorl::fuzz::invariant_broken("a range accepted out of order");
        });
        refused([&] {
            switch ((flags >> 1) & 3) {
                case 0: schedule.add_zoom_in(range, "zoom-in"); break;
                case 1: schedule.add_zoom_out(range, "zoom-out"); break;
                case 2: schedule.add_af(range, "af"); break;
                default: schedule.add_wind(range, "wind"); break;
            }
        });
        // The same ranges zooming both ways overlap themselves.
        const bool both = ((flags >> 1) & 3) == 0 && (flags & 8) &&
                          !refused([&] { schedule.add_zoom_out(range, "zoom-out"); });
        if (!refused([&] { schedule.check_conflicts(); }) && both)
            vorl::fuzz::invariant_broken("zoom-in and zoom-out over the same time accepted");
    }

    for (const std::string &m : schedule.mismatches(frames, rate, "take.wav"))
        if (m.empty()) vorl::fuzz::invariant_broken("an empty mismatch message");
    const int64_t blocks = (frames + 255) / 256;
    const int64_t step = blocks / 4096 + 1;  // at most about 4096 blocks looked at
    for (int64_t b = 0; b <= blocks; b += step) {
        const vorl::DriveWords w = schedule.at(b, rate);
        if (w.zoom > 2 || w.wind > 1) vorl::fuzz::invariant_broken("drive words the library does not take");
    }
    return 0;
}
