// SPDX-License-Identifier: MIT
// The bytes of a sound as parsers and decoders read them.
#pragma once

#include "parse/medium.hpp"

#include "base/result.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace engine {

class InputFile;
using FilePointer = std::shared_ptr<const InputFile>;

// A medium that is read by one thread at a time. Reads carry their own offset, so readers don't disturb each other.
//
// Parsers and codec libraries only need to know how many bytes they got. So a read that fails returns fewer bytes, and
// the file keeps the error for the caller that reports why a sound can't be opened or decoded.
class InputFile
{
public:
    explicit InputFile(MediumPointer medium);
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    [[nodiscard]] const MediumPointer& medium() const { return mMedium; }
    [[nodiscard]] uint64_t size() const { return mMedium->size(); }

    // Reads up to count bytes. Returns fewer only at the end of the file or where the medium fails.
    [[nodiscard]] size_t readAt(uint64_t offset, void* buffer, size_t count) const;

    // Returns whether all of the bytes were read.
    [[nodiscard]] bool readAllAt(uint64_t offset, void* buffer, size_t count) const;

    // The last error of the medium since the last call, as ErrorCode::Io; success if there was none.
    base::Result<> takeReadError() const;

private:
    MediumPointer mMedium;
    // The start of the file, because headers are read again and again, a few bytes at a time. Shorter if it couldn't be
    // read.
    std::array<uint8_t, 4096> mHead;
    size_t mHeadBytes;
    mutable int mReadError = 0; // errno
};

} // namespace engine
