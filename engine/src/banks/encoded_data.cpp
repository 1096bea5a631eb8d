// SPDX-License-Identifier: MIT
#include "banks/encoded_data.hpp"

#include <algorithm>
#include <utility>

namespace engine {

namespace {

constexpr size_t kLeastReadAhead = 16 * 1024;
constexpr int kLengthBits = 21;
static_assert((size_t{1} << kLengthBits) - 1 == bank::kMaximumPacketBytes);

// How much is read, relative to count. A caller asks for the most that it may need, and may then use little of it. With
// this factor, no byte is read more than twice.
constexpr size_t kReadAheadFactor = 2;

base::Error dataEnds()
{
    return {base::ErrorCode::Damaged, "its data ends too early"};
}

} // namespace

DataWindow::DataWindow(EncodedData data, size_t usualView)
    : mData(std::move(data))
    , mReadAhead(std::max(usualView * kReadAheadFactor, kLeastReadAhead))
{ }

base::Result<std::span<const uint8_t>> DataWindow::view(uint64_t offset, size_t count)
{
    if (!base::rangeInside(offset, count, mData.bytes))
        return dataEnds();
    const bool isBuffered = offset >= mBufferStart && count <= mBuffered
        && offset - mBufferStart <= static_cast<uint64_t>(mBuffered - count);
    if (!isBuffered) {
        const size_t wanted = static_cast<size_t>(
            std::min<uint64_t>(std::max(count * kReadAheadFactor, mReadAhead), mData.bytes - offset));
        mBuffered = 0;
        mBuffer.reserve(static_cast<size_t>(std::min<uint64_t>(mReadAhead, mData.bytes)));
        mBuffer.resize(std::max(mBuffer.size(), wanted));
        if (base::Result<> read = mData.source->readAt(mData.offset + offset, std::span(mBuffer).first(wanted)); !read)
            return std::move(read.error());
        mBufferStart = offset;
        mBuffered = wanted;
    }
    return std::span<const uint8_t>(mBuffer).first(mBuffered).subspan(static_cast<size_t>(offset - mBufferStart));
}

PacketReader::PacketReader(EncodedData data)
    : mWindow(std::move(data))
{ }

void PacketReader::seek(uint64_t offset)
{
    mNext = std::min(offset, mWindow.size());
}

base::Result<std::span<const uint8_t>> PacketReader::next()
{
    // The length, in groups of seven bits.
    size_t length = 0;
    for (int shift = 0;; shift += 7) {
        if (shift >= kLengthBits)
            return base::Error{base::ErrorCode::Damaged, "the length of a packet is impossible"};
        base::Result<std::span<const uint8_t>> byte = mWindow.view(mNext, 1);
        if (!byte)
            return byte;
        ++mNext;
        length |= static_cast<size_t>((*byte)[0] & 0x7f) << shift;
        if (!((*byte)[0] & 0x80))
            break;
    }
    base::Result<std::span<const uint8_t>> packet = mWindow.view(mNext, length);
    if (!packet)
        return packet;
    mNext += length;
    return packet->first(length);
}

bank::SeekPoint seekPointBefore(const std::vector<bank::SeekPoint>& points, uint64_t position)
{
    const auto after =
        std::upper_bound(points.begin(), points.end(), position,
                         [](uint64_t wanted, const bank::SeekPoint& point) { return wanted < point.position; });
    return after == points.begin() ? bank::SeekPoint{} : *(after - 1);
}

} // namespace engine
