// Keeps the size of a cache in bounds.
#pragma once

#include "cache/cache_folder.hpp"

#include <cstdint>
#include <stop_token>

namespace tarnok {

// Entries that were used less than this long ago are safe from removal, since a running build may need them. Seconds.
inline constexpr int64_t kInUseFor = 3600;

// Removes the entries that were not used for the longest time. Looks at the folder only when this build has stored
// something and, where nobody has set a limit, the last look was a while ago, since it means visiting each entry.
void tidyEntries(const CacheFolder& folder, uint64_t storedBytes, const std::stop_token& stop);

} // namespace tarnok
