// SPDX-License-Identifier: MIT
// The header of a cache entry.
#pragma once

#include "support/content_hash.hpp"

#include <array>
#include <cstdint>
#include <span>

namespace builder {

// Precedes the encoded data of an entry. The sound's serialised form follows the data. Little-endian.
struct CacheEntryHeader
{
    char magic[8];
    std::array<uint8_t, 32> key;
    uint64_t dataBytes;
    uint64_t recordBytes;
    uint64_t dataChecksum; // XXH3-64, the same as in the sound's record
    uint64_t recordChecksum; // XXH3-64 of the serialised form
    uint64_t headerChecksum; // XXH3-64 of the fields above

    static CacheEntryHeader make(const ContentHash& key, uint64_t dataBytes, uint64_t dataChecksum,
                                 std::span<const uint8_t> record);
    bool valid(const ContentHash& wanted, uint64_t fileBytes) const;

    static constexpr char kMagic[8] = {'T', 'N', 'K', 'S', 'N', 'D', '0', '2'};
};
static_assert(sizeof(CacheEntryHeader) == 80);

} // namespace builder
