// SPDX-License-Identifier: MIT
// What is wrong with a list file.
#pragma once

#include "faults.hpp"

namespace tarnok_build {

// Reports each line on which the import of the list would never end, and what it would ignore.
void checkList(const QString& path, Faults* faults);

} // namespace tarnok_build
