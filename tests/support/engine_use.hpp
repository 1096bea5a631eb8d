// SPDX-License-Identifier: MIT
// What tests and fuzz targets do with modified files.
#pragma once

#include "kess.hpp"

#include <functional>
#include <string>

namespace test {

// Opens a file, reads and seeks in it, and requests everything that it may contain. With a key it is unlocked and then
// verified as a bank. Returns what the engine did wrong, empty for nothing.
[[nodiscard]] std::string useBank(const std::string& path, const char* key);

// The same for a sound from elsewhere, which open() opens. If it is a bank, it is verified.
using OpenSound = std::function<KESS_RESULT(KESS::Sound**)>;
[[nodiscard]] std::string useSource(const OpenSound& open, const char* key);

} // namespace test
