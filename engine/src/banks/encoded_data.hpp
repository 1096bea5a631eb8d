// SPDX-License-Identifier: MIT
// Reading the encoded data of one sound, piece by piece.
#pragma once

#include "bank/sound.hpp"
#include "base/bytes.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace engine {

// The range of the encoded data of one sound.
struct EncodedData
{
    std::shared_ptr<const base::ByteSource> source;
    uint64_t offset = 0;
    uint64_t bytes = 0;
};

// Encoded data through a buffer, for readers that continue a little at a time.
class DataWindow
{
public:
    // usualView: how many bytes most views request. The buffer is allocated once, large enough for these.
    explicit DataWindow(EncodedData data, size_t usualView = 0);

    [[nodiscard]] uint64_t size() const { return mData.bytes; }

    // Returns at least count bytes from offset on, and those after them that are buffered anyway. Valid until the next
    // call. ErrorCode::Damaged: the data ends before that. ErrorCode::Io.
    base::Result<std::span<const uint8_t>> view(uint64_t offset, size_t count);

private:
    EncodedData mData;
    size_t mReadAhead;
    std::vector<uint8_t> mBuffer;
    uint64_t mBufferStart = 0;
    size_t mBuffered = 0;
};

// The encoded data as a sequence of packets, each preceded by its length.
class PacketReader
{
public:
    explicit PacketReader(EncodedData data);

    void seek(uint64_t offset); // cut to the size of the data
    [[nodiscard]] uint64_t offset() const { return mNext; } // of the next packet
    [[nodiscard]] bool atEnd() const { return mNext == mWindow.size(); }

    // The next packet, valid until the next call. ErrorCode::Damaged, also after the last one. ErrorCode::Io.
    base::Result<std::span<const uint8_t>> next();

private:
    DataWindow mWindow;
    uint64_t mNext = 0;
};

// The last seek point that isn't after position; the start of the stream if there is none.
[[nodiscard]] bank::SeekPoint seekPointBefore(const std::vector<bank::SeekPoint>& points, uint64_t position);

} // namespace engine
