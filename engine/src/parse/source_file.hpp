// The file under a sound: opened once, read at any position by those who share it.
#pragma once

#include "kess.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kess {

// What the operating system gave as the reason for the last failure on this thread (errno); 0 when the failure was the
// file's own. Whoever answers a call from outside clears it first.
void noteSystemError(int error);
[[nodiscard]] int systemError();

// A regular file, open for reading. Reads carry their own position, so any number of readers may share it.
class SourceFile
{
public:
    // Never waits, whatever the path leads to: a pipe, a device or a socket is no sound file.
    // KESS_ERR_FILE_NOTFOUND: nothing there, or a name too long to exist. KESS_ERR_FILE_BAD: no regular file, not
    // readable, or empty.
    [[nodiscard]] static KESS_RESULT open(const char* path, std::shared_ptr<const SourceFile>* file);

    SourceFile(int descriptor, uint64_t size);
    ~SourceFile();
    SourceFile(const SourceFile&) = delete;
    SourceFile& operator=(const SourceFile&) = delete;

    [[nodiscard]] uint64_t size() const { return mSize; }

    // Reads up to count bytes; fewer only at the end of the file or where the medium fails.
    [[nodiscard]] size_t readAt(uint64_t offset, void* buffer, size_t count) const;

    // True when all of the bytes came.
    [[nodiscard]] bool readAllAt(uint64_t offset, void* buffer, size_t count) const;

private:
    size_t fetch(uint64_t offset, void* buffer, size_t count) const;

    int mDescriptor;
    uint64_t mSize;
    // Headers are asked for again and again, a few bytes at a time. Shorter if it could not be read.
    std::array<uint8_t, 4096> mHead;
    size_t mHeadBytes;
};

using FilePointer = std::shared_ptr<const SourceFile>;

// A stretch of a file that is read like a file of its own, through a buffer: codecs ask for a few bytes at a time.
class Cursor
{
public:
    // begin and end are positions in the file, at most its size. The bytes of prefix are read before it.
    Cursor(std::shared_ptr<const SourceFile> file, uint64_t begin, uint64_t end, std::vector<uint8_t> prefix = {});

    [[nodiscard]] uint64_t size() const { return mPrefix.size() + (mEnd - mBegin); }
    [[nodiscard]] uint64_t tell() const { return mPosition; }

    // Moves to an offset as lseek does, whence included. Returns the new position, or -1 when it would lie before the
    // stretch or behind its end.
    [[nodiscard]] int64_t seek(int64_t offset, int whence);

    [[nodiscard]] size_t read(void* buffer, size_t count);

private:
    [[nodiscard]] size_t fetch(uint64_t position, void* buffer, size_t count) const;

    std::shared_ptr<const SourceFile> mFile;
    uint64_t mBegin;
    uint64_t mEnd;
    std::vector<uint8_t> mPrefix;
    uint64_t mPosition = 0;
    std::vector<uint8_t> mBuffer;
    uint64_t mBufferStart = 0;
    size_t mBuffered = 0;
};

} // namespace kess
