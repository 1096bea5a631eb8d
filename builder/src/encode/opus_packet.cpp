// SPDX-License-Identifier: MIT
#include "encode/opus_packet.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>

namespace builder {

namespace {

// The part of the range decoder (RFC 6716, 4.1) that is needed for the start of a CELT frame.
class RangeDecoder
{
public:
    explicit RangeDecoder(std::span<const uint8_t> bytes)
        : mBytes(bytes)
        , mLast(nextByte())
        , mValue(127 - (mLast >> 1))
    {
        normalise();
    }

    // The number of bits that were read, rounded up (4.1.6.1).
    [[nodiscard]] uint32_t bitsRead() const { return mBits - uint32_t(std::bit_width(mRange)); }
    [[nodiscard]] bool holds(uint32_t bits) const { return bitsRead() + bits <= mBytes.size() * 8; }

    // Reads a flag that is set with a probability of 2^-shift.
    bool flag(int shift)
    {
        const uint32_t part = mRange >> shift;
        const bool set = mValue < part;
        if (set) {
            mRange = part;
        } else {
            mValue -= part;
            mRange -= part;
        }
        normalise();
        return set;
    }

    // Reads a number below count; all are equally likely.
    uint32_t uniform(uint32_t count)
    {
        const uint32_t part = mRange / count;
        const uint32_t symbol = count - std::min(mValue / part + 1, count);
        const uint32_t above = part * (count - symbol - 1);
        mValue -= above;
        mRange = symbol > 0 ? part : mRange - above;
        normalise();
        return symbol;
    }

    // Skips one of three symbols, with probabilities of a half, a quarter and a quarter.
    void skipTapset()
    {
        const uint32_t quarter = mRange >> 2;
        if (mValue >= 2 * quarter) {
            mValue -= 2 * quarter;
            mRange -= 2 * quarter;
        } else {
            mValue -= mValue >= quarter ? quarter : 0;
            mRange = quarter;
        }
        normalise();
    }

    // Skips raw bits, which are stored at the end of the frame.
    void skipRaw(uint32_t bits) { mBits += bits; }

private:
    uint8_t nextByte() { return mNext < mBytes.size() ? mBytes[mNext++] : uint8_t(0); }

    void normalise()
    {
        while (mRange <= 1u << 23) {
            const uint8_t former = mLast;
            mLast = nextByte();
            const uint32_t symbol = (uint32_t(former) << 8 | mLast) >> 1 & 0xff;
            mValue = ((mValue << 8) + (255 - symbol)) & 0x7fffffff;
            mRange <<= 8;
            mBits += 8;
        }
    }

    std::span<const uint8_t> mBytes;
    size_t mNext = 0;
    uint32_t mBits = 9;
    uint32_t mRange = 128;
    uint8_t mLast;
    uint32_t mValue;
};

// The start of a frame (4.3): silence, the pitch filter and its parameters, then whether it is a transient.
bool isStationary(std::span<const uint8_t> frame)
{
    constexpr uint32_t kPitchFilterBits = 16;
    RangeDecoder decoder(frame);
    if (!decoder.holds(1) || decoder.flag(15))
        return true; // silence
    if (decoder.holds(kPitchFilterBits) && decoder.flag(1)) {
        const uint32_t octave = decoder.uniform(6);
        decoder.skipRaw(4 + octave + 3); // period, gain
        if (decoder.holds(2))
            decoder.skipTapset();
    }
    return !decoder.holds(3) || !decoder.flag(3);
}

// Removes the packet of one stream from the front, and returns its only frame. A length precedes the frame in all
// streams except the last (appendix B).
std::optional<std::span<const uint8_t>> takeFrame(std::span<const uint8_t>* packet, bool isLast)
{
    constexpr uint8_t kFirstCeltConfiguration = 16;
    constexpr size_t kLongLength = 252; // starting with this value, a second byte follows, which is multiplied by four
    if (packet->empty())
        return std::nullopt;
    const uint8_t toc = packet->front(); // configuration, stereo, number of frames (3.1)
    *packet = packet->subspan(1);
    const bool oneFrame = (toc & 3) == 0;
    if (!oneFrame || toc >> 3 < kFirstCeltConfiguration)
        return std::nullopt;
    size_t length = packet->size();
    if (!isLast) {
        if (packet->size() < 2)
            return std::nullopt;
        length = packet->front();
        size_t used = 1;
        if (length >= kLongLength) {
            length += size_t(4) * (*packet)[1];
            used = 2;
        }
        *packet = packet->subspan(used);
    }
    if (length > packet->size())
        return std::nullopt;
    const std::span<const uint8_t> frame = packet->first(length);
    *packet = packet->subspan(length);
    return frame;
}

} // namespace

bool findStationary(std::span<const uint8_t> packet, std::span<bool> stationary)
{
    for (size_t stream = 0; stream < stationary.size(); ++stream) {
        const auto frame = takeFrame(&packet, stream + 1 == stationary.size());
        if (!frame)
            return false;
        stationary[stream] = isStationary(*frame);
    }
    return true;
}

} // namespace builder
