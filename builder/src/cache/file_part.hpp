// SPDX-License-Identifier: MIT
// A part of an open file as a source of bytes.
#pragma once

#include "base/bytes.hpp"
#include "base/file_descriptor.hpp"

#include <memory>
#include <utility>

namespace builder {

// Safe to read from several threads.
class FilePart final : public base::ByteSource
{
public:
    FilePart(std::shared_ptr<const base::FileDescriptor> file, uint64_t offset, uint64_t size)
        : mFile(std::move(file))
        , mOffset(offset)
        , mSize(size)
    { }

    [[nodiscard]] uint64_t size() const override { return mSize; }
    base::Result<> readAt(uint64_t offset, std::span<uint8_t> bytes) const override;

private:
    std::shared_ptr<const base::FileDescriptor> mFile;
    uint64_t mOffset;
    uint64_t mSize;
};

} // namespace builder
