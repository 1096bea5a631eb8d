// The errors of encoders and of the container in words.
#pragma once

#include "bank/result.hpp"
#include "base/result.hpp"

#include <string_view>

namespace tarnok {

// What an error means to the person who builds `subject`, a sound or a bank.
base::Error describeError(bank::Error error, std::string_view subject);

} // namespace tarnok
