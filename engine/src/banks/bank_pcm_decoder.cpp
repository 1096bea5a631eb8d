#include "banks/bank_decoders.hpp"

#include "banks/bank_file.hpp"

#include <algorithm>

namespace kess {

namespace {

constexpr size_t kChunkFrames = 1024;

float sampleAt(const uint8_t* place, KESS_SOUND_FORMAT format)
{
    switch (format) {
    case KESS_SOUND_FORMAT_PCM8:
        return static_cast<float>(static_cast<int8_t>(*place)) / 128;
    case KESS_SOUND_FORMAT_PCM16:
        return static_cast<float>(base::loadLittle<int16_t>(place)) / 32'768;
    case KESS_SOUND_FORMAT_PCM24: {
        // The three bytes become the upper ones of 32 bits, which brings the sign along.
        const uint32_t upper = uint32_t{place[0]} << 8 | uint32_t{place[1]} << 16 | uint32_t{place[2]} << 24;
        return static_cast<float>(static_cast<int32_t>(upper) >> 8) / 8'388'608;
    }
    case KESS_SOUND_FORMAT_PCM32:
        return static_cast<float>(base::loadLittle<int32_t>(place)) / 2'147'483'648.0f;
    default:
        return base::loadLittle<float>(place);
    }
}

class PcmDecoder final : public DirectDecoder
{
public:
    explicit PcmDecoder(BankSound sound)
        : DirectDecoder(std::move(sound.facts))
        , mData(std::move(sound.data))
        , mSampleBytes(bank::bytesPerSample(sound.stored.sampleFormat))
        , mFrameBytes(mSampleBytes * static_cast<size_t>(mFacts.channels))
    { }

    [[nodiscard]] KESS_RESULT read(void* buffer, size_t count, size_t* done) override
    {
        *done = 0;
        count = left(count);
        const std::span<uint8_t> bytes(static_cast<uint8_t*>(buffer), count * mFrameBytes);
        const base::Result<> read = mData.source->readAt(mData.offset + mFrame * mFrameBytes, bytes);
        if (!read)
            return resultOf(read);
        mFrame += count;
        *done = count;
        return KESS_OK;
    }

    [[nodiscard]] KESS_RESULT readFloat(float* buffer, size_t count, size_t* done) override
    {
        *done = 0;
        mScratch.resize(kChunkFrames * mFrameBytes);
        while (*done < count) {
            size_t got = 0;
            const KESS_RESULT result = read(mScratch.data(), std::min(count - *done, kChunkFrames), &got);
            if (result != KESS_OK || got == 0)
                return result;
            const uint8_t* place = mScratch.data();
            for (size_t i = 0; i < got * static_cast<size_t>(mFacts.channels); ++i, place += mSampleBytes)
                *buffer++ = sampleAt(place, mFacts.format);
            *done += got;
        }
        return KESS_OK;
    }

private:
    EncodedData mData;
    size_t mSampleBytes;
    size_t mFrameBytes;
    std::vector<uint8_t> mScratch;
};

} // namespace

KESS_RESULT makePcmDecoder(BankSound sound, DecoderPointer* decoder)
{
    *decoder = std::make_unique<PcmDecoder>(std::move(sound));
    return KESS_OK;
}

} // namespace kess
