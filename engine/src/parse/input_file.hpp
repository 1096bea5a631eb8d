// SPDX-License-Identifier: MIT
// The file of a sound: opened once, read at any offset by all that share it.
#pragma once

#include "base/file_descriptor.hpp"
#include "base/result.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace engine {

class InputFile;
using FilePointer = std::shared_ptr<const InputFile>;

// A regular file, open for reading. Reads carry their own offset, so readers don't disturb each other. One file is used
// by one thread at a time.
//
// Parsers and codec libraries only need to know how many bytes they got. So a read that fails returns fewer bytes, and
// the file keeps the error for the caller that reports why a sound can't be opened or decoded.
class InputFile
{
public:
    // Never waits, whatever the path leads to. ErrorCode::NotFound: there is no such file, or the name is too long for
    // one. ErrorCode::Io: not a regular file, not readable, or empty. Error::text doesn't name the file.
    static base::Result<FilePointer> open(const char* path);

    InputFile(base::FileDescriptor descriptor, uint64_t size);
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    [[nodiscard]] uint64_t size() const { return mSize; }

    // Reads up to count bytes. Returns fewer only at the end of the file or where the medium fails.
    [[nodiscard]] size_t readAt(uint64_t offset, void* buffer, size_t count) const;

    // Returns whether all of the bytes were read.
    [[nodiscard]] bool readAllAt(uint64_t offset, void* buffer, size_t count) const;

    // The last error of the medium since the last call, as ErrorCode::Io; success if there was none.
    base::Result<> takeReadError() const;

private:
    size_t fetch(uint64_t offset, void* buffer, size_t count) const;

    base::FileDescriptor mDescriptor;
    uint64_t mSize;
    // The start of the file, because headers are read again and again, a few bytes at a time. mHeadBytes is less than
    // its size if the file is shorter or couldn't be read.
    std::array<uint8_t, 4096> mHead;
    size_t mHeadBytes;
    mutable int mReadError = 0; // errno
};

} // namespace engine
