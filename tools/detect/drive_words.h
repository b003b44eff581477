// The drive words of one 256-frame block, as a host hands them to the
// library: what the lens did while the block was recorded.
#pragma once

#include <cstdint>

namespace vorl {

struct DriveWords {
    uint32_t zoom = 0;  // 0 idle, 1 zoom-in ("WT" template), 2 zoom-out ("TW")
    uint32_t af = 0;    // autofocus drive, non-zero while the motor runs
    uint32_t wind = 0;  // 1 while wind is present

    bool driven() const { return zoom != 0 || af != 0; }
    bool operator==(const DriveWords &o) const { return zoom == o.zoom && af == o.af && wind == o.wind; }
    bool operator!=(const DriveWords &o) const { return !(*this == o); }
};

}  // namespace vorl
