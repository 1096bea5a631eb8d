// SPDX-License-Identifier: MIT
// Sequential reading with a position, as codec libraries read their files.
#pragma once

#include "parse/input_file.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace engine {

// A range of a file that is read like a file of its own, through a buffer: codecs read a few bytes at a time.
class Cursor
{
public:
    // begin and end are offsets in the file, at most its size. The bytes of prefix are read before the range.
    Cursor(FilePointer file, uint64_t begin, uint64_t end, std::vector<uint8_t> prefix = {});

    [[nodiscard]] uint64_t size() const { return mPrefix.size() + (mEnd - mBegin); }
    [[nodiscard]] uint64_t position() const { return mPosition; }

    // Moves to an offset as lseek does, whence included. Returns the new position, or -1 for one before the range or
    // after its end.
    [[nodiscard]] int64_t seek(int64_t offset, int whence);

    [[nodiscard]] size_t read(void* buffer, size_t count);

private:
    [[nodiscard]] size_t fetch(uint64_t position, void* buffer, size_t count) const;

    FilePointer mFile;
    uint64_t mBegin;
    uint64_t mEnd;
    std::vector<uint8_t> mPrefix;
    uint64_t mPosition = 0;
    std::vector<uint8_t> mBuffer;
    uint64_t mBufferStart = 0;
    size_t mBuffered = 0;
};

} // namespace engine
