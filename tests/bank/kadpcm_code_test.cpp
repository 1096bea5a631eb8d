// SPDX-License-Identifier: MIT
// KADPCM's quick code against its plain code: both must give the same bits on every processor.
#include "kadpcm/code_reader.hpp"
#include "kadpcm/prediction.hpp"

#include "bank/kadpcm.hpp"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using namespace bank::kadpcm;
using Sums = std::array<double, kGroup>;
using Differences = std::array<int64_t, kGroup>;

template <typename Code>
Sums sums(const TapTable& taps, const double* history)
{
    Sums sums;
    Code::sumOlder(taps, history, sums.data());
    return sums;
}

template <typename Code>
Differences differences(const std::array<uint32_t, kGroup>& codes, int step)
{
    Differences differences;
    Code::dequantise(codes, {stepSize(step), stepSize(step) / 256.0}, differences.data());
    for (int64_t& difference : differences) // beyond 2^17 all are equal
        difference = std::clamp<int64_t>(difference, -(1 << 17), 1 << 17);
    return differences;
}

TEST(KadpcmVectorCode, SumsAsPlainCodeDoes)
{
    constexpr int kLargest = 98'304; // the largest sample, and its largest coupled part
    std::mt19937 random(3);
    std::array<double, kHistoryFrames> history;
    for (int order = 0; order <= kMaximumOrder; ++order) {
        for (int round = 0; round < 50; ++round) {
            TapTable taps;
            taps.order = order;
            const bool isExtreme = round < 4;
            for (int i = 0; i < order; ++i) {
                const int largest = round & 1 ? -(1 << 30) : 1 << 30;
                taps.coefficients[size_t(i)] = isExtreme ? largest : double(int32_t(random()) >> 1);
            }
            for (double& difference : history) {
                const int largest = round & 2 ? -kLargest : kLargest;
                difference = isExtreme ? largest : double(random() % (2 * kLargest + 1)) - kLargest;
            }
            const double* group = history.data() + history.size();
            const Sums expected = sums<PlainCode>(taps, group);
            EXPECT_EQ(sums<Sse2Code>(taps, group), expected) << "order " << order;
            if (Avx2Code::isSupported()) {
                EXPECT_EQ(sums<Avx2Code>(taps, group), expected) << "order " << order;
            }
        }
    }
}

TEST(KadpcmVectorCode, DequantisesAsPlainCodeDoes)
{
    if (!Avx2Code::isSupported())
        GTEST_SKIP() << "this processor has no such code";
    constexpr uint32_t kLargest = 20U << kHighestStart;
    std::mt19937 random(5);
    for (int step = 0; step <= kHighestStep; ++step) {
        for (int round = 0; round < 50; ++round) {
            std::array<uint32_t, kGroup> codes;
            for (uint32_t& code : codes)
                code = random() % kLargest >> random() % 22;
            codes[size_t(round % kGroup)] = round < 8 ? kLargest - uint32_t(round) : codes[0];
            EXPECT_EQ(differences<Avx2Code>(codes, step), differences<PlainCode>(codes, step)) << "step " << step;
        }
    }
}

// Four codes from one word are those that are read one by one, whether they fit the word or not.
TEST(KadpcmCodes, OfAGroupAreReadAsOneByOne)
{
    std::mt19937 random(9);
    std::vector<uint8_t> bytes(4096);
    for (int round = 0; round < 300; ++round) {
        // More and more zeros: from short codes to escaped ones.
        for (uint8_t& byte : bytes)
            byte = uint8_t(random() % 6 < unsigned(round % 6) ? 0 : random());
        CodePosition group{bytes.data(), uint64_t(round % 8), RiceParameter(round % (kHighestStep + 1))};
        CodePosition single = group;
        while (group.bit / 8 < bytes.size() - 64) {
            for (const uint32_t code : group.readRiceGroup())
                ASSERT_EQ(code, single.readRice()) << "round " << round << ", bit " << single.bit;
            ASSERT_EQ(group.bit, single.bit) << "round " << round;
        }
    }
}

} // namespace
