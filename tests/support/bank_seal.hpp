// Makes the checksums of a tampered bank fit again, so that what lies behind them is reached.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace bank_test {

// Puts every checksum of a plain layout right, and the size of the file, as far as they lie inside it. Anything may be
// in bytes; what isn't long enough for a header stays as it is.
void sealBank(std::vector<uint8_t>* bytes);

// A plain layout, whatever is in it, encrypted with parameters that cost little.
[[nodiscard]] std::vector<uint8_t> encryptBank(const std::vector<uint8_t>& plain, std::string_view key);

} // namespace bank_test
