#include "bank/bytes.hpp"

namespace bank {

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
