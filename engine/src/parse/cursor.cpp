// SPDX-License-Identifier: MIT
#include "parse/cursor.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace engine {

namespace {

constexpr size_t kBufferBytes = 16384;

} // namespace

Cursor::Cursor(FilePointer file, uint64_t begin, uint64_t end, std::vector<uint8_t> prefix)
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
    const auto remaining = static_cast<size_t>(std::min<uint64_t>(count - done, mEnd - mBegin - inFile));
    return remaining == 0 ? done
                          : done + mFile->readAt(mBegin + inFile, static_cast<uint8_t*>(buffer) + done, remaining);
}

size_t Cursor::read(void* buffer, size_t count)
{
    count = static_cast<size_t>(std::min<uint64_t>(count, size() - mPosition));
    size_t done = 0;
    while (done < count) {
        if (mPosition < mBufferStart || mPosition >= mBufferStart + mBuffered) {
            const uint64_t remaining = size() - mPosition;
            if (count - done >= mBuffer.size()) {
                const size_t got = fetch(mPosition, static_cast<uint8_t*>(buffer) + done, count - done);
                mPosition += got;
                return done + got;
            }
            mBufferStart = mPosition;
            const size_t wanted = static_cast<size_t>(std::min<uint64_t>(mBuffer.size(), remaining));
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

} // namespace engine
