// SPDX-License-Identifier: MIT
#include "cache/file_part.hpp"

#include "base/bytes.hpp"
#include "base/file.hpp"

namespace builder {

base::Result<> FilePart::readAt(uint64_t offset, std::span<uint8_t> bytes) const
{
    if (!base::rangeInside(offset, bytes.size(), mSize))
        return base::Error{base::ErrorCode::Damaged};
    return base::readAt(mFile->get(), bytes, mOffset + offset);
}

} // namespace builder
