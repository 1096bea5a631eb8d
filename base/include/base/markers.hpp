// SPDX-License-Identifier: MIT
// Positions that are stored both in source files and in encoded sounds. They count frames: one sample of every channel.
#pragma once

#include <cstdint>
#include <string>

namespace base {

// The frames from start to end, end excluded; start < end <= the length of the sound.
struct Loop
{
    uint64_t start = 0;
    uint64_t end = 0;

    bool operator==(const Loop&) const = default;
};

// A named position to which a game can react during playback.
struct SyncPoint
{
    uint64_t frame = 0; // at most the length of the sound
    std::string name; // UTF-8, may be empty

    bool operator==(const SyncPoint&) const = default;
};

} // namespace base
