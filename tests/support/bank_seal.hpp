// SPDX-License-Identifier: MIT
// Corrects the checksums of a modified bank, so that tests reach the code behind them.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace bank_test {

// Corrects the size of the file and every checksum of a plain layout that is inside bytes. The content may be
// arbitrary; bytes too short for a header are left unchanged.
void sealBank(std::vector<uint8_t>* bytes);

// Encrypts a plain layout of arbitrary content, with cheap parameters.
[[nodiscard]] std::vector<uint8_t> encryptBank(const std::vector<uint8_t>& plain, std::string_view key);

} // namespace bank_test
