// tnb extract: sounds of a bank as WAV files.
#pragma once

#include "opened_bank.hpp"

namespace tnb {

struct ExtractRequest
{
    std::string bank;
    Key key;
    std::string folder = "."; // made if it isn't there
    std::vector<std::string> sounds; // indices, or names for all that isn't a number
    std::vector<std::string> names; // names, numbers too; with both lists empty, all sounds
    bool replace = false; // files that are there already
};

// Prints the path of each file to standard output. A sound that fails is told on standard error, and the others are
// extracted all the same; the status is that of the worst.
[[nodiscard]] Status extract(const ExtractRequest& request);

} // namespace tnb
