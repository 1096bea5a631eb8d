// The positions in a sound that both its source file and its encoded form carry. They count frames: one sample of every
// channel.
#pragma once

#include <cstdint>
#include <string>

namespace base {

// Frames start to end, end not included; start < end <= the sound's length.
struct Loop
{
    uint64_t start = 0;
    uint64_t end = 0;

    bool operator==(const Loop&) const = default;
};

// A position that a game may be notified of while the sound plays.
struct SyncPoint
{
    uint64_t frame = 0; // at most the sound's length
    std::string name; // UTF-8, may be empty

    bool operator==(const SyncPoint&) const = default;
};

} // namespace base
