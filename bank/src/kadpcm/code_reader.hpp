// SPDX-License-Identifier: MIT
// Reads the bits of one predicted block of KADPCM: its fields, and the codes of its samples.
#pragma once

#include "kadpcm/format.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <span>

namespace bank::kadpcm {

// The position in a block's bits, most significant first, and the parameter of the next code. Small and without a
// pointer to itself: the decoder's loop works on a copy, which stays in registers.
struct CodePosition
{
    const uint8_t* bytes = nullptr;
    uint64_t bit = 0; // from bytes on
    RiceParameter parameter{0};

    // The next kWordBits bits or more, from the top. Eight bytes must be readable.
    [[nodiscard, gnu::always_inline]] uint64_t word() const
    {
        uint64_t loaded;
        std::memcpy(&loaded, bytes + (bit >> 3), sizeof loaded);
        return __builtin_bswap64(loaded) << (bit & 7);
    }

    // count: 1 to 32.
    uint32_t read(int count)
    {
        const auto value = static_cast<uint32_t>(word() >> (64 - count));
        bit += static_cast<unsigned>(count);
        return value;
    }

    int readSigned(int count)
    {
        const uint32_t sign = 1U << (count - 1);
        return static_cast<int>(read(count) ^ sign) - static_cast<int>(sign);
    }

    // False: more zeros than the code has.
    bool readExpGolomb(int order, uint32_t* u)
    {
        const int zeros = std::countl_zero(word());
        if (zeros > kEscapeBits - order)
            return false;
        bit += static_cast<unsigned>(zeros);
        *u = read(zeros + order + 1) - (1U << order);
        return true;
    }

    // The next Rice code.
    uint32_t readRice()
    {
        const uint64_t next = word();
        const auto zeros = static_cast<unsigned>(std::countl_zero(next));
        uint32_t u = 0;
        if (zeros >= kEscapeZeros) {
            bit += kEscapeZeros;
            u = read(kEscapeBits);
        } else {
            const auto p = static_cast<unsigned>(parameter.value());
            // The one after the zeros is read as a bit above the p low ones.
            u = ((zeros - 1) << p) + static_cast<uint32_t>(next << zeros >> (63 - p));
            bit += zeros + 1 + p;
        }
        parameter.follow(u);
        return u;
    }

    // The next kGroup Rice codes.
    [[gnu::always_inline]] void readRiceGroup(uint32_t* codes)
    {
        if (readShortCodes(codes)) [[likely]]
            return;
        CodePosition copy = *this; // as memory: the original stays in registers
        copy.readLongCodes(codes);
        *this = copy;
    }

private:
    static constexpr unsigned kWordBits = 57;

    // Reads kGroup codes from one word. False, with nothing read: one of them is escaped, they have more than kWordBits
    // bits, or the parameter is unusually high. Each code waits for the parameter, which waits for the code before it:
    // what doesn't need the parameter is computed first, and one shift gives the code.
    [[gnu::always_inline]] bool readShortCodes(uint32_t* codes)
    {
        uint64_t next = word();
        unsigned used = 0;
        RiceParameter following = parameter;
        if (!following.isModerate()) [[unlikely]]
            return false;
#pragma GCC unroll 4
        for (int i = 0; i < kGroup; ++i) {
            const auto zeros = static_cast<unsigned>(std::countl_zero(next));
            if (zeros >= kEscapeZeros) [[unlikely]]
                return false;
            // The number of zeros from bit 31 on, then the bits after the one that ends them.
            const uint64_t aligned = (next << zeros >> 32) + ((uint64_t{zeros} - 1) << 31);
            const unsigned complement = following.complement();
            codes[i] = static_cast<uint32_t>(aligned >> complement);
            const unsigned bits = zeros + 32 - complement;
            next <<= bits;
            used += bits;
            following.follow(codes[i]);
        }
        if (used > kWordBits) [[unlikely]]
            return false;
        bit += used;
        parameter = following;
        return true;
    }

    [[gnu::noinline, gnu::cold]] void readLongCodes(uint32_t* codes)
    {
        for (int i = 0; i < kGroup; ++i)
            codes[i] = readRice();
    }
};

// The end of a block's bits. Beyond it there are zeros, so that codes need no check before they are read.
class CodeEnd
{
public:
    CodeEnd() = default;
    CodeEnd(const CodeEnd&) = delete;
    CodeEnd& operator=(const CodeEnd&) = delete;

    [[nodiscard]] CodePosition open(std::span<const uint8_t> bytes)
    {
        setEnd(static_cast<int64_t>(bytes.size()));
        return {bytes.data(), 0, RiceParameter(0)};
    }

    // Makes as many bytes readable as a group of codes or a field can take. False: more was read than there was.
    [[nodiscard, gnu::always_inline]] bool prepare(CodePosition& position)
    {
        return static_cast<int64_t>(position.bit) < mUnchecked || enterTail(position);
    }

    // Whether all was read but the padding of the last byte, and nothing beyond it.
    [[nodiscard]] bool isReached(const CodePosition& position) const
    {
        const int64_t left = mBits - static_cast<int64_t>(position.bit);
        return left >= 0 && left < 8;
    }

private:
    static constexpr int64_t kGroupBytes = (kGroup * (kEscapeZeros + kEscapeBits) + 7) / 8 + 8;

    void setEnd(int64_t bytes)
    {
        mBits = 8 * bytes;
        mUnchecked = mIsInTail ? 0 : 8 * (bytes - kGroupBytes + 1);
    }

    [[gnu::noinline]] bool enterTail(CodePosition& position)
    {
        const int64_t byte = static_cast<int64_t>(position.bit >> 3);
        const int64_t left = mBits / 8 - byte;
        if (mIsInTail)
            return left >= 0;
        std::copy_n(position.bytes + byte, left, mTail.begin());
        position.bytes = mTail.data();
        position.bit &= 7;
        mIsInTail = true;
        setEnd(left);
        return true;
    }

    int64_t mBits = 0; // of the block, or of what is left of it in mTail
    int64_t mUnchecked = 0; // the first bit of which a group has less than kGroupBytes after it
    bool mIsInTail = false;
    std::array<uint8_t, 2 * kGroupBytes> mTail{}; // the last bytes, and zeros after them
};

} // namespace bank::kadpcm
