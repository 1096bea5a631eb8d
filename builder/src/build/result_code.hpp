// SPDX-License-Identifier: MIT
// Converts errors of the library to result codes of its C interface.
#pragma once

#include "base/result.hpp"
#include "tarnok.h"

namespace builder {

[[nodiscard]] TARNOK_RESULT resultCode(base::ErrorCode code);

} // namespace builder
