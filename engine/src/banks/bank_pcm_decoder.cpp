// SPDX-License-Identifier: MIT
#include "banks/bank_decoders.hpp"

#include "banks/bank_direct_decoder.hpp"
#include "decode/sample_convert.hpp"

#include <algorithm>

namespace engine {

namespace {

constexpr size_t kChunkFrames = 1024;
constexpr size_t kSmallRead = 8 * 1024; // half of what a window reads at once

// Of any format but 16 bits, for which there is int16ToFloat.
float sampleFrom(const uint8_t* bytes, KESS_SOUND_FORMAT format)
{
    switch (format) {
    case KESS_SOUND_FORMAT_PCM8:
        return static_cast<float>(static_cast<int8_t>(*bytes)) / 128;
    case KESS_SOUND_FORMAT_PCM24: {
        // The three bytes become the upper ones of 32 bits, so that the sign bit is in the right position.
        const uint32_t upper = uint32_t{bytes[0]} << 8 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 24;
        return static_cast<float>(static_cast<int32_t>(upper) >> 8) / 8'388'608;
    }
    case KESS_SOUND_FORMAT_PCM32:
        return static_cast<float>(base::loadLittle<int32_t>(bytes)) / 2'147'483'648.0f;
    default:
        return base::loadLittle<float>(bytes);
    }
}

class BankPcmDecoder final : public BankDirectDecoder
{
public:
    explicit BankPcmDecoder(BankSoundPointer sound)
        : BankDirectDecoder(std::move(sound))
        , mWindow(mSound->data)
        , mSampleBytes(bank::bytesPerSample(mSound->stored.sampleFormat))
        , mFrameBytes(mSampleBytes * static_cast<size_t>(facts().channels))
    { }

    base::Result<size_t> read(void* buffer, size_t count) override
    {
        count = readableFrames(count);
        const std::span<uint8_t> bytes(static_cast<uint8_t*>(buffer), count * mFrameBytes);
        if (base::Result<> result = fetch(mFrame * mFrameBytes, bytes); !result)
            return std::move(result.error());
        mFrame += count;
        return count;
    }

    base::Result<size_t> readFloat(float* buffer, size_t count) override
    {
        mScratch.resize(kChunkFrames * mFrameBytes);
        size_t done = 0;
        while (done < count) {
            base::Result<size_t> got = read(mScratch.data(), std::min(count - done, kChunkFrames));
            if (!got && done == 0)
                return got;
            if (!got || *got == 0)
                break;
            const size_t samples = *got * static_cast<size_t>(facts().channels);
            toFloat(samples, buffer);
            buffer += samples;
            done += *got;
        }
        return done;
    }

private:
    // Converts the samples at the start of mScratch.
    void toFloat(size_t samples, float* buffer) const
    {
        if (facts().format == KESS_SOUND_FORMAT_PCM16) {
            int16ToFloat(mScratch.data(), buffer, samples);
            return;
        }
        const uint8_t* bytes = mScratch.data();
        for (size_t i = 0; i < samples; ++i, bytes += mSampleBytes)
            buffer[i] = sampleFrom(bytes, facts().format);
    }

    // Small reads of an encrypted sound are buffered: for each, a whole piece may have to be decrypted if more voices
    // are playing than pieces are kept.
    base::Result<> fetch(uint64_t offset, std::span<uint8_t> bytes)
    {
        const EncodedData& data = mSound->data;
        if (!mSound->isEncrypted || bytes.size() > kSmallRead)
            return data.source->readAt(data.offset + offset, bytes);
        base::Result<std::span<const uint8_t>> view = mWindow.view(offset, bytes.size());
        if (!view)
            return std::move(view.error());
        std::copy_n(view->begin(), bytes.size(), bytes.begin());
        return {};
    }

    DataWindow mWindow;
    size_t mSampleBytes;
    size_t mFrameBytes;
    std::vector<uint8_t> mScratch;
};

} // namespace

base::Result<DecoderPointer> makePcmDecoder(BankSoundPointer sound)
{
    return DecoderPointer(std::make_unique<BankPcmDecoder>(std::move(sound)));
}

} // namespace engine
