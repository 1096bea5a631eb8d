// SPDX-License-Identifier: MIT
// Owns one file descriptor and closes it.
#pragma once

#include <utility>

namespace base {

class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor)
        : mDescriptor(descriptor)
    { }
    FileDescriptor(FileDescriptor&& other) noexcept
        : mDescriptor(std::exchange(other.mDescriptor, -1))
    { }
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor() { reset(); }

    explicit operator bool() const { return mDescriptor >= 0; }
    [[nodiscard]] int get() const { return mDescriptor; }
    [[nodiscard]] int release() { return std::exchange(mDescriptor, -1); }
    void reset();

private:
    int mDescriptor = -1;
};

} // namespace base
