#include "bank/bytes.hpp"

#include <algorithm>

namespace bank {

namespace {

constexpr uint64_t kCopyBytes = 256 * 1024;

} // namespace

Error ByteSink::copyFrom(const ByteSource& source, uint64_t offset, uint64_t size)
{
    std::vector<uint8_t> buffer(std::min(size, kCopyBytes));
    while (size > 0) {
        const std::span<uint8_t> part(buffer.data(), std::min<uint64_t>(size, buffer.size()));
        if (const Error error = source.readAt(offset, part); error != Error::None)
            return error;
        if (const Error error = write(part); error != Error::None)
            return error;
        offset += part.size();
        size -= part.size();
    }
    return Error::None;
}

MemorySource::MemorySource(std::vector<uint8_t> bytes)
    : mBytes(std::move(bytes))
{ }

Error MemorySource::readAt(uint64_t offset, std::span<uint8_t> bytes) const
{
    if (!rangeInside(offset, bytes.size(), mBytes.size()))
        return Error::Damaged;
    if (!bytes.empty())
        std::memcpy(bytes.data(), mBytes.data() + offset, bytes.size());
    return Error::None;
}

Error MemorySink::write(std::span<const uint8_t> bytes)
{
    mBytes.insert(mBytes.end(), bytes.begin(), bytes.end());
    return Error::None;
}

} // namespace bank
