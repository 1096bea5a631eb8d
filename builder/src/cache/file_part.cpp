#include "cache/file_part.hpp"

#include "base/bytes.hpp"
#include "base/file.hpp"

namespace tarnok {

bank::Error FilePart::readAt(uint64_t offset, std::span<uint8_t> bytes) const
{
    if (!base::rangeInside(offset, bytes.size(), mSize))
        return bank::Error::Damaged;
    const base::Result<> read = base::readAt(mFile->get(), bytes, mOffset + offset);
    if (!read)
        return read.error().code == base::ErrorCode::Damaged ? bank::Error::Damaged : bank::Error::Io;
    return bank::Error::None;
}

} // namespace tarnok
