// SPDX-License-Identifier: MIT
#include "base/bytes.hpp"
#include "kadpcm/format.hpp"

#include <cassert>
#include <cstring>

namespace bank::kadpcm {

namespace {

// Reads bits, most significant first. Behind the end there are zeros without end, so that the end needs no look
// before everything is read.
class BitReader
{
public:
    explicit BitReader(std::span<const uint8_t> bytes)
        : mNext(bytes.data())
        , mEnd(bytes.data() + bytes.size())
    { }

    // count: 1 to 32.
    uint32_t read(int count)
    {
        refill();
        return take(count);
    }

    int readSigned(int count)
    {
        const uint32_t sign = 1U << (count - 1);
        return static_cast<int>(read(count) ^ sign) - static_cast<int>(sign);
    }

    uint32_t readRice(int parameter)
    {
        refill();
        const int zeros = std::countl_zero(mBits);
        if (zeros >= kEscapeZeros) {
            drop(kEscapeZeros);
            return take(kEscapeBits);
        }
        drop(zeros + 1);
        const auto high = static_cast<uint32_t>(zeros) << parameter;
        return parameter == 0 ? high : high | take(parameter);
    }

    // False: more zeros than the code has.
    bool readExpGolomb(int parameter, uint32_t* u)
    {
        refill();
        const int zeros = std::countl_zero(mBits);
        if (zeros > kEscapeBits - parameter)
            return false;
        drop(zeros);
        *u = take(zeros + parameter + 1) - (1U << parameter);
        return true;
    }

    // That all was read but the padding of the last byte, and nothing behind it.
    [[nodiscard]] bool atEnd() const
    {
        const ptrdiff_t left = (mEnd - mNext) * 8 + mHeld - mMissing;
        return left >= 0 && left < 8;
    }

private:
    // Leaves at least 56 bits.
    void refill()
    {
        if (mEnd - mNext >= 8) {
            uint64_t word;
            std::memcpy(&word, mNext, sizeof word);
            mBits |= __builtin_bswap64(word) >> mHeld;
            mNext += (63 - mHeld) >> 3;
            mHeld |= 56;
            return;
        }
        for (; mHeld < 56; mHeld += 8) {
            if (mNext == mEnd)
                mMissing += 8;
            else
                mBits |= static_cast<uint64_t>(*mNext++) << (56 - mHeld);
        }
    }

    uint32_t take(int count)
    {
        const auto value = static_cast<uint32_t>(mBits >> (64 - count));
        drop(count);
        return value;
    }

    void drop(int count)
    {
        mBits <<= count;
        mHeld -= count;
    }

    const uint8_t* mNext;
    const uint8_t* mEnd;
    uint64_t mBits = 0; // the next ones, from the top
    int mHeld = 0;
    int mMissing = 0; // of all that were put into mBits, those from behind the end
};

// One channel of the samples that are being decoded.
struct Channel
{
    int16_t* samples;
    int stride;
    int frames;
    bool first;

    [[nodiscard]] int16_t& at(int frame) const { return samples[static_cast<ptrdiff_t>(frame) * stride]; }
};

bool decodePlain(std::span<const uint8_t> bytes, const Channel& channel)
{
    if (bytes.size() != 2 * static_cast<size_t>(channel.frames))
        return false;
    for (int n = 0; n < channel.frames; ++n)
        channel.at(n) = base::loadLittle<int16_t>(bytes.data() + 2 * static_cast<size_t>(n));
    return true;
}

bool decodeConstant(std::span<const uint8_t> bytes, const Channel& channel)
{
    if (bytes.size() != 2)
        return false;
    for (int n = 0; n < channel.frames; ++n)
        channel.at(n) = base::loadLittle<int16_t>(bytes.data());
    return true;
}

bool decodePredicted(int order, std::span<const uint8_t> bytes, const Channel& channel)
{
    if (bytes.empty())
        return false;
    const int step = stepSize(bytes[0]);
    BitReader bits(bytes.subspan(1));
    const int coupling = channel.first ? 0 : static_cast<int>(bits.read(kCouplingBits)) - kCouplingOffset;
    const int start = static_cast<int>(bits.read(kStartBits));
    if (start > kHighestStart)
        return false;
    std::array<int32_t, kMaximumOrder> reflections;
    for (int i = 1; i <= order; ++i)
        reflections[static_cast<size_t>(i - 1)] = reflectionCoefficient(i, bits.readSigned(coefficientBits(i)));

    std::array<int32_t, kMaximumOrder + kSuperblockFrames> history;
    std::fill_n(history.begin(), kMaximumOrder, 0);
    int32_t* const differences = history.data() + kMaximumOrder;
    const auto coupled = [&](int n) {
        return coupling == 0 ? 0 : couple(coupling, (&channel.at(n))[-1]);
    };

    channel.at(0) = static_cast<int16_t>(bits.readSigned(kFirstSampleBits));
    differences[0] = channel.at(0) - coupled(0);
    Predictor predictor;
    const auto put = [&](int n, uint32_t u) {
        const int c = coupled(n);
        const int prediction = clampSample(c + predictor.predict(differences + n));
        const int sample = reconstruct(prediction, unfold(u), step);
        channel.at(n) = static_cast<int16_t>(sample);
        differences[n] = sample - c;
    };
    int n = 1;
    for (; n < channel.frames && n <= order; ++n) {
        predictor.grow(reflections[static_cast<size_t>(n - 1)]);
        uint32_t u = 0;
        if (!bits.readExpGolomb(start, &u))
            return false;
        put(n, u);
    }
    RiceParameter parameter(start);
    for (; n < channel.frames; ++n) {
        const uint32_t u = bits.readRice(parameter.value());
        parameter.follow(u);
        put(n, u);
    }
    return bits.atEnd();
}

bool decodeBlock(std::span<const uint8_t> bytes, const Channel& channel)
{
    if (bytes.empty())
        return false;
    const int mode = bytes[0];
    if (mode == kPlainMode)
        return decodePlain(bytes.subspan(1), channel);
    if (mode == kConstantMode)
        return decodeConstant(bytes.subspan(1), channel);
    return mode <= kMaximumOrder && decodePredicted(mode, bytes.subspan(1), channel);
}

// The channel block at the start of bytes, without its size, which is 2 bytes more. Empty: there is none.
std::span<const uint8_t> firstBlock(std::span<const uint8_t> bytes)
{
    if (bytes.size() < 2)
        return {};
    const size_t size = base::loadLittle<uint16_t>(bytes.data());
    return size <= bytes.size() - 2 ? bytes.subspan(2, size) : std::span<const uint8_t>();
}

} // namespace

size_t superblockBytes(std::span<const uint8_t> bytes, int channels)
{
    size_t total = 0;
    for (int channel = 0; channel < channels; ++channel) {
        const auto block = firstBlock(bytes.subspan(total));
        if (block.empty())
            return 0;
        total += 2 + block.size();
    }
    return total;
}

size_t decodeSuperblock(std::span<const uint8_t> bytes, int channels, int frames, int16_t* interleaved)
{
    assert(channels >= 1 && channels <= kMaximumChannels && frames >= 1 && frames <= kSuperblockFrames);
    size_t total = 0;
    for (int channel = 0; channel < channels; ++channel) {
        const auto block = firstBlock(bytes.subspan(total));
        if (!decodeBlock(block, {interleaved + channel, channels, frames, channel == 0}))
            return 0;
        total += 2 + block.size();
    }
    return total;
}

} // namespace bank::kadpcm
