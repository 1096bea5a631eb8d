// SPDX-License-Identifier: MIT
// tnb extract: sounds of a bank as WAV files.
#pragma once

#include "opened_bank.hpp"
#include "status.hpp"

namespace tnb {

struct ExtractRequest
{
    std::string bank;
    Key key;
    std::string folder = "."; // created if it doesn't exist
    std::vector<std::string> sounds; // indices if they consist of digits, otherwise names
    std::vector<std::string> names; // names, even if they consist of digits; with both lists empty, all sounds
    bool replace = false; // existing files
};

// Prints the path of each file to standard output. A sound that fails is reported on standard error, and the others are
// still extracted. Returns the worst status.
base::Result<Status> extract(const ExtractRequest& request);

} // namespace tnb
