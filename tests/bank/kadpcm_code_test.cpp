// SPDX-License-Identifier: MIT
// KADPCM's quick code against its plain code: both must give the same bits on every processor.
#include "kadpcm/code_reader.hpp"
#include "kadpcm/prediction.hpp"

#include "bank/checksum.hpp"
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
        CodePosition group{bytes.data(), uint64_t(round % 8), RiceParameter(round % (kHighestStart + 1))};
        CodePosition single = group;
        while (group.bit / 8 < bytes.size() - 64) {
            const std::array<uint32_t, kGroup> codes = group.readRiceGroup();
            for (const uint32_t code : codes)
                ASSERT_EQ(code, single.readRice()) << "round " << round << ", bit " << single.bit;
            ASSERT_EQ(group.bit, single.bit) << "round " << round;
        }
    }
}

// Three channels of integers, from silence over a tone to overdriven noise.
std::vector<int16_t> integerSound()
{
    std::vector<int16_t> samples;
    uint32_t noise = 1;
    int position = 0;
    int speed = 20'000;
    for (int n = 0; n < 20'000; ++n) {
        noise = noise * 1'664'525 + 1'013'904'223;
        position += speed / 256;
        speed -= position / 256;
        const int hiss = int(noise >> 16) - 32'768;
        const int tone = position / 4 + (n < 8000 ? hiss / 512 : hiss / 16);
        const int loud = n < 14'000 ? 0 : hiss;
        for (const int value : {tone, tone / 2 + loud, n % 5000 < 100 ? 0 : loud / 4 - tone})
            samples.push_back(int16_t(std::clamp(value, -32'768, 32'767)));
    }
    return samples;
}

TEST(KadpcmFormat, IsTheSameOnEveryProcessorAndInEveryVersion)
{
    constexpr int kChannels = 3;
    const std::vector<int16_t> samples = integerSound();
    std::vector<uint8_t> bytes;
    Encoder encoder(kChannels);
    encoder.encode(samples, bytes);
    encoder.finish(bytes);
    std::vector<int16_t> decoded(samples.size());
    size_t used = 0;
    for (size_t n = 0; n < samples.size(); n += size_t(kSuperblockFrames) * kChannels) {
        const size_t frames = std::min<size_t>(kSuperblockFrames, (samples.size() - n) / kChannels);
        used += decodeSuperblock(std::span(bytes).subspan(used), kChannels, int(frames), &decoded[n]);
    }
    EXPECT_EQ(used, bytes.size());
    EXPECT_EQ(bank::checksum(bytes), 14'782'077'028'687'554'202U);
    EXPECT_EQ(bank::checksum(std::span(reinterpret_cast<const uint8_t*>(decoded.data()), 2 * decoded.size())),
              11'401'503'143'947'541'575U);
}

} // namespace
