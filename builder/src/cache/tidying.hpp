// SPDX-License-Identifier: MIT
// Limits the size of a cache.
#pragma once

#include "cache/cache_folder.hpp"

#include <cstdint>
#include <stop_token>

namespace builder {

// Entries that were used in the last kInUseFor seconds aren't removed, since a running build may need them.
inline constexpr int64_t kInUseFor = 3600;

// Removes the least recently used entries if the cache exceeds its limit. Checking that means visiting each entry, so
// it is done only if this build has stored something. With the default limit, the last check must also be some time
// ago, or the build must have stored a lot.
void tidyEntries(const CacheFolder& folder, uint64_t storedBytes, const std::stop_token& stop);

} // namespace builder
