// SPDX-License-Identifier: MIT
// tnb info: the contents of a bank.
#pragma once

#include "opened_bank.hpp"
#include "status.hpp"

namespace tnb {

struct InfoRequest
{
    std::string bank;
    Key key;
    bool json = false;
};

// Prints to standard output, damaged sounds included. If there are any, the status is Damaged.
base::Result<Status> showInfo(const InfoRequest& request);

} // namespace tnb
