#include "banks/bank_decoders.hpp"

#include "bank/kadpcm.hpp"

#include <algorithm>

namespace kess {

namespace {

using bank::kadpcm::kSuperblockFrames;

// Decodes the superblock that is read from, and keeps it.
class KadpcmDecoder final : public DirectDecoder
{
public:
    explicit KadpcmDecoder(BankSound sound)
        : DirectDecoder(std::move(sound.facts))
        , mWindow(std::move(sound.data))
        , mSeekPoints(std::move(sound.stored.seekPoints))
    { }

    [[nodiscard]] KESS_RESULT read(void* buffer, size_t count, size_t* done) override
    {
        auto* samples = static_cast<int16_t*>(buffer);
        return readFrames(count, done, [samples](std::span<const int16_t> frames, size_t at) {
            std::copy(frames.begin(), frames.end(), samples + at);
        });
    }

    [[nodiscard]] KESS_RESULT readFloat(float* buffer, size_t count, size_t* done) override
    {
        return readFrames(count, done, [buffer](std::span<const int16_t> frames, size_t at) {
            std::transform(frames.begin(), frames.end(), buffer + at,
                           [](int16_t sample) { return static_cast<float>(sample) / 32'768; });
        });
    }

private:
    template <typename Take>
    [[nodiscard]] KESS_RESULT readFrames(size_t count, size_t* done, Take take)
    {
        const auto channels = static_cast<size_t>(mFacts.channels);
        *done = 0;
        count = left(count);
        while (*done < count) {
            if (const KESS_RESULT result = decodeSuperblockOf(mFrame); result != KESS_OK)
                return result;
            const auto begin = static_cast<size_t>(mFrame - mDecodedStart);
            const size_t frames = std::min(mDecodedFrames - begin, count - *done);
            take(std::span<const int16_t>(mDecoded).subspan(begin * channels, frames * channels), *done * channels);
            *done += frames;
            mFrame += frames;
        }
        return KESS_OK;
    }

    [[nodiscard]] size_t framesAt(uint64_t start) const
    {
        return static_cast<size_t>(std::min<uint64_t>(kSuperblockFrames, mFacts.sampleCount - start));
    }

    // Has the superblock of frame in mDecoded.
    [[nodiscard]] KESS_RESULT decodeSuperblockOf(uint64_t frame)
    {
        const uint64_t start = frame / kSuperblockFrames * kSuperblockFrames;
        if (mDecodedFrames > 0 && start == mDecodedStart)
            return KESS_OK;
        mDecodedFrames = 0;
        if (const KESS_RESULT result = stepTo(start); result != KESS_OK)
            return result;

        std::span<const uint8_t> bytes;
        if (const KESS_RESULT result = viewSuperblock(&bytes); result != KESS_OK)
            return result;
        const size_t frames = framesAt(start);
        mDecoded.resize(frames * static_cast<size_t>(mFacts.channels));
        const size_t size =
            bank::kadpcm::decodeSuperblock(bytes, mFacts.channels, static_cast<int>(frames), mDecoded.data());
        if (size == 0)
            return KESS_ERR_FILE_BAD;
        mDecodedStart = start;
        mDecodedFrames = frames;
        mPlace = {start + frames, mPlace.offset + size};
        return KESS_OK;
    }

    // Goes to the superblock that begins at start, over those between without decoding them.
    [[nodiscard]] KESS_RESULT stepTo(uint64_t start)
    {
        const bank::SeekPoint point = seekPointBefore(mSeekPoints, start);
        if (mPlace.position > start || mPlace.position < point.position)
            mPlace = point;
        while (mPlace.position < start) {
            std::span<const uint8_t> bytes;
            if (const KESS_RESULT result = viewSuperblock(&bytes); result != KESS_OK)
                return result;
            const size_t size = bank::kadpcm::superblockBytes(bytes, mFacts.channels);
            if (size == 0)
                return KESS_ERR_FILE_BAD;
            mPlace = {mPlace.position + kSuperblockFrames, mPlace.offset + size};
        }
        return mPlace.position == start ? KESS_OK : KESS_ERR_FILE_BAD;
    }

    [[nodiscard]] KESS_RESULT viewSuperblock(std::span<const uint8_t>* bytes)
    {
        if (mPlace.offset >= mWindow.size())
            return KESS_ERR_FILE_BAD;
        const size_t most = bank::kadpcm::maximumSuperblockBytes(mFacts.channels, kSuperblockFrames);
        return mWindow.view(mPlace.offset,
                            static_cast<size_t>(std::min<uint64_t>(most, mWindow.size() - mPlace.offset)), bytes);
    }

    DataWindow mWindow;
    std::vector<bank::SeekPoint> mSeekPoints;
    bank::SeekPoint mPlace; // of the next superblock: its first frame and its offset
    std::vector<int16_t> mDecoded;
    uint64_t mDecodedStart = 0;
    size_t mDecodedFrames = 0; // 0: nothing decoded
};

} // namespace

KESS_RESULT makeKadpcmDecoder(BankSound sound, DecoderPointer* decoder)
{
    if (sound.stored.preSkip != 0)
        return KESS_ERR_FILE_BAD;
    *decoder = std::make_unique<KadpcmDecoder>(std::move(sound));
    return KESS_OK;
}

} // namespace kess
