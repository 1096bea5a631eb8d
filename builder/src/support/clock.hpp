// SPDX-License-Identifier: MIT
// The time of day, for comparison with the times of files.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace builder {

// Nanoseconds by which now() is ahead of the system clock. Only tests set it, so that they needn't wait for files to
// age.
inline std::atomic<int64_t> clockAhead = 0;

// Nanoseconds since 1970.
inline int64_t now()
{
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time).count() + clockAhead;
}

} // namespace builder
