// SPDX-License-Identifier: MIT
// How many bytes each sound takes in a bank.
#pragma once

#include <string>
#include <vector>

namespace tarnok_build {

// One number per sound. Empty if the bank can't be read. key is empty for a bank without one.
std::vector<unsigned long long> soundSizes(const std::string& bank, const std::string& key);

} // namespace tarnok_build
