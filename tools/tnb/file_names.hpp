// SPDX-License-Identifier: MIT
// Safe file names for sounds with any name.
#pragma once

#include <string>
#include <vector>

namespace tnb {

// A file name with the ending .wav for each sound, in the same order. No name leaves its folder, is hidden, or is too
// long for file systems. No two names are equal; ASCII case is ignored in this comparison. A sound gets the same file
// name whichever other sounds are extracted with it.
[[nodiscard]] std::vector<std::string> fileNames(const std::vector<std::string>& soundNames);

} // namespace tnb
