// SPDX-License-Identifier: MIT
// tnb diff: what changed between two banks.
#pragma once

#include "opened_bank.hpp"
#include "status.hpp"

namespace tnb {

struct DiffRequest
{
    std::string oldBank;
    std::string newBank;
    Key oldKey;
    Key newKey;
    bool json = false;
};

// Prints the differences to standard output, and what can't be read to standard error. The status is Same, Different,
// or CannotRead if a bank or a sound can't be read, even if it is because of damage.
base::Result<Status> showDiff(const DiffRequest& request);

} // namespace tnb
