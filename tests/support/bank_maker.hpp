// SPDX-License-Identifier: MIT
// Makes banks in memory from arrays of samples, with the builder's encoders.
#pragma once

#include "bank/reader.hpp"
#include "bank/writer.hpp"
#include "encode/encoder.hpp"
#include "support/sound_files.hpp"

#include <random>
#include <span>
#include <string>
#include <vector>

namespace bank_test {

using test::tones;

inline constexpr bank::Codec kCodecs[] = {bank::Codec::Pcm, bank::Codec::Kadpcm, bank::Codec::Vorbis,
                                          bank::Codec::Opus};

// A sound of interleaved floats in memory that wraps at its loop, as encoders expect. Unless a loop is set, it is the
// whole sound.
class MemorySound final : public builder::PreparedSound
{
public:
    MemorySound(test::Signal signal);

    [[nodiscard]] const builder::PreparedFacts& facts() const override { return mFacts; }
    [[nodiscard]] const std::vector<float>& floats() const { return mSamples; }
    void setLoop(std::optional<base::Loop> loop) { mFacts.loop = loop; }

    base::Result<> seek(int64_t position) override;
    base::Result<> readFloat(float* frames, size_t count) override;
    base::Result<> readSamples(void* frames, size_t count) override
    {
        return readFloat(static_cast<float*>(frames), count);
    }

private:
    builder::PreparedFacts mFacts;
    std::vector<float> mSamples;
    int64_t mPosition = 0;
};

// The code of an error; none on success.
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

// Sounds in memory, serialised as in the builder's cache.
struct MemorySounds : bank::StoredSounds
{
    explicit MemorySounds(std::vector<EncodedSound> sounds)
        : mSounds(std::move(sounds))
    { }
    base::Result<bank::StoredSound> open(size_t index) override;

protected:
    std::vector<EncodedSound> mSounds;
};

// Asserts that encoding succeeds.
[[nodiscard]] EncodedSound encode(bank::Codec codec, MemorySound sound, int quality = 50, std::string name = "sound");

// The same with every codec.
[[nodiscard]] std::vector<EncodedSound> encodeWithEach(const MemorySound& sound);

// A bank of these sounds, encrypted if there is a key. Asserts that writing succeeds.
[[nodiscard]] std::vector<uint8_t> makeBank(const std::vector<EncodedSound>& sounds,
                                            const bank::BankSettings& settings = {}, std::string_view key = {});

// Modifies one position of part: flips a bit, or writes a random byte or a number of 4 or 8 bytes that is likely to
// overflow.
void tamper(std::span<uint8_t> part, std::mt19937& random);

} // namespace bank_test
