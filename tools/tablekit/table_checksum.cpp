#include "table_checksum.h"

namespace vorl::tablekit {

// The library's own checksum, reached through a block settings record.
uint32_t checksum(const st_vorl_tbl &t) {
    st_vorl_tbl copy = t;
    seal(copy);
    return copy.check_sum;
}

void seal(st_vorl_tbl &t) {
    st_vorl_hdr hdr{};
    hdr.p_tbl = &t;
    sound_vorl_calc_check_sum(&hdr);
}

}  // namespace vorl::tablekit
