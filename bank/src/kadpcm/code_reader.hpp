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
            u = riceValue(next, zeros, p);
            bit += zeros + 1 + p;
        }
        parameter.follow(u);
        return u;
    }

    // The next kGroup Rice codes.
    [[gnu::always_inline]] std::array<uint32_t, kGroup> readRiceGroup()
    {
        std::array<uint32_t, kGroup> codes;
        if (!readShortCodes(codes)) [[unlikely]] {
            CodePosition copy = *this; // as memory: the original stays in registers
            codes = copy.readLongCodes();
            *this = copy;
        }
        return codes;
    }

private:
    static constexpr unsigned kWordBits = 57;

    // The zeros are followed by a one, which is read as a bit above the p low ones. zeros + p: at most 63.
    [[gnu::always_inline]] static uint32_t riceValue(uint64_t next, unsigned zeros, unsigned p)
    {
        return ((zeros - 1) << p) + static_cast<uint32_t>(next << zeros >> (63 - p));
    }

    // Reads kGroup codes from one word. False, with nothing read: one of them is escaped, they have more than kWordBits
    // bits, or the parameter is unusually high.
    [[gnu::always_inline]] bool readShortCodes(std::array<uint32_t, kGroup>& codes)
    {
        uint64_t next = word();
        unsigned used = 0;
        RiceParameter following = parameter;
        if (!following.isModerate())
            return false;
#pragma GCC unroll 4
        for (uint32_t& code : codes) {
            if (next >> (64 - kEscapeZeros) == 0) [[unlikely]]
                return false;
            const auto zeros = static_cast<unsigned>(std::countl_zero(next));
            const auto p = static_cast<unsigned>(following.valueUnlimited());
            code = riceValue(next, zeros, p);
            next <<= zeros + 1 + p;
            used += zeros + 1 + p;
            following.follow(code);
        }
        if (used > kWordBits) [[unlikely]]
            return false;
        bit += used;
        parameter = following;
        return true;
    }

    [[gnu::noinline, gnu::cold]] std::array<uint32_t, kGroup> readLongCodes()
    {
        std::array<uint32_t, kGroup> codes;
        for (uint32_t& code : codes)
            code = readRice();
        return codes;
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
        mEnd = bytes.data() + bytes.size();
        return {bytes.data(), 0, RiceParameter(0)};
    }

    // Makes as many bytes readable as a group of codes or a field can take. False: more was read than there was.
    [[nodiscard, gnu::always_inline]] bool prepare(CodePosition& position)
    {
        const ptrdiff_t left = mEnd - position.bytes - static_cast<ptrdiff_t>(position.bit >> 3);
        return left >= kGroupBytes || enterTail(position, left);
    }

    // Whether all was read but the padding of the last byte, and nothing beyond it.
    [[nodiscard]] bool isReached(const CodePosition& position) const
    {
        const ptrdiff_t left = (mEnd - position.bytes) * 8 - static_cast<ptrdiff_t>(position.bit);
        return left >= 0 && left < 8;
    }

private:
    static constexpr ptrdiff_t kGroupBytes = (kGroup * (kEscapeZeros + kEscapeBits) + 7) / 8 + 8;

    [[gnu::noinline]] bool enterTail(CodePosition& position, ptrdiff_t left)
    {
        if (mIsInTail)
            return left >= 0;
        std::copy_n(mEnd - left, left, mTail.begin());
        position.bytes = mTail.data();
        position.bit &= 7;
        mEnd = mTail.data() + left;
        mIsInTail = true;
        return true;
    }

    const uint8_t* mEnd = nullptr;
    bool mIsInTail = false;
    std::array<uint8_t, 2 * kGroupBytes> mTail{}; // the last bytes, and zeros after them
};

} // namespace bank::kadpcm
