#include "parse/source_file.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace kess {

namespace {

constexpr size_t kBufferBytes = 16384;

thread_local int lastSystemError = 0;

} // namespace

void noteSystemError(int error)
{
    lastSystemError = error;
}

int systemError()
{
    return lastSystemError;
}

KESS_RESULT SourceFile::open(const char* path, std::shared_ptr<const SourceFile>* file)
{
    int descriptor;
    do {
        descriptor = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) {
        const bool absent = errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG;
        if (!absent)
            noteSystemError(errno);
        return absent ? KESS_ERR_FILE_NOTFOUND : KESS_ERR_FILE_BAD;
    }
    struct stat status;
    const bool isKnown = fstat(descriptor, &status) == 0;
    if (!isKnown)
        noteSystemError(errno);
    if (!isKnown || !S_ISREG(status.st_mode) || status.st_size <= 0) {
        close(descriptor);
        return KESS_ERR_FILE_BAD;
    }
    *file = std::make_shared<SourceFile>(descriptor, static_cast<uint64_t>(status.st_size));
    return KESS_OK;
}

SourceFile::SourceFile(int descriptor, uint64_t size)
    : mDescriptor(descriptor)
    , mSize(size)
{
    const int noted = systemError();
    mHeadBytes = fetch(0, mHead.data(), static_cast<size_t>(std::min<uint64_t>(size, mHead.size())));
    noteSystemError(noted); // whoever needs what could not be read will be told
}

SourceFile::~SourceFile()
{
    close(mDescriptor);
}

size_t SourceFile::readAt(uint64_t offset, void* buffer, size_t count) const
{
    if (offset >= mSize || count == 0)
        return 0;
    count = static_cast<size_t>(std::min<uint64_t>(count, mSize - offset));
    if (offset + count > mHeadBytes)
        return fetch(offset, buffer, count);
    std::memcpy(buffer, mHead.data() + offset, count);
    return count;
}

size_t SourceFile::fetch(uint64_t offset, void* buffer, size_t count) const
{
    size_t done = 0;
    while (done < count) {
        const ssize_t got =
            pread(mDescriptor, static_cast<char*>(buffer) + done, count - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            noteSystemError(errno);
        if (got <= 0)
            break;
        done += static_cast<size_t>(got);
    }
    return done;
}

bool SourceFile::readAllAt(uint64_t offset, void* buffer, size_t count) const
{
    return readAt(offset, buffer, count) == count;
}

Cursor::Cursor(std::shared_ptr<const SourceFile> file, uint64_t begin, uint64_t end, std::vector<uint8_t> prefix)
    : mFile(std::move(file))
    , mBegin(begin)
    , mEnd(std::max(begin, end))
    , mPrefix(std::move(prefix))
    , mBuffer(kBufferBytes)
{ }

int64_t Cursor::seek(int64_t offset, int whence)
{
    int64_t base = 0;
    if (whence == SEEK_CUR)
        base = static_cast<int64_t>(mPosition);
    else if (whence == SEEK_END)
        base = static_cast<int64_t>(size());
    int64_t target = 0;
    if (__builtin_add_overflow(base, offset, &target) || target < 0 || static_cast<uint64_t>(target) > size())
        return -1;
    mPosition = static_cast<uint64_t>(target);
    return target;
}

size_t Cursor::fetch(uint64_t position, void* buffer, size_t count) const
{
    size_t done = 0;
    if (position < mPrefix.size()) {
        done = std::min(count, mPrefix.size() - static_cast<size_t>(position));
        std::memcpy(buffer, mPrefix.data() + position, done);
    }
    const uint64_t inFile = position + done - mPrefix.size();
    const auto left = static_cast<size_t>(std::min<uint64_t>(count - done, mEnd - mBegin - inFile));
    return left == 0 ? done : done + mFile->readAt(mBegin + inFile, static_cast<uint8_t*>(buffer) + done, left);
}

size_t Cursor::read(void* buffer, size_t count)
{
    count = static_cast<size_t>(std::min<uint64_t>(count, size() - mPosition));
    size_t done = 0;
    while (done < count) {
        if (mPosition < mBufferStart || mPosition >= mBufferStart + mBuffered) {
            const uint64_t left = size() - mPosition;
            if (count - done >= mBuffer.size()) {
                const size_t got = fetch(mPosition, static_cast<uint8_t*>(buffer) + done, count - done);
                mPosition += got;
                return done + got;
            }
            mBufferStart = mPosition;
            const size_t wanted = static_cast<size_t>(std::min<uint64_t>(mBuffer.size(), left));
            mBuffered = fetch(mPosition, mBuffer.data(), wanted);
            if (mBuffered == 0)
                break;
        }
        const size_t skip = static_cast<size_t>(mPosition - mBufferStart);
        const size_t chunk = std::min(count - done, mBuffered - skip);
        std::memcpy(static_cast<uint8_t*>(buffer) + done, mBuffer.data() + skip, chunk);
        done += chunk;
        mPosition += chunk;
    }
    return done;
}

} // namespace kess
