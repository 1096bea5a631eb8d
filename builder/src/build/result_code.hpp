// The errors of the library as numbers of its C interface.
#pragma once

#include "base/result.hpp"
#include "tarnok.h"

namespace tarnok {

[[nodiscard]] TARNOK_RESULT resultCode(base::ErrorCode code);

} // namespace tarnok
