// SPDX-License-Identifier: MIT
#include "encode/data_stream.hpp"
#include "encode/encoders.hpp"
#include "encode/seam.hpp"

#include "bank/kadpcm.hpp"

#include <algorithm>
#include <cmath>

namespace builder {

using bank::SampleFormat;
using base::Error;
using base::ErrorCode;

namespace {

constexpr size_t kChunkFrames = 4096; // per call of the codec

// The distance of two seek points. A seek skips the superblocks in between without decoding them.
constexpr uint64_t kSeekSuperblocks = 16;

// Triangular noise of up to one 16-bit step in each direction, the same in every run (xorshift64*, Vigna 2016).
class Dither
{
public:
    float next() { return uniform() + uniform(); }

private:
    float uniform() // -0.5 to 0.5
    {
        mState ^= mState >> 12;
        mState ^= mState << 25;
        mState ^= mState >> 27;
        return float(int32_t((mState * 0x2545f4914f6cdd1du) >> 32)) / 4294967296.0f;
    }

    uint64_t mState = 0x9e3779b97f4a7c15u;
};

// Reads the sound as 16-bit samples: 16-bit samples unchanged, 8-bit samples exactly, all others with dither.
class Reader16
{
public:
    explicit Reader16(PreparedSound& sound)
        : mSound(sound)
        , mChannels(size_t(sound.facts().channels))
    { }

    base::Result<> read(std::span<int16_t> samples)
    {
        const size_t frames = samples.size() / mChannels;
        switch (mSound.facts().sampleFormat) {
        case SampleFormat::Pcm16:
            return mSound.readSamples(samples.data(), frames);
        case SampleFormat::Pcm8:
            return readBytes(samples, frames);
        default:
            return readDithered(samples, frames);
        }
    }

private:
    base::Result<> readBytes(std::span<int16_t> samples, size_t frames)
    {
        mBytes.resize(samples.size());
        if (const base::Result<> result = mSound.readSamples(mBytes.data(), frames); !result)
            return result.error();
        std::transform(mBytes.begin(), mBytes.end(), samples.begin(), [](int8_t byte) { return int16_t(byte * 256); });
        return {};
    }

    base::Result<> readDithered(std::span<int16_t> samples, size_t frames)
    {
        mFloats.resize(samples.size());
        if (const base::Result<> result = mSound.readFloat(mFloats.data(), frames); !result)
            return result.error();
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] = quantise(std::clamp(mFloats[i] * 32'768, -32'768.0f, 32'767.0f));
        return {};
    }

    // A value that is representable in 16 bits isn't dithered: digital silence stays silent, and samples that once had
    // 16 bits are restored.
    int16_t quantise(float value)
    {
        const float whole = std::nearbyint(value);
        if (whole == value)
            return int16_t(whole);
        return int16_t(std::clamp(std::nearbyint(value + mDither.next()), -32'768.0f, 32'767.0f));
    }

    PreparedSound& mSound;
    size_t mChannels;
    Dither mDither;
    std::vector<int8_t> mBytes;
    std::vector<float> mFloats;
};

// The ranges on both sides of the loop's seam.
std::optional<bank::kadpcm::Seam> findSeam(const PreparedFacts& facts)
{
    if (!facts.loop)
        return std::nullopt;
    const auto [start, end] = *facts.loop;
    const auto frames = uint64_t(kSeamFrames);
    return bank::kadpcm::Seam{facts.sampleCount,
                              {{{end - std::min(end, frames), end}, {start, std::min(end, start + frames)}}}};
}

// Writes superblocks as they are completed.
class SuperblockWriter
{
public:
    SuperblockWriter(DataStream& data, bank::Sound* sound)
        : mData(data)
        , mSound(sound)
    { }

    base::Result<> write(std::vector<uint8_t>* bytes, std::vector<uint32_t>* sizes)
    {
        uint64_t offset = mData.bytes();
        for (const uint32_t size : *sizes) {
            if (mCount > 0 && mCount % kSeekSuperblocks == 0)
                mSound->seekPoints.push_back({mCount * bank::kadpcm::kSuperblockFrames, offset});
            offset += size;
            ++mCount;
        }
        base::Result<> result = bytes->empty() ? base::Result<>() : mData.writeBlock(*bytes);
        bytes->clear();
        sizes->clear();
        return result;
    }

private:
    DataStream& mData;
    bank::Sound* mSound;
    uint64_t mCount = 0;
};

} // namespace

base::Result<> KadpcmEncoder::encode(PreparedSound& sound, int, base::ByteSink& sink, std::stop_token stop,
                                     bank::Sound* encoded)
{
    const PreparedFacts& facts = sound.facts();
    *encoded = describe(bank::Codec::Kadpcm, facts);
    if (const base::Result<> result = sound.seek(0); !result)
        return result.error();

    DataStream data(sink);
    Reader16 reader(sound);
    SuperblockWriter writer(data, encoded);
    bank::kadpcm::Encoder encoder(facts.channels, stop, findSeam(facts));
    std::vector<int16_t> samples(kChunkFrames * size_t(facts.channels));
    std::vector<uint8_t> bytes;
    std::vector<uint32_t> sizes;
    for (uint64_t remaining = facts.sampleCount; remaining > 0;) {
        const size_t count = size_t(std::min<uint64_t>(remaining, kChunkFrames));
        const std::span<int16_t> chunk = std::span(samples).first(count * size_t(facts.channels));
        if (const base::Result<> result = reader.read(chunk); !result)
            return result.error();
        encoder.encode(chunk, bytes, &sizes);
        if (stop.stop_requested())
            return Error{ErrorCode::Cancelled};
        if (const base::Result<> result = writer.write(&bytes, &sizes); !result)
            return result.error();
        remaining -= count;
    }
    encoder.finish(bytes, &sizes);
    if (stop.stop_requested())
        return Error{ErrorCode::Cancelled};
    if (const base::Result<> result = writer.write(&bytes, &sizes); !result)
        return result.error();
    return data.finish(encoded);
}

} // namespace builder
