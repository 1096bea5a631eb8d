// SPDX-License-Identifier: MIT
// What the decoder and the encoder of KADPCM have in common: every rule by which they must agree to the bit. The rules
// themselves are in bank/kadpcm.hpp.
#pragma once

#include "bank/kadpcm.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <numbers>

namespace bank::kadpcm {

enum Mode : int // a lower number is the order of a predicted block
{
    kConstantMode = 62,
    kPlainMode = 63,
};

inline constexpr int kCouplingBits = 5;
inline constexpr int kCouplingOffset = 16;
inline constexpr int kStartBits = 5;
inline constexpr int kHighestStart = 17;
inline constexpr int kFirstSampleBits = 16;
inline constexpr int kEscapeZeros = 20;
inline constexpr int kEscapeBits = 17; // an unfolded difference of two samples fits in them
inline constexpr int kHighestStep = 255;
inline constexpr int kGroup = 4; // samples that are decoded together

// The lower coefficients of a strongly predictable sound lie close to 1, where a small error costs much.
constexpr int coefficientBits(int number)
{
    return number <= 2 ? 9 : number <= 8 ? 7 : 6;
}
inline constexpr int kMaximumCoefficientBits = 9;

namespace detail {

// Taylor's series: within an ulp or two in the first quadrant, and evaluated by the compiler, so that no library's
// sine has a say in the format.
constexpr double sine(double angle)
{
    double term = angle;
    double sum = angle;
    for (int n = 3; n < 30; n += 2) {
        term *= -angle * angle / (n * (n - 1));
        sum += term;
    }
    return sum;
}

// 2^20 * sin(i * pi / 2^kMaximumCoefficientBits) in the first quadrant.
constexpr auto makeSineTable()
{
    std::array<int32_t, (1 << (kMaximumCoefficientBits - 1)) + 1> table{};
    for (size_t i = 0; i < table.size(); ++i) {
        const double angle = static_cast<double>(i) * std::numbers::pi / (1 << kMaximumCoefficientBits);
        // NOLINTNEXTLINE(bugprone-incorrect-roundings): lround isn't constexpr, and nothing here is below 0
        table[i] = static_cast<int32_t>(sine(angle) * (1 << 20) + 0.5);
    }
    return table;
}

} // namespace detail

inline constexpr auto kSineTable = detail::makeSineTable();

// The reflection coefficient in 1/2^20. index: two's complement of coefficientBits(number) bits.
constexpr int32_t reflectionCoefficient(int number, int index)
{
    const int position = index * (1 << (kMaximumCoefficientBits - coefficientBits(number)));
    return position < 0 ? -kSineTable[static_cast<size_t>(-position)] : kSineTable[static_cast<size_t>(position)];
}

// In 1/256.
constexpr int32_t stepSize(int step)
{
    constexpr std::array<int16_t, 16> kMantissa = {256, 267, 279, 292, 304, 318, 332, 347,
                                                   362, 378, 395, 412, 431, 450, 470, 490};
    return kMantissa[static_cast<size_t>(step & 15)] << (step >> 4);
}

// A branch is quicker than two conditional moves, on which the next sample would wait: few samples are clipped.
constexpr int64_t clampSample(int64_t value)
{
    if (static_cast<uint64_t>(value + 32768) > 65535) [[unlikely]]
        return value < 0 ? -32768 : 32767;
    return value;
}

constexpr uint32_t fold(int q)
{
    return q < 0 ? ~(static_cast<uint32_t>(q) << 1) : static_cast<uint32_t>(q) << 1;
}

constexpr int64_t unfold(int64_t u)
{
    return (u >> 1) ^ -(u & 1);
}

constexpr int64_t couple(int64_t coupling, int64_t sample)
{
    return (coupling * sample + 4) >> 3;
}

// The difference that the code q stands for.
constexpr int64_t dequantised(int64_t q, int64_t stepSize)
{
    return (q * stepSize + 128) >> 8;
}

// The parameter of the Rice code, which follows the mean of what was coded.
class RiceParameter
{
public:
    explicit RiceParameter(int start)
        : mAverage(24U << start)
    { }

    // The number of bits of mAverage >> 5, at most kHighestStart. Only codes that no encoder writes reach this limit.
    [[nodiscard]] int value() const { return std::min(31 - static_cast<int>(complement()), kHighestStart); }

    // 31 minus the value without its limit: exact as long as isModerate() was true before the last 64 bits of codes.
    [[nodiscard]] unsigned complement() const { return static_cast<unsigned>(__builtin_clz(mAverage >> 4 | 1)); }
    [[nodiscard]] bool isModerate() const { return mAverage < 1 << 18; }

    void follow(uint32_t u) { mAverage += u - (mAverage >> 4); }

private:
    uint32_t mAverage; // sixteen times the mean; below 2^26 even for codes that no encoder writes
};

} // namespace bank::kadpcm
