// tnb info: what a bank holds.
#pragma once

#include "opened_bank.hpp"

namespace tnb {

struct InfoRequest
{
    std::string bank;
    Key key;
    bool json = false;
};

// Prints to standard output. Sounds that are damaged are named there, and make the status Damaged.
[[nodiscard]] Status showInfo(const InfoRequest& request);

} // namespace tnb
