// SPDX-License-Identifier: MIT
// The order in which the sounds of a build are encoded.
#pragma once

#include "tarnok.h"

#include <cstddef>
#include <span>
#include <stop_token>
#include <vector>

namespace builder {

// The indices of the sounds, longest expected time first, so that the build doesn't end with one worker busy on a long
// sound.
std::vector<size_t> longestFirst(std::span<const TARNOK_SUBSOUND> subsounds, const std::stop_token& stop);

} // namespace builder
