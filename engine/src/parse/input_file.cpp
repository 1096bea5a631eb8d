// SPDX-License-Identifier: MIT
#include "parse/input_file.hpp"

#include <algorithm>
#include <cstring>
#include <system_error>
#include <utility>

namespace engine {

InputFile::InputFile(MediumPointer medium)
    : mMedium(std::move(medium))
{
    int error = 0; // the next reader of these bytes will get it again
    mHeadBytes = mMedium->read(0, mHead.data(), size_t(std::min<uint64_t>(size(), mHead.size())), &error);
}

size_t InputFile::readAt(uint64_t offset, void* buffer, size_t count) const
{
    if (offset >= size() || count == 0)
        return 0;
    count = size_t(std::min<uint64_t>(count, size() - offset));
    if (offset + count > mHeadBytes)
        return mMedium->read(offset, buffer, count, &mReadError);
    std::memcpy(buffer, mHead.data() + offset, count);
    return count;
}

bool InputFile::readAllAt(uint64_t offset, void* buffer, size_t count) const
{
    return readAt(offset, buffer, count) == count;
}

base::Result<> InputFile::takeReadError() const
{
    if (mReadError == 0)
        return {};
    const int failed = std::exchange(mReadError, 0);
    return base::Error{base::ErrorCode::Io, std::generic_category().message(failed), failed};
}

} // namespace engine
