// SPDX-License-Identifier: MIT
#include "cache/encoded_location.hpp"

namespace builder {

EncodedLocation EncodedLocation::make(const ContentHash& key, uint64_t dataBytes, std::span<const uint8_t> record)
{
    EncodedLocation location;
    location.key = key;
    location.dataBytes = dataBytes;
    if (record.size() <= kMaximumKeptRecord)
        location.record.assign(record.begin(), record.end());
    return location;
}

} // namespace builder
