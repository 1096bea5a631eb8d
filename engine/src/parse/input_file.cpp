// SPDX-License-Identifier: MIT
#include "parse/input_file.hpp"

#include "base/file.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace engine {

namespace {

// An error of openRegular() without the name of the file.
base::Error withoutName(const base::Error& error)
{
    const int system = error.systemError;
    if (system == 0)
        return {base::ErrorCode::Io, "it is a device or pipe, not a file"};
    return {system == ENAMETOOLONG ? base::ErrorCode::NotFound : error.code,
            system == EISDIR ? "it is a folder" : std::generic_category().message(system), system};
}

} // namespace

base::Result<FilePointer> InputFile::open(const char* path)
{
    base::Result<base::OpenedFile> opened = base::openRegular(path);
    if (!opened)
        return withoutName(opened.error());
    if (opened->stamp.size == 0)
        return base::Error{base::ErrorCode::Io, "it is empty"};
    return FilePointer(std::make_shared<InputFile>(std::move(opened->descriptor), opened->stamp.size));
}

InputFile::InputFile(base::FileDescriptor descriptor, uint64_t size)
    : mDescriptor(std::move(descriptor))
    , mSize(size)
{
    mHeadBytes = fetch(0, mHead.data(), size_t(std::min<uint64_t>(size, mHead.size())));
    mReadError = 0; // the next reader of these bytes will get it again
}

size_t InputFile::readAt(uint64_t offset, void* buffer, size_t count) const
{
    if (offset >= mSize || count == 0)
        return 0;
    count = size_t(std::min<uint64_t>(count, mSize - offset));
    if (offset + count > mHeadBytes)
        return fetch(offset, buffer, count);
    std::memcpy(buffer, mHead.data() + offset, count);
    return count;
}

size_t InputFile::fetch(uint64_t offset, void* buffer, size_t count) const
{
    size_t done = 0;
    while (done < count) {
        const ssize_t got = pread(mDescriptor.get(), static_cast<char*>(buffer) + done, count - done,
                                  static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            mReadError = errno;
        if (got <= 0)
            break;
        done += static_cast<size_t>(got);
    }
    return done;
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
