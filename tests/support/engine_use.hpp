// SPDX-License-Identifier: MIT
// What tests and fuzz targets do with modified files.
#pragma once

#include <string>

namespace test {

// Opens a file, reads and seeks in it, and requests everything that it may contain. With a key it is unlocked and then
// verified as a bank. Returns what the engine did wrong, empty for nothing.
[[nodiscard]] std::string useFile(const std::string& path);
[[nodiscard]] std::string useBank(const std::string& path, const char* key);

} // namespace test
