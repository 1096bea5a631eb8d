// SPDX-License-Identifier: MIT
#include "base/bytes.hpp"

namespace base {

MemorySource::MemorySource(std::vector<uint8_t> bytes)
    : mBytes(std::move(bytes))
{ }

Result<> MemorySource::readAt(uint64_t offset, std::span<uint8_t> bytes) const
{
    if (!rangeInside(offset, bytes.size(), mBytes.size()))
        return Error{ErrorCode::Damaged};
    if (!bytes.empty())
        std::memcpy(bytes.data(), mBytes.data() + offset, bytes.size());
    return {};
}

Result<> MemorySink::write(std::span<const uint8_t> bytes)
{
    mBytes.insert(mBytes.end(), bytes.begin(), bytes.end());
    return {};
}

} // namespace base
