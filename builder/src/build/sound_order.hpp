// In which order the sounds of a build are encoded.
#pragma once

#include "tarnok.h"

#include <cstddef>
#include <span>
#include <stop_token>
#include <vector>

namespace tarnok {

// The indices of the sounds, those that will take longest first, so that the last worker isn't left alone with one.
std::vector<size_t> longestFirst(std::span<const TARNOK_SUBSOUND> subsounds, const std::stop_token& stop);

} // namespace tarnok
