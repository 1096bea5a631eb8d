// SPDX-License-Identifier: MIT
// Where the bytes of a sound or bank come from.
#pragma once

#include "base/result.hpp"
#include "kess.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace engine {

class Medium;
using MediumPointer = std::shared_ptr<const Medium>;

// A number of bytes that can be read at any offset. Several threads may read at once.
class Medium
{
public:
    virtual ~Medium() = default;
    Medium(const Medium&) = delete;
    Medium& operator=(const Medium&) = delete;

    [[nodiscard]] uint64_t size() const { return mSize; }

    // Reads up to count bytes; the range is inside the medium. Returns fewer only where the medium ends earlier than it
    // should, or fails. Then *systemError is the reason (errno); otherwise it is left as it is.
    [[nodiscard]] virtual size_t read(uint64_t offset, void* buffer, size_t count, int* systemError) const = 0;

protected:
    explicit Medium(uint64_t size)
        : mSize(size)
    { }

private:
    uint64_t mSize;
};

// The functions fail with ErrorCode::Io if there are no bytes. Error::text doesn't name the file.

// A regular file. Never waits, whatever the path leads to. ErrorCode::NotFound: there is no such file, or the name is
// too long for one. ErrorCode::Io: not a regular file, or not readable.
base::Result<MediumPointer> openFile(const char* path);

// The part of a file from offset on. Errors of openFile(). ErrorCode::Damaged: the file ends before the part does.
base::Result<MediumPointer> openFileRange(const char* path, uint64_t offset, uint64_t bytes);

// Memory that outlives the medium.
base::Result<MediumPointer> useMemory(const void* data, uint64_t bytes);

// Functions of the caller. Unless isKept is set before the medium ends, source.close isn't called.
class CallbackMedium final : public Medium
{
public:
    static base::Result<std::shared_ptr<CallbackMedium>> make(const KESS_SOURCE& source);
    explicit CallbackMedium(const KESS_SOURCE& source)
        : Medium(source.size)
        , mSource(source)
    { }
    ~CallbackMedium() override;

    [[nodiscard]] size_t read(uint64_t offset, void* buffer, size_t count, int* systemError) const override;

    bool isKept = false;

private:
    KESS_SOURCE mSource;
};

} // namespace engine
