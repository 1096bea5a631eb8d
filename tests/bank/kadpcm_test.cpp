// SPDX-License-Identifier: MIT
#include "bank/kadpcm.hpp"

#include "bank/checksum.hpp"
#include "support/sound_files.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <random>

namespace {

using namespace bank::kadpcm;
using Samples = std::vector<int16_t>; // interleaved

struct Encoded
{
    std::vector<uint8_t> bytes;
    std::vector<uint32_t> sizes; // of the superblocks

    bool operator==(const Encoded&) const = default;
};

Encoded encode(const Samples& samples, int channels, size_t framesAtOnce = 1 << 30)
{
    Encoded encoded;
    Encoder encoder(channels);
    std::span<const int16_t> rest = samples;
    while (!rest.empty()) {
        const auto part = rest.first(std::min(rest.size(), framesAtOnce * size_t(channels)));
        encoder.encode(part, encoded.bytes, &encoded.sizes);
        rest = rest.subspan(part.size());
    }
    encoder.finish(encoded.bytes, &encoded.sizes);
    return encoded;
}

// Decodes all bytes; empty if their number doesn't match that of the samples.
Samples decode(const std::vector<uint8_t>& bytes, int channels, size_t frames)
{
    Samples samples(frames * size_t(channels));
    std::span<const uint8_t> rest = bytes;
    for (size_t n = 0; n < frames; n += kSuperblockFrames) {
        const int part = int(std::min<size_t>(kSuperblockFrames, frames - n));
        const size_t used = decodeSuperblock(rest, channels, part, &samples[n * size_t(channels)]);
        if (used == 0 || used != superblockBytes(rest, channels) || used > maximumSuperblockBytes(channels, part))
            return {};
        rest = rest.subspan(used);
    }
    return rest.empty() ? samples : Samples();
}

Samples roundTrip(const Samples& samples, int channels)
{
    return decode(encode(samples, channels).bytes, channels, samples.size() / size_t(channels));
}

double signalToNoise(const Samples& original, const Samples& decoded)
{
    return test::signalToNoise(std::vector<float>(original.begin(), original.end()),
                               std::vector<float>(decoded.begin(), decoded.end()));
}

double bitsPerSample(const Encoded& encoded, const Samples& samples)
{
    return 8.0 * double(encoded.bytes.size()) / double(samples.size());
}

Samples make(size_t count, const std::function<double(size_t)>& value)
{
    Samples samples(count);
    for (size_t n = 0; n < count; ++n)
        samples[n] = int16_t(std::lrint(std::clamp(value(n), -32768.0, 32767.0)));
    return samples;
}

double sine(size_t n, double cycles, double length)
{
    return std::sin(2 * std::numbers::pi * cycles * double(n) / length);
}

Samples twoTones(size_t count)
{
    return make(count, [](size_t n) { return 9000 * sine(n, 440, 44'100) + 5000 * sine(n, 1230, 44'100); });
}

Samples noise(size_t count, double amplitude)
{
    std::mt19937 random(7);
    return make(count, [&](size_t) { return amplitude * (double(random()) / 2147483648.0 - 1); });
}

Samples fadingNoise(size_t count)
{
    Samples samples = noise(count, 32'000);
    for (size_t n = 0; n < count; ++n)
        samples[n] = int16_t(samples[n] * std::exp(-8.0 * double(n) / double(count)));
    return samples;
}

TEST(Kadpcm, EverySoundStaysWithinItsBitsAndAboveItsQuality)
{
    constexpr size_t kCount = 100'000;
    std::mt19937 random(3);
    const std::tuple<const char*, Samples, double> cases[] = {
        {"two tones", twoTones(kCount), 60},
        {"quiet tone", make(kCount, [](size_t n) { return 20 * sine(n, 440, 44'100); }), 100},
        {"white noise at full scale", noise(kCount, 32'767), 22},
        {"fading noise", fadingNoise(kCount), 24},
        {"square at full scale", make(kCount, [](size_t n) { return n / 50 % 2 ? 40'000 : -40'000; }), 35},
        {"clipped sine", make(kCount, [](size_t n) { return 60'000 * sine(n, 440, 44'100); }), 35},
        {"impulses", make(kCount, [](size_t n) { return n % 1000 == 999 ? 32'767 : 0; }), 100},
        {"one step", make(kCount, [](size_t n) { return n < 50'001 ? -32'768 : 32'767; }), 100},
        {"random bits", make(kCount, [&](size_t) { return random() & 1 ? 32'767 : -32'768; }), 15},
        {"silence and noise", make(kCount, [&](size_t n) { return n < 60'000 ? 0 : random() % 20'000; }), 40},
    };
    for (const auto& [name, samples, decibels] : cases) {
        SCOPED_TRACE(name);
        const Encoded encoded = encode(samples, 1);
        const Samples decoded = decode(encoded.bytes, 1, samples.size());
        ASSERT_EQ(decoded.size(), samples.size());
        EXPECT_LE(bitsPerSample(encoded, samples), 4.34);
        EXPECT_GE(signalToNoise(samples, decoded), decibels);
    }
}

TEST(Kadpcm, ConstantSamplesAreExactAndTakeAlmostNoSpace)
{
    for (const int value : {0, 1, -1, 12'345, 32'767, -32'768}) {
        const Samples samples(50'000, int16_t(value));
        EXPECT_EQ(roundTrip(samples, 2), samples) << value;
        EXPECT_LT(bitsPerSample(encode(samples, 2), samples), 0.05) << value;
    }
}

TEST(Kadpcm, ShortSoundsAreNoWorseThanLongOnes)
{
    const double longOne = signalToNoise(noise(100'000, 20'000), roundTrip(noise(100'000, 20'000), 1));
    for (const size_t frames : {1, 2, 3, 5, 20, 27, 33, 64, 255, 1000, 2047, 2048, 2049, 2050, 4097}) {
        for (const int channels : {1, 2, 3}) {
            const Samples samples = noise(frames * size_t(channels), 20'000);
            const Samples decoded = roundTrip(samples, channels);
            ASSERT_EQ(decoded.size(), samples.size()) << frames;
            EXPECT_GT(signalToNoise(samples, decoded), longOne - 1.5) << frames << " frames, " << channels;
        }
    }
    EXPECT_TRUE(encode({}, 1).bytes.empty());
}

TEST(Kadpcm, TheSameSamplesGiveTheSameBytesHoweverTheyAreDivided)
{
    // Sounds of several segments, one of them with the maximum number of channels.
    for (const int channels : {1, 32}) {
        const size_t frames = 2 * Encoder::kSegmentSamples / size_t(channels) + 12'345;
        Samples samples = fadingNoise(frames * size_t(channels));
        std::reverse(samples.begin(), samples.begin() + ptrdiff_t(samples.size() / 2));
        const Encoded atOnce = encode(samples, channels);
        EXPECT_LE(bitsPerSample(atOnce, samples), 4.34);
        for (const size_t framesAtOnce : {size_t{777}, size_t{2048}, size_t{400'000}})
            EXPECT_TRUE(encode(samples, channels, framesAtOnce) == atOnce) << framesAtOnce;
        EXPECT_GT(signalToNoise(samples, decode(atOnce.bytes, channels, frames)), 20) << channels;
    }
}

TEST(Kadpcm, SimilarChannelsShareTheirBits)
{
    const Samples left = noise(50'000, 12'000);
    const Samples other = make(50'000, [](size_t n) { return 30 * sine(n, 700, 44'100); });
    const double alone = signalToNoise(left, roundTrip(left, 1));
    for (const auto& [share, rest] : {std::pair{1.0, 0.0}, std::pair{-1.0, 1.0}, std::pair{0.5, 1.0}}) {
        Samples samples;
        for (size_t n = 0; n < left.size(); ++n) {
            samples.push_back(left[n]);
            samples.push_back(int16_t(std::lrint(share * left[n] + rest * other[n])));
        }
        EXPECT_GT(signalToNoise(samples, roundTrip(samples, 2)), alone + 5) << share;
    }
}

TEST(Kadpcm, DamagedBytesAreRefusedOrDecodeToSomething)
{
    constexpr int kChannels = 2;
    constexpr int kFrames = 300;
    Samples samples = twoTones(kChannels * kFrames);
    samples[101] = 32'767;
    const std::vector<uint8_t> good = encode(samples, kChannels).bytes;
    Samples out(samples.size());
    for (size_t size = 0; size < good.size(); ++size) {
        // A vector of exactly that size, so that a read past its end is noticed.
        const std::vector<uint8_t> cut(good.begin(), good.begin() + ptrdiff_t(size));
        EXPECT_EQ(superblockBytes(cut, kChannels), 0U) << size;
        EXPECT_EQ(decodeSuperblock(cut, kChannels, kFrames, out.data()), 0U) << size;
    }
    // A wrong number of frames is noticed too.
    EXPECT_EQ(decodeSuperblock(good, kChannels, kFrames / 2, out.data()), 0U);
    Samples larger(kChannels * kSuperblockFrames);
    EXPECT_EQ(decodeSuperblock(good, kChannels, kSuperblockFrames, larger.data()), 0U);

    std::mt19937 random(11);
    int refused = 0;
    for (int i = 0; i < 30'000; ++i) {
        std::vector<uint8_t> bytes = good;
        if (i % 3 == 0) { // random bytes after a plausible header
            for (uint8_t& byte : bytes)
                byte = uint8_t(random());
            bytes[0] = uint8_t(bytes.size() / 2);
            bytes[1] = 0;
            bytes[2] %= 33;
        } else {
            for (int change = i % 4; change >= 0; --change)
                bytes[random() % (i % 2 ? 12 : bytes.size())] = uint8_t(random());
        }
        const size_t used = decodeSuperblock(bytes, kChannels, kFrames, out.data());
        ASSERT_LE(used, bytes.size());
        refused += used == 0;
    }
    EXPECT_GT(refused, 10'000);
}

} // namespace
