// The errors of encoders and of the container in words.
#pragma once

#include "base/result.hpp"

#include <string_view>

namespace tarnok {

// What an error means to the person who builds `subject`, a sound or a bank. Errors of files have their words already
// and stay as they are.
base::Error describeError(const base::Error& error, std::string_view subject);

} // namespace tarnok
