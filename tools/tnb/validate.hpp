// tnb validate: whether banks are whole.
#pragma once

#include "opened_bank.hpp"

namespace tnb {

// Reads and decodes everything in a bank. Tells each fault and each remark on standard error, and on standard output
// that there is no fault. Throws a Failure where the bank can't be read.
[[nodiscard]] Status validate(const std::string& bank, const Key& key);

} // namespace tnb
