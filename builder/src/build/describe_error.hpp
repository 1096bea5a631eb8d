// SPDX-License-Identifier: MIT
// Texts for the errors of encoders and of the container.
#pragma once

#include "base/result.hpp"

#include <string_view>

namespace builder {

// Adds a text that explains the error to the person who builds `subject`, a sound or a bank. Errors that already have a
// text, such as those of files, are returned unchanged.
base::Error describeError(const base::Error& error, std::string_view subject);

} // namespace builder
