// What tests and fuzz targets do with files that somebody tampered with.
#pragma once

#include <string>

namespace test {

// Opens a file, reads and seeks in it, and asks it for all that it may hold. With a key it is unlocked, and then
// verified as a bank. The answer names what the engine must not have done, and is empty otherwise.
[[nodiscard]] std::string useFile(const std::string& path);
[[nodiscard]] std::string useBank(const std::string& path, const char* key);

} // namespace test
