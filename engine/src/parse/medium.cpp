// SPDX-License-Identifier: MIT
#include "parse/medium.hpp"

#include "base/bytes.hpp"
#include "base/file.hpp"

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace engine {

namespace {

// Repeats readSome(offset, buffer, count) for the rest while it returns less than that. Negative: minus errno.
template <typename ReadSome>
size_t readAll(uint64_t offset, void* buffer, size_t count, int* systemError, ReadSome readSome)
{
    size_t done = 0;
    while (done < count) {
        const int64_t got = readSome(offset + done, static_cast<char*>(buffer) + done, count - done);
        if (got < 0)
            *systemError = static_cast<int>(-got);
        if (got <= 0)
            break;
        done += static_cast<size_t>(got);
    }
    return done;
}

class FileMedium final : public Medium
{
public:
    FileMedium(base::FileDescriptor descriptor, uint64_t begin, uint64_t bytes)
        : Medium(bytes)
        , mDescriptor(std::move(descriptor))
        , mBegin(begin)
    { }

    [[nodiscard]] size_t read(uint64_t offset, void* buffer, size_t count, int* systemError) const override
    {
        return readAll(mBegin + offset, buffer, count, systemError, [this](uint64_t from, char* to, size_t most) {
            for (;;) {
                const ssize_t got = pread(mDescriptor.get(), to, most, static_cast<off_t>(from));
                if (got >= 0 || errno != EINTR)
                    return got >= 0 ? int64_t{got} : -int64_t{errno};
            }
        });
    }

private:
    base::FileDescriptor mDescriptor;
    uint64_t mBegin;
};

class MemoryMedium final : public Medium
{
public:
    MemoryMedium(const void* data, uint64_t bytes)
        : Medium(bytes)
        , mData(static_cast<const uint8_t*>(data))
    { }

    [[nodiscard]] size_t read(uint64_t offset, void* buffer, size_t count, int*) const override
    {
        std::memcpy(buffer, mData + offset, count);
        return count;
    }

private:
    const uint8_t* mData;
};

base::Error isEmpty()
{
    return {base::ErrorCode::Io, "it is empty"};
}

base::Result<base::OpenedFile> openUnnamed(const char* path)
{
    base::Result<base::OpenedFile> opened = base::openRegular(path);
    if (opened)
        return opened;
    const int system = opened.error().systemError;
    if (system == 0)
        return base::Error{base::ErrorCode::Io, "it is a device or pipe, not a file"};
    if (system == ENOENT)
        return base::Error{opened.error().code, base::fileInOtherCase(path), system};
    return base::Error{system == ENAMETOOLONG ? base::ErrorCode::NotFound : opened.error().code,
                       system == EISDIR ? "it is a folder" : std::generic_category().message(system), system};
}

} // namespace

base::Result<MediumPointer> openFile(const char* path)
{
    base::Result<base::OpenedFile> opened = openUnnamed(path);
    if (!opened)
        return std::move(opened.error());
    if (opened->stamp.size == 0)
        return isEmpty();
    return MediumPointer(std::make_shared<FileMedium>(std::move(opened->descriptor), 0, opened->stamp.size));
}

base::Result<MediumPointer> openFileRange(const char* path, uint64_t offset, uint64_t bytes)
{
    base::Result<base::OpenedFile> opened = openUnnamed(path);
    if (!opened)
        return std::move(opened.error());
    if (!base::rangeInside(offset, bytes, opened->stamp.size))
        return base::Error{base::ErrorCode::Damaged, "the file ends before the range does"};
    if (bytes == 0)
        return isEmpty();
    return MediumPointer(std::make_shared<FileMedium>(std::move(opened->descriptor), offset, bytes));
}

base::Result<MediumPointer> useMemory(const void* data, uint64_t bytes)
{
    if (bytes == 0)
        return isEmpty();
    return MediumPointer(std::make_shared<MemoryMedium>(data, bytes));
}

base::Result<std::shared_ptr<CallbackMedium>> CallbackMedium::make(const KESS_SOURCE& source)
{
    if (source.size == 0)
        return isEmpty();
    return std::make_shared<CallbackMedium>(source);
}

CallbackMedium::~CallbackMedium()
{
    if (isKept && mSource.close)
        mSource.close(mSource.userData);
}

size_t CallbackMedium::read(uint64_t offset, void* buffer, size_t count, int* systemError) const
{
    return readAll(offset, buffer, count, systemError, [this](uint64_t from, char* to, size_t most) {
        const int64_t got = mSource.read(mSource.userData, from, to, most);
        const bool isPossible = got >= -INT32_MAX && got <= static_cast<int64_t>(most);
        return isPossible ? got : -int64_t{EIO};
    });
}

} // namespace engine
