// SPDX-License-Identifier: MIT
// The exit statuses of the tool, which scripts depend on.
#pragma once

#include "base/result.hpp"

namespace tnb {

enum class Status
{
    Success = 0, // everything requested was done, and no damage was found
    Damaged = 1, // a bank, or a requested sound, is damaged
    Same = Success, // of two banks
    Different = Damaged, // two banks differ
    CannotRead = 2, // not a bank, no such file, key missing or wrong, a file not written, or wrong arguments
};

[[nodiscard]] inline Status statusFor(const base::Error& error)
{
    return error.code == base::ErrorCode::Damaged ? Status::Damaged : Status::CannotRead;
}

} // namespace tnb
