#include "support/bank_maker.hpp"

#include <gtest/gtest.h>

namespace bank_test {

using bank::Error;
using bank::SampleFormat;

namespace {

float floatAt(const uint8_t* place, SampleFormat format)
{
    if (format == SampleFormat::Float)
        return bank::loadLittle<float>(place);
    // Whatever its size, a whole number's highest byte becomes that of the 32 bits.
    std::array<uint8_t, 4> number{};
    std::copy_n(place, bank::bytesPerSample(format), number.end() - bank::bytesPerSample(format));
    return float(bank::loadLittle<int32_t>(number.data())) * 0x1p-31f;
}

} // namespace

MemorySound MemorySound::ofFloats(int channels, uint32_t sampleRate, const std::vector<float>& frames)
{
    tarnok::PreparedFacts facts;
    facts.channels = channels;
    facts.sampleRate = sampleRate;
    facts.sampleFormat = SampleFormat::Float;
    facts.sampleCount = frames.size() / size_t(channels);
    facts.loop = bank::Loop{0, facts.sampleCount};
    std::vector<uint8_t> samples(frames.size() * sizeof(float));
    std::memcpy(samples.data(), frames.data(), samples.size());
    return {facts, std::move(samples)};
}

std::vector<float> MemorySound::floats()
{
    std::vector<float> frames(mFacts.sampleCount * size_t(mFacts.channels));
    (void)seek(0);
    (void)readFloat(frames.data(), mFacts.sampleCount);
    return frames;
}

Error MemorySound::seek(int64_t position)
{
    EXPECT_GE(position, -tarnok::kMaximumReach);
    EXPECT_LE(position, int64_t(mFacts.sampleCount) + tarnok::kMaximumReach);
    mPosition = position;
    return Error::None;
}

Error MemorySound::readFloat(float* frames, size_t count)
{
    const size_t sampleBytes = bank::bytesPerSample(mFacts.sampleFormat);
    std::vector<uint8_t> samples(count * size_t(mFacts.channels) * sampleBytes);
    (void)readSamples(samples.data(), count);
    for (size_t at = 0; at < samples.size(); at += sampleBytes)
        *frames++ = floatAt(&samples[at], mFacts.sampleFormat);
    return Error::None;
}

Error MemorySound::readSamples(void* frames, size_t count)
{
    const size_t frameBytes = bank::bytesPerSample(mFacts.sampleFormat) * size_t(mFacts.channels);
    auto* place = static_cast<uint8_t*>(frames);
    std::fill_n(place, count * frameBytes, uint8_t{0}); // silence, where there is no frame
    for (size_t i = 0; i < count; ++i, ++mPosition, place += frameBytes) {
        if (const std::optional<uint64_t> frame = tarnok::frameAt(mPosition, mFacts))
            std::memcpy(place, mSamples.data() + *frame * frameBytes, frameBytes);
    }
    return Error::None;
}

bank::Result<bank::StoredSound> MemorySounds::open(size_t index)
{
    std::vector<uint8_t> bytes = bank::serialise(mSounds[index].sound);
    const uint64_t dataOffset = bytes.size();
    bytes.insert(bytes.end(), mSounds[index].data.begin(), mSounds[index].data.end());
    return bank::StoredSound{std::make_shared<bank::MemorySource>(std::move(bytes)), 0, dataOffset};
}

EncodedSound encode(bank::Codec codec, MemorySound& sound, int quality, std::string name)
{
    EncodedSound encoded;
    encoded.name = std::move(name);
    bank::MemorySink sink;
    EXPECT_EQ(tarnok::makeEncoder(codec)->encode(sound, quality, sink, {}, &encoded.sound), Error::None);
    encoded.data = sink.take();
    EXPECT_EQ(encoded.sound.dataBytes, encoded.data.size());
    return encoded;
}

std::vector<uint8_t> makeBank(const std::vector<EncodedSound>& sounds, const bank::BankSettings& settings,
                              std::string_view key)
{
    bank::BankWriter writer(settings);
    for (const EncodedSound& sound : sounds)
        writer.add(sound.name, sound.sound);
    bank::MemorySink sink;
    MemorySounds stored(sounds);
    const bool isPlain = key.empty();
    EXPECT_EQ(isPlain ? writer.write(sink, stored, {}) : writer.writeEncrypted(sink, stored, key, {}), Error::None);
    EXPECT_EQ(sink.bytes().size(), isPlain ? writer.fileBytes() : writer.encryptedFileBytes());
    return sink.take();
}

uint32_t Noise::next()
{
    // xorshift64*, Vigna 2016.
    mState ^= mState >> 12;
    mState ^= mState << 25;
    mState ^= mState >> 27;
    return uint32_t((mState * 0x2545f4914f6cdd1du) >> 32);
}

void tamper(std::span<uint8_t> part, Noise& noise)
{
    if (part.empty())
        return;
    constexpr std::array<uint64_t, 8> edges = {
        0, 1, 0x7fffffff, 0xffffffff, 0x100000000, 0x7fffffffffffffff, 0xffffffffffffffe0, 0xffffffffffffffff};
    const size_t at = noise.next() % part.size();
    const uint32_t way = noise.next() % 4;
    if (way == 0) {
        part[at] ^= uint8_t(1 << noise.next() % 8);
    } else if (way == 1) {
        part[at] = uint8_t(noise.next());
    } else {
        const uint64_t value = edges[noise.next() % edges.size()] + noise.next() % 3;
        const size_t size = noise.next() % 2 ? 4 : 8;
        const size_t place = at / 4 * 4;
        std::memcpy(part.data() + place, &value, std::min(size, part.size() - place));
    }
}

} // namespace bank_test
