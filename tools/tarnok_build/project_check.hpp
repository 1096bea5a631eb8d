// SPDX-License-Identifier: MIT
// What is wrong with a project or a profile.
#pragma once

#include "faults.hpp"

namespace tarnok_build {

// Reports everything on which loading the file would fail or end the program, sounds that would be missing, and what
// would be ignored.
void checkProject(const QString& path, Faults* faults);
void checkProfile(const QString& path, Faults* faults);

} // namespace tarnok_build
