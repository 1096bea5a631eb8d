// SPDX-License-Identifier: MIT
// tnb validate: checks banks for damage.
#pragma once

#include "opened_bank.hpp"
#include "status.hpp"

namespace tnb {

// Reads and decodes everything in a bank. Prints each fault and each remark on standard error, and "intact" on standard
// output if there is no fault.
base::Result<Status> validate(const std::string& bank, const Key& key);

} // namespace tnb
