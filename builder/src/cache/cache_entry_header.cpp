// SPDX-License-Identifier: MIT
#include "cache/cache_entry_header.hpp"

#include "bank/checksum.hpp"
#include "base/bytes.hpp"

#include <cstddef>
#include <cstring>

namespace builder {

namespace {

constexpr uint64_t kMaximumRecordBytes = 256 << 20;

uint64_t computeChecksum(const CacheEntryHeader& header)
{
    return bank::checksum(base::asBytes(std::span(&header, 1)).first(offsetof(CacheEntryHeader, headerChecksum)));
}

} // namespace

CacheEntryHeader CacheEntryHeader::make(const ContentHash& key, uint64_t dataBytes, uint64_t dataChecksum,
                                        std::span<const uint8_t> record)
{
    CacheEntryHeader header{{}, key.bytes, dataBytes, record.size(), dataChecksum, bank::checksum(record), 0};
    std::memcpy(header.magic, kMagic, sizeof kMagic);
    header.headerChecksum = computeChecksum(header);
    return header;
}

bool CacheEntryHeader::valid(const ContentHash& wanted, uint64_t fileBytes) const
{
    return std::memcmp(magic, kMagic, sizeof kMagic) == 0 && computeChecksum(*this) == headerChecksum
        && key == wanted.bytes && recordBytes <= kMaximumRecordBytes && dataBytes <= fileBytes
        && fileBytes - dataBytes == sizeof(CacheEntryHeader) + recordBytes;
}

} // namespace builder
