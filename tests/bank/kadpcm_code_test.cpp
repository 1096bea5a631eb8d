// SPDX-License-Identifier: MIT
// KADPCM's quick code against its plain code: both must give the same bits on every processor.
#include "kadpcm/code_reader.hpp"
#include "kadpcm/decoder.hpp"
#include "kadpcm/prediction.hpp"

#include "bank/checksum.hpp"
#include "bank/kadpcm.hpp"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using namespace bank::kadpcm;
using Sums = std::array<double, kGroup>;

template <typename Code, int FirstAge>
Sums sums(const TapTable& taps, const double* history)
{
    Sums sums;
    Code::template sumOlder<FirstAge>(taps, kHalf, history, sums.data());
    return sums;
}

template <int FirstAge>
void expectSums(const TapTable& taps, const double* history)
{
    const Sums expected = sums<PlainCode, FirstAge>(taps, history);
    EXPECT_EQ((sums<Sse2Code, FirstAge>(taps, history)), expected) << "order " << taps.order;
    if (Avx2Code::isSupported()) {
        EXPECT_EQ((sums<Avx2Code, FirstAge>(taps, history)), expected) << "order " << taps.order;
    }
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
            expectSums<2>(taps, group); // as the encoder does
            expectSums<kGroup + 1>(taps, group); // as the decoder does
        }
    }
}

template <typename Code>
void expectAdded(const std::array<uint32_t, kGroup>& codes, int step)
{
    const Sums start = {0.25, -1000.5, 0, 98'303.75};
    Sums sums = start;
    std::array<int32_t, kGroup> added;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(added.data()),
                     Code::addCodes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(codes.data())),
                                    stepSize(step) / 256.0, sums.data()));
    for (size_t k = 0; k < kGroup; ++k) {
        const int64_t expected = dequantised(unfold(codes[k]), stepSize(step));
        EXPECT_EQ(added[k], std::abs(expected) < int64_t{1} << 31 ? expected : INT32_MIN) << "step " << step;
        EXPECT_EQ(sums[k], start[k] + double(expected)) << "step " << step;
    }
}

TEST(KadpcmVectorCode, AddsTheDifferencesOfCodes)
{
    constexpr uint32_t kLargest = 20U << kHighestStart;
    std::mt19937 random(5);
    for (int step = 0; step <= kHighestStep; ++step) {
        for (int round = 0; round < 50; ++round) {
            std::array<uint32_t, kGroup> codes;
            for (uint32_t& code : codes)
                code = random() % kLargest >> random() % 22;
            codes[size_t(round % kGroup)] = round < 8 ? kLargest - uint32_t(round) : codes[0];
            expectAdded<Sse2Code>(codes, step);
            if (Avx2Code::isSupported())
                expectAdded<Avx2Code>(codes, step);
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
            std::array<uint32_t, kGroup> codes;
            group.readRiceGroup(codes.data());
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

// Returns how many superblocks are refused.
int expectTheSameOfAllCodes(std::span<const uint8_t> bytes, int channels, int frames)
{
    std::vector<int16_t> expected(size_t(frames * channels));
    const size_t used = decodeSuperblock(bytes, channels, frames, expected.data(), VectorCode::None);
    for (const VectorCode code : {VectorCode::Sse2, VectorCode::Avx2}) {
        if (code > bestVectorCode())
            continue;
        std::vector<int16_t> decoded(expected.size());
        EXPECT_EQ(decodeSuperblock(bytes, channels, frames, decoded.data(), code), used) << int(code);
        EXPECT_TRUE(used == 0 || decoded == expected) << int(code);
    }
    return used == 0;
}

// With samples at the limits, where groups are decoded again, and damage, which gives codes that no encoder writes.
TEST(KadpcmVectorCode, DecodesAndRefusesAsPlainCodeDoes)
{
    std::mt19937 random(17);
    const std::vector<int16_t> sound = integerSound();
    for (const int channels : {1, 2, 3}) {
        std::vector<uint8_t> bytes;
        std::vector<uint32_t> sizes;
        Encoder encoder(channels);
        encoder.encode(std::span(sound).first(sound.size() / size_t(channels) * size_t(channels)), bytes, &sizes);
        encoder.finish(bytes, &sizes);
        std::span<const uint8_t> rest = bytes;
        int refused = 0;
        for (const uint32_t size : std::span(sizes).first(sizes.size() - 1)) {
            EXPECT_EQ(expectTheSameOfAllCodes(rest.first(size), channels, kSuperblockFrames), 0);
            for (int round = 0; round < 60; ++round) {
                std::vector<uint8_t> damaged(rest.begin(), rest.begin() + size);
                if (round % 3 == 0) // the step
                    damaged[3] = uint8_t(random());
                else
                    damaged[2 + random() % (round % 3 == 1 ? 30 : size - 2)] = uint8_t(random());
                refused += expectTheSameOfAllCodes(damaged, channels, kSuperblockFrames);
            }
            rest = rest.subspan(size);
        }
        EXPECT_GT(refused, 100);
    }
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
