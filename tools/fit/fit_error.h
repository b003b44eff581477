// A calibration take or base table the fitter cannot use; the message says
// why (the caller names the file).
#pragma once

#include <stdexcept>

namespace vorl::fit {

struct FitError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace vorl::fit
