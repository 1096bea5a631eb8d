// SPDX-License-Identifier: MIT
#include "base/file_descriptor.hpp"

#include <unistd.h>

namespace base {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept
{
    if (this != &other) {
        reset();
        mDescriptor = std::exchange(other.mDescriptor, -1);
    }
    return *this;
}

void FileDescriptor::reset()
{
    if (mDescriptor >= 0)
        close(mDescriptor);
    mDescriptor = -1;
}

} // namespace base
