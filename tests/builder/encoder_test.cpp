// SPDX-License-Identifier: MIT
// Encoders and the engine's decoders together: the decoded sound is the encoded one, from any position and through the
// loop.
#include "encode/data_stream.hpp"
#include "encode/encoders.hpp"
#include "support/bank_maker.hpp"
#include "support/engine_access.hpp"
#include "support/sound_files.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

using namespace bank_test;
using bank::Codec;
using base::ErrorCode;
using test::readFloats;
using test::signalToNoise;
using test::squaredError;

namespace {

constexpr std::span<const Codec> kLossyCodecs = std::span(kCodecs).subspan(1);

// A bank of one sound, opened by the engine.
test::SoundPointer openedBank(const EncodedSound& sound)
{
    static const test::Engine engine;
    test::writeFile("opened.tnb", makeBank({sound}));
    test::SoundPointer opened = engine.open("opened.tnb");
    std::remove("opened.tnb");
    return opened;
}

// At the rate at which the codec encodes a sound of this one.
MemorySound soundFor(Codec codec, int channels, const std::vector<float>& samples, uint32_t rate = 44'100)
{
    return test::Signal{channels, int(builder::encodingRate(codec, rate)), samples};
}

MemorySound music(Codec codec, size_t frames, int channels, uint32_t rate = 44'100)
{
    return soundFor(codec, channels, tones(frames, channels, {0.0031, 0.0101, 0.0178, 0.047}, 0.6f), rate);
}

// A tone with noise bursts that have a sharp attack and fade out, in a rhythm that doesn't match the length of packets.
std::vector<float> strokes(size_t frames, size_t apart, float halfLife, float tone)
{
    std::vector<float> samples = test::noise(1, 48'000, frames).samples;
    for (size_t i = 0; i < frames; ++i) {
        const auto since = float(i % apart);
        samples[i] = tone * std::sin(float(i) * 0.03f)
            + (0.5f * std::sin(since * 0.05f) + 0.2f * samples[i]) * std::exp2(-since / halfLife);
    }
    return samples;
}

TEST(PreparedSound, RepeatsTheLoopOutsideTheSoundAndIsSilentWithoutOne)
{
    // Start and end of the loop in ten frames, position, and the frame there; -1: silence.
    constexpr int cases[][4] = {{0, 0, -1, -1},  {0, 0, 0, 0},    {0, 0, 9, 9},   {0, 0, 10, -1}, {0, 10, -1, 9},
                                {0, 10, -10, 0}, {0, 10, -11, 9}, {0, 10, 10, 0}, {0, 10, 25, 5}, {4, 10, -1, -1},
                                {4, 10, 10, 4},  {4, 10, 15, 9},  {4, 10, 16, 4}, {0, 3, -1, 2},  {0, 3, -4, 2},
                                {0, 3, 5, 5},    {0, 3, 10, -1},  {2, 5, -1, -1}, {2, 5, 10, -1}};
    for (const auto& [start, end, position, frame] : cases) {
        builder::PreparedFacts facts;
        facts.sampleCount = 10;
        if (end > 0)
            facts.loop = base::Loop{uint64_t(start), uint64_t(end)};
        const std::optional<uint64_t> found = builder::frameAt(position, facts);
        EXPECT_EQ(found ? int64_t(*found) : -1, frame) << start << " to " << end << ": " << position;
    }
}

TEST(Encoders, KeepTheExactLengthAndGoodQualityAtEveryRate)
{
    // Rate, channels, frames and the minimum SNR in dB; 0 for sounds too short for a meaningful SNR.
    std::vector<std::tuple<uint32_t, int, size_t, double>> cases = {
        {44'100, 1, 30'000, 18}, {44'100, 2, 30'000, 18}, {44'100, 6, 30'000, 14}, {44'100, 32, 5'000, 0}};
    for (const int channels : {1, 2, 3, 6}) {
        for (const size_t frames : {1, 2, 19, 119, 120, 841, 960, 961, 2047, 2048, 2049})
            cases.emplace_back(44'100, channels, frames, 0);
        for (const uint32_t rate : {1, 500, 4'000, 8'000, 11'025, 16'000, 22'050, 32'000, 44'100, 48'000, 50'000,
                                    96'000, 192'000, 200'001, 768'000})
            cases.emplace_back(rate, channels, 500, 0);
    }
    for (const Codec codec : kCodecs) {
        for (const auto& [rate, channels, frames, decibels] : cases) {
            for (const bool loops : {false, true}) {
                SCOPED_TRACE(testing::Message() << "codec " << int(codec) << " rate " << rate << " channels "
                                                << channels << " frames " << frames << (loops ? " looping" : ""));
                MemorySound sound = music(codec, frames, channels, rate);
                if (!loops)
                    sound.setLoop(std::nullopt);
                const EncodedSound encoded = encode(codec, sound);
                EXPECT_EQ(encoded.sound.sampleRate, sound.facts().sampleRate);
                const test::SoundPointer opened = openedBank(encoded);
                EXPECT_EQ(test::readFacts(*opened).samples, frames);
                const std::vector<float> got = readFloats(*opened);
                const std::vector<float> wanted = sound.floats();
                ASSERT_EQ(got.size(), wanted.size());
                EXPECT_TRUE(codec != Codec::Pcm || got == wanted);
                EXPECT_TRUE(decibels == 0 || signalToNoise(wanted, got) > decibels) << signalToNoise(wanted, got);
            }
        }
    }
}

TEST(Encoders, DecodeFromAnyPositionAsFromTheStart)
{
    constexpr size_t kFrames = 120'000;
    constexpr size_t kRead = 3'000;
    for (const Codec codec : kCodecs) {
        for (const int channels : {1, 2}) {
            SCOPED_TRACE(testing::Message() << "codec " << int(codec) << " channels " << channels);
            std::mt19937 random;
            std::vector<float> frames = tones(kFrames, channels, {0.0031, 0.0178}, 0.4f);
            const std::vector<float> noise = test::noise(channels, 44'100, kFrames).samples;
            for (size_t i = 0; i < frames.size(); ++i)
                frames[i] += noise[i] * (i / 9'000 % 3 == 0 ? 0.3f : 0.01f);
            MemorySound sound = soundFor(codec, channels, frames);
            sound.setLoop(base::Loop{20'011, 100'000});
            const test::SoundPointer opened = openedBank(encode(codec, sound));
            const std::vector<float> straight = readFloats(*opened, kFrames);
            for (int i = 0; i < 60; ++i) {
                const size_t from = i == 0 ? 0 : i == 1 ? 20'011 : i == 2 ? kFrames - 1 : random() % kFrames;
                ASSERT_EQ(opened->seekData(from), KESS_OK);
                const std::vector<float> got = readFloats(*opened, kRead);
                const std::span<const float> wanted = std::span(straight).subspan(from * size_t(channels), got.size());
                ASSERT_EQ(got.size(), std::min(kRead, kFrames - from) * size_t(channels));
                if (codec == Codec::Opus)
                    EXPECT_GT(signalToNoise(wanted, got), 60) << from;
                else
                    EXPECT_TRUE(std::equal(got.begin(), got.end(), wanted.begin())) << from;
            }
        }
    }
}

TEST(OpusEncoder, OffersExactSeekPointsAmongTransients)
{
    constexpr size_t kFrames = 240'000;
    constexpr size_t kWindow = 960;
    for (const size_t apart : {1'700, 2'300, 2'900, 3'700, 4'700}) {
        for (const int quality : {1, 20, 60}) {
            SCOPED_TRACE(testing::Message() << apart << " frames apart at " << quality);
            // Three channels, each in its own stream: with strokes, silent, and steady.
            const std::vector<float> struck = strokes(kFrames, apart, 60, 0.2f);
            const std::vector<float> tone = tones(kFrames, 1, {0.01}, 0.5f);
            std::vector<float> frames(3 * kFrames);
            for (size_t i = 0; i < kFrames; ++i) {
                frames[3 * i] = struck[i];
                frames[3 * i + 2] = tone[i];
            }
            MemorySound sound = soundFor(Codec::Opus, 3, frames);
            sound.setLoop(base::Loop{100'000, 200'000});
            const EncodedSound encoded = encode(Codec::Opus, sound, quality);
            const test::SoundPointer opened = openedBank(encoded);
            const std::vector<float> straight = readFloats(*opened, kFrames);
            // With a burst in every second packet, no seek point is exact.
            EXPECT_GE(encoded.sound.seekPoints.size(), apart < 3'500 ? 0u : 4u);
            for (const bank::SeekPoint& point : encoded.sound.seekPoints) {
                const size_t from = point.position + 4 * kWindow - encoded.sound.preSkip;
                if (from >= kFrames)
                    continue;
                ASSERT_EQ(opened->seekData(0), KESS_OK);
                ASSERT_EQ(opened->seekData(from), KESS_OK);
                const std::vector<float> got = readFloats(*opened, 20 * kWindow);
                for (size_t at = 0; at + kWindow <= got.size(); at += kWindow) {
                    const std::span<const float> wanted = std::span(straight).subspan(3 * from + at, kWindow);
                    const double power = std::inner_product(wanted.begin(), wanted.end(), wanted.begin(), 0.0);
                    const double error = squaredError(wanted, std::span(got).subspan(at, kWindow));
                    EXPECT_LE(error, 1e-6 * std::max(power, 1e-3 * kWindow)) << from << " and " << at;
                }
            }
        }
    }
}

// Name, frames, loop and channels.
const std::tuple<const char*, size_t, base::Loop, int> kSeams[] = {
    {"whole", 44'100, {0, 44'100}, 1},           {"whole stereo", 44'100, {0, 44'100}, 2},
    {"inner", 44'100, {11'000, 33'000}, 1},      {"after an intro", 44'100, {11'000, 44'100}, 2},
    {"before an outro", 44'100, {0, 22'000}, 1}, {"short inner", 44'100, {20'000, 20'300}, 1},
    {"below a frame", 700, {0, 700}, 1},         {"tiny", 100, {0, 100}, 1},
    {"hardly two windows", 500, {0, 500}, 2},    {"inside a tiny one", 400, {200, 300}, 1},
    {"after a short intro", 800, {100, 200}, 2}, {"whole odd", 11'600, {0, 11'600}, 1},
};

TEST(LossyEncoders, AreNoWorseAtTheSeamOfALoopThanAnywhereElse)
{
    constexpr size_t kWindow = 256;
    for (const Codec codec : kLossyCodecs) {
        for (const auto& [name, frames, loop, channelCount] : kSeams) {
            for (const int quality : {20, 34, 50, 80}) {
                SCOPED_TRACE(testing::Message() << "codec " << int(codec) << " " << name << " quality " << quality);
                // Where KADPCM is as good as 16 bits allow, a loop of a hundred samples is too short to judge.
                if (codec == Codec::Kadpcm && frames < 500 && loop.start > 0)
                    continue;
                // All tones have a period of a hundred frames, so the source itself has no seam.
                MemorySound sound = soundFor(codec, channelCount, tones(frames, channelCount, {0.01, 0.04}, 0.5f));
                sound.setLoop(loop);
                const test::SoundPointer opened = openedBank(encode(codec, sound, quality));
                const std::vector<float> plain = sound.floats();
                const double whole = squaredError(plain, readFloats(*opened, frames)) / double(plain.size());

                const auto channels = size_t(channelCount);
                const size_t before = std::min<size_t>(kWindow, loop.end);
                ASSERT_EQ(opened->setLoopCount(-1), KESS_OK);
                ASSERT_EQ(opened->seekData(loop.end - before), KESS_OK);
                for (const auto& [from, count] : {std::pair(loop.end - before, before), {loop.end, kWindow}}) {
                    std::vector<float> wanted;
                    for (size_t i = 0; i < count * channels; ++i) {
                        const size_t frame = from + i / channels;
                        const size_t past = (frame - loop.end) % (loop.end - loop.start);
                        wanted.push_back(
                            plain[(frame < loop.end ? frame : loop.start + past) * channels + i % channels]);
                    }
                    const std::vector<float> got = readFloats(*opened, count);
                    ASSERT_EQ(got.size(), wanted.size());
                    const double error = squaredError(wanted, got) / double(got.size());
                    EXPECT_LT(std::sqrt(error / whole), 1.1) << (from < loop.end ? "before" : "after");
                }
            }
        }
    }
}

TEST(LossyEncoders, AreNoWorseAtTheSeamWhereTheRestIsNearlySilent)
{
    constexpr size_t kFrames = 90'000;
    constexpr size_t kWindow = 256;
    for (const Codec codec : kLossyCodecs) {
        for (const float halfLife : {1'000.0f, 2'000.0f, 6'000.0f}) {
            for (const int quality : {20, 50}) {
                SCOPED_TRACE(testing::Message() << "codec " << int(codec) << " fading by half in " << halfLife);
                const std::vector<float> wanted = strokes(kFrames, kFrames, halfLife, 0);
                const std::vector<float> got =
                    readFloats(*openedBank(encode(codec, soundFor(codec, 1, wanted), quality)));
                ASSERT_EQ(got.size(), kFrames);
                const double whole = squaredError(wanted, got) / kFrames;
                const double first = squaredError(std::span(wanted).first(kWindow), got) / kWindow;
                const double last =
                    squaredError(std::span(wanted).last(kWindow), std::span(got).last(kWindow)) / kWindow;
                EXPECT_LT(std::sqrt(std::max(first, last) / std::max(whole, 1e-9)), 1.1) << first << " " << last;
            }
        }
    }
}

TEST(Encoders, StopOnRequestAndPassOnErrorsOfTheSink)
{
    struct FullSink final : base::ByteSink
    {
        base::Result<> write(std::span<const uint8_t>) override { return base::Error{ErrorCode::Memory}; }
    } full;
    std::stop_source stop;
    stop.request_stop();
    for (const Codec codec : kCodecs) {
        MemorySound sound = music(codec, 50'000, 1);
        const auto encoder = builder::makeEncoder(codec);
        bank::Sound encoded;
        EXPECT_EQ(failure(encoder->encode(sound, 50, full, {}, &encoded)), ErrorCode::Memory) << int(codec);
        EXPECT_EQ(failure(encoder->encode(sound, 50, full, stop.get_token(), &encoded)), ErrorCode::Cancelled);
    }
}

TEST(VorbisEncoder, SharesItsSetupBetweenSounds)
{
    EXPECT_EQ(encode(Codec::Vorbis, music(Codec::Vorbis, 3'000, 2)).sound.setup,
              encode(Codec::Vorbis, test::noise(2, 44'100, 5'000)).sound.setup);
}

TEST(KadpcmEncoder, KeepsSilenceSilentAndDithersWhatSixteenBitsCannotRepresent)
{
    const std::vector<float> silence(5'000);
    EXPECT_EQ(readFloats(*openedBank(encode(Codec::Kadpcm, test::Signal{1, 44'100, silence}))), silence);

    // Without dither, a tone of a third of the least significant bit is lost.
    const std::vector<float> wanted = tones(40'000, 1, {0.01}, 0.33f / 32'768);
    const std::vector<float> got = readFloats(*openedBank(encode(Codec::Kadpcm, test::Signal{1, 44'100, wanted})));
    const double power = std::inner_product(wanted.begin(), wanted.end(), wanted.begin(), 0.0);
    EXPECT_NEAR(std::inner_product(wanted.begin(), wanted.end(), got.begin(), 0.0) / power, 1, 0.3);
}

TEST(DataStream, KeepsAsManySeekPointsOfALongSoundAsABankAllows)
{
    for (const size_t count : {size_t(0), size_t(1), bank::kMaximumSeekPoints, bank::kMaximumSeekPoints + 1,
                               2 * bank::kMaximumSeekPoints + 1, 5 * bank::kMaximumSeekPoints - 1}) {
        bank::Sound sound;
        for (size_t i = 0; i < count; ++i)
            sound.seekPoints.push_back({100 * (i + 1), i + 1});
        base::MemorySink sink;
        ASSERT_TRUE(builder::DataStream(sink).finish(&sound));
        ASSERT_LE(sound.seekPoints.size(), bank::kMaximumSeekPoints) << count;
        ASSERT_GE(2 * sound.seekPoints.size(), std::min(count, bank::kMaximumSeekPoints)) << count;
        for (size_t i = 1; i < sound.seekPoints.size(); ++i)
            ASSERT_EQ(sound.seekPoints[i].offset - sound.seekPoints[i - 1].offset,
                      (count + bank::kMaximumSeekPoints - 1) / bank::kMaximumSeekPoints);
    }
}

} // namespace
