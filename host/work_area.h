// Typed access to the host's work area (layout pinned in host/layout_checks.cpp).
#pragma once

#include "vorl.h"

namespace vorl {

inline VORLWorkArea *work_area(const VORLResource *res) {
    return static_cast<VORLWorkArea *>(res->p_work);
}

}  // namespace vorl
