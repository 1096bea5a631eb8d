#include "bank/bytes.hpp"

#include <algorithm>
#include <cerrno>
#include <limits>

#include <unistd.h>

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

FileSource::FileSource(int descriptor, uint64_t size)
    : mDescriptor(descriptor)
    , mSize(size)
{ }

FileSource::~FileSource()
{
    close(mDescriptor);
}

Error FileSource::readAt(uint64_t offset, std::span<uint8_t> bytes) const
{
    if (!rangeInside(offset, bytes.size(), mSize) || mSize > uint64_t(std::numeric_limits<off_t>::max()))
        return Error::Damaged;
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got = pread(mDescriptor, bytes.data() + done, bytes.size() - done, off_t(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return Error::Io;
        if (got == 0)
            return Error::Damaged;
        done += size_t(got);
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
