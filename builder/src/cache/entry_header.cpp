#include "cache/entry_header.hpp"

#include "bank/checksum.hpp"
#include "base/bytes.hpp"

#include <cstddef>
#include <cstring>

namespace tarnok {

namespace {

constexpr uint64_t kLargestRecord = 256 << 20;

uint64_t checksumOf(const EntryHeader& header)
{
    return bank::checksum(base::asBytes(std::span(&header, 1)).first(offsetof(EntryHeader, headerChecksum)));
}

} // namespace

EntryHeader EntryHeader::make(const ContentHash& key, uint64_t dataBytes, uint64_t dataChecksum,
                              std::span<const uint8_t> record)
{
    EntryHeader header{{}, key.bytes, dataBytes, record.size(), dataChecksum, bank::checksum(record), 0};
    std::memcpy(header.magic, kMagic, sizeof kMagic);
    header.headerChecksum = checksumOf(header);
    return header;
}

bool EntryHeader::valid(const ContentHash& wanted, uint64_t fileBytes) const
{
    return std::memcmp(magic, kMagic, sizeof kMagic) == 0 && checksumOf(*this) == headerChecksum && key == wanted.bytes
        && recordBytes <= kLargestRecord && dataBytes <= fileBytes
        && fileBytes - dataBytes == sizeof(EntryHeader) + recordBytes;
}

} // namespace tarnok
