// Makes banks in memory: sounds out of arrays, encoded by the builder's encoders, opened by the engine.
#pragma once

#include "bank/reader.hpp"
#include "bank/writer.hpp"
#include "encode/encoder.hpp"
#include "support/sound_files.hpp"

#include <span>
#include <string>
#include <vector>

namespace bank_test {

using test::tones;

// A sound of interleaved floats in memory that wraps at its loop as encoders expect; the loop is the whole sound unless
// another is set.
class MemorySound final : public tarnok::PreparedSound
{
public:
    MemorySound(int channels, uint32_t sampleRate, std::vector<float> samples);

    [[nodiscard]] const tarnok::PreparedFacts& facts() const override { return mFacts; }
    [[nodiscard]] const std::vector<float>& floats() const { return mSamples; }
    void setLoop(std::optional<base::Loop> loop) { mFacts.loop = loop; }

    base::Result<> seek(int64_t position) override;
    base::Result<> readFloat(float* frames, size_t count) override;
    base::Result<> readSamples(void* frames, size_t count) override
    {
        return readFloat(static_cast<float*>(frames), count);
    }

private:
    tarnok::PreparedFacts mFacts;
    std::vector<float> mSamples;
    int64_t mPosition = 0;
};

// The code of an error, none for success.
template <typename T>
[[nodiscard]] std::optional<base::ErrorCode> failure(const base::Result<T>& result)
{
    return result ? std::nullopt : std::optional(result.error().code);
}

struct EncodedSound
{
    std::string name;
    bank::Sound sound;
    std::vector<uint8_t> data;
};

// All sounds in memory, in the form in which the builder's cache stores them.
class MemorySounds : public bank::StoredSounds
{
public:
    explicit MemorySounds(std::vector<EncodedSound> sounds)
        : mSounds(std::move(sounds))
    { }
    base::Result<bank::StoredSound> open(size_t index) override;

protected:
    std::vector<EncodedSound> mSounds;
};

// Asserts that encoding works.
[[nodiscard]] EncodedSound encode(bank::Codec codec, MemorySound& sound, int quality = 50, std::string name = "sound");

// The bank of these sounds, encrypted when there is a key. Asserts that it could be written.
[[nodiscard]] std::vector<uint8_t> makeBank(const std::vector<EncodedSound>& sounds,
                                            const bank::BankSettings& settings = {}, std::string_view key = {});

// A deterministic noise of 32 bits.
class Noise
{
public:
    explicit Noise(uint64_t seed = 1)
        : mState(seed * 0x9e3779b97f4a7c15u + 1)
    { }
    uint32_t next();
    float sample() { return float(int32_t(next())) / 2147483648.0f; } // -1 to 1

private:
    uint64_t mState;
};

// Tampers with a place: a flipped bit, a random byte, or a number of 4 or 8 bytes at one of the values where arithmetic
// overflows.
void tamper(std::span<uint8_t> part, Noise& noise);

} // namespace bank_test
