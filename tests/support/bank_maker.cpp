// SPDX-License-Identifier: MIT
#include "support/bank_maker.hpp"

#include <gtest/gtest.h>

namespace bank_test {

MemorySound::MemorySound(test::Signal signal)
    : mSamples(std::move(signal.samples))
{
    mFacts.channels = signal.channels;
    mFacts.sampleRate = uint32_t(signal.rate);
    mFacts.sampleFormat = bank::SampleFormat::Float;
    mFacts.sampleCount = mSamples.size() / size_t(signal.channels);
    mFacts.loop = base::Loop{0, mFacts.sampleCount};
}

base::Result<> MemorySound::seek(int64_t position)
{
    EXPECT_GE(position, -builder::kMaximumLookaround);
    EXPECT_LE(position, int64_t(mFacts.sampleCount) + builder::kMaximumLookaround);
    mPosition = position;
    return {};
}

base::Result<> MemorySound::readFloat(float* frames, size_t count)
{
    const auto channels = size_t(mFacts.channels);
    std::fill_n(frames, count * channels, 0.0f); // silence outside the sound
    for (size_t i = 0; i < count; ++i, ++mPosition, frames += channels) {
        if (const std::optional<uint64_t> frame = builder::frameAt(mPosition, mFacts))
            std::copy_n(mSamples.data() + *frame * channels, channels, frames);
    }
    return {};
}

base::Result<bank::StoredSound> MemorySounds::open(size_t index)
{
    std::vector<uint8_t> bytes = bank::serialise(mSounds[index].sound);
    const uint64_t dataOffset = bytes.size();
    bytes.insert(bytes.end(), mSounds[index].data.begin(), mSounds[index].data.end());
    return bank::StoredSound{std::make_shared<base::MemorySource>(std::move(bytes)), 0, dataOffset};
}

EncodedSound encode(bank::Codec codec, MemorySound sound, int quality, std::string name)
{
    EncodedSound encoded;
    encoded.name = std::move(name);
    base::MemorySink sink;
    EXPECT_TRUE(builder::makeEncoder(codec)->encode(sound, quality, sink, {}, &encoded.sound));
    encoded.data = sink.take();
    EXPECT_EQ(encoded.sound.dataBytes, encoded.data.size());
    return encoded;
}

std::vector<EncodedSound> encodeWithEach(const MemorySound& sound)
{
    std::vector<EncodedSound> encoded;
    for (const bank::Codec codec : kCodecs)
        encoded.push_back(encode(codec, sound));
    return encoded;
}

std::vector<uint8_t> makeBank(const std::vector<EncodedSound>& sounds, const bank::BankSettings& settings,
                              std::string_view key)
{
    bank::BankWriter writer(settings);
    for (const EncodedSound& sound : sounds)
        writer.add(sound.name, sound.sound);
    base::MemorySink sink;
    MemorySounds stored(sounds);
    const bool isPlain = key.empty();
    EXPECT_TRUE(isPlain ? writer.write(sink, stored, {}) : writer.writeEncrypted(sink, stored, key, {}));
    EXPECT_EQ(sink.bytes().size(), isPlain ? writer.fileBytes() : writer.encryptedFileBytes());
    return sink.take();
}

void tamper(std::span<uint8_t> part, std::mt19937& random)
{
    if (part.empty())
        return;
    constexpr std::array<uint64_t, 8> edges = {
        0, 1, 0x7fffffff, 0xffffffff, 0x100000000, 0x7fffffffffffffff, 0xffffffffffffffe0, 0xffffffffffffffff};
    const size_t at = random() % part.size();
    const auto way = random() % 4;
    if (way == 0) {
        part[at] ^= uint8_t(1 << random() % 8);
    } else if (way == 1) {
        part[at] = uint8_t(random());
    } else {
        const uint64_t value = edges[random() % edges.size()] + random() % 3;
        const size_t size = random() % 2 ? 4 : 8;
        const size_t position = at / 4 * 4;
        std::memcpy(part.data() + position, &value, std::min(size, part.size() - position));
    }
}

} // namespace bank_test
