// SPDX-License-Identifier: MIT
#include "banks/bank_decoders.hpp"

#include "banks/bank_direct_decoder.hpp"
#include "decode/sample_convert.hpp"

#include "bank/kadpcm.hpp"

#include <algorithm>

namespace engine {

namespace {

using bank::kadpcm::kSuperblockFrames;

base::Error damagedSuperblock()
{
    return {base::ErrorCode::Damaged, "a block of its data is damaged"};
}

// Decodes one superblock at a time and keeps it.
class BankKadpcmDecoder final : public BankDirectDecoder
{
public:
    explicit BankKadpcmDecoder(BankSoundPointer sound)
        : BankDirectDecoder(std::move(sound))
        , mWindow(mSound->data, bank::kadpcm::maximumSuperblockBytes(facts().channels, kSuperblockFrames))
    { }

    base::Result<size_t> read(void* buffer, size_t count) override
    {
        auto* samples = static_cast<int16_t*>(buffer);
        return readFrames(count, [samples](std::span<const int16_t> frames, size_t at) {
            std::copy(frames.begin(), frames.end(), samples + at);
        });
    }

    base::Result<size_t> readFloat(float* buffer, size_t count) override
    {
        return readFrames(count, [buffer](std::span<const int16_t> frames, size_t at) {
            int16ToFloat(frames.data(), buffer + at, frames.size());
        });
    }

private:
    template <typename Take>
    base::Result<size_t> readFrames(size_t count, Take take)
    {
        const auto channels = static_cast<size_t>(facts().channels);
        count = readableFrames(count);
        size_t done = 0;
        while (done < count) {
            if (base::Result<> decoded = decodeSuperblockWith(mFrame); !decoded) {
                if (done > 0)
                    return done;
                return std::move(decoded.error());
            }
            const auto begin = static_cast<size_t>(mFrame - mDecodedStart);
            const size_t frames = std::min(mDecodedFrames - begin, count - done);
            take(std::span<const int16_t>(mDecoded).subspan(begin * channels, frames * channels), done * channels);
            done += frames;
            mFrame += frames;
        }
        return done;
    }

    [[nodiscard]] size_t framesAt(uint64_t start) const
    {
        return static_cast<size_t>(std::min<uint64_t>(kSuperblockFrames, facts().sampleCount - start));
    }

    // Decodes the superblock that contains frame into mDecoded.
    base::Result<> decodeSuperblockWith(uint64_t frame)
    {
        const uint64_t start = frame / kSuperblockFrames * kSuperblockFrames;
        if (mDecodedFrames > 0 && start == mDecodedStart)
            return {};
        mDecodedFrames = 0;
        if (base::Result<> stepped = stepTo(start); !stepped)
            return stepped;

        base::Result<std::span<const uint8_t>> bytes = viewSuperblock();
        if (!bytes)
            return std::move(bytes.error());
        const size_t frames = framesAt(start);
        const auto channels = static_cast<size_t>(facts().channels);
        mDecoded.reserve(framesAt(0) * channels); // the last one is shorter than those before it
        mDecoded.resize(frames * channels);
        const size_t size =
            bank::kadpcm::decodeSuperblock(*bytes, facts().channels, static_cast<int>(frames), mDecoded.data());
        if (size == 0)
            return damagedSuperblock();
        mDecodedStart = start;
        mDecodedFrames = frames;
        mNext = {start + frames, mNext.offset + size};
        return {};
    }

    // Moves to the superblock that begins at start. Those before it are skipped without decoding.
    base::Result<> stepTo(uint64_t start)
    {
        const bank::SeekPoint point = seekPointBefore(mSound->stored.seekPoints, start);
        if (mNext.position > start || mNext.position < point.position)
            mNext = point;
        while (mNext.position < start) {
            base::Result<std::span<const uint8_t>> bytes = viewSuperblock();
            if (!bytes)
                return std::move(bytes.error());
            const size_t size = bank::kadpcm::superblockBytes(*bytes, facts().channels);
            if (size == 0)
                return damagedSuperblock();
            mNext = {mNext.position + kSuperblockFrames, mNext.offset + size};
        }
        if (mNext.position != start)
            return damagedSuperblock();
        return {};
    }

    base::Result<std::span<const uint8_t>> viewSuperblock()
    {
        const size_t maximum = bank::kadpcm::maximumSuperblockBytes(facts().channels, kSuperblockFrames);
        const uint64_t remaining = mWindow.size() - std::min(mWindow.size(), mNext.offset);
        if (remaining == 0)
            return damagedSuperblock();
        return mWindow.view(mNext.offset, static_cast<size_t>(std::min<uint64_t>(maximum, remaining)));
    }

    DataWindow mWindow;
    bank::SeekPoint mNext; // the first frame and the offset of the next superblock
    std::vector<int16_t> mDecoded;
    uint64_t mDecodedStart = 0;
    size_t mDecodedFrames = 0; // 0: nothing decoded
};

} // namespace

base::Result<DecoderPointer> makeKadpcmDecoder(BankSoundPointer sound)
{
    if (sound->stored.preSkip != 0)
        return base::Error{base::ErrorCode::Damaged, "its codec has no pre-skip"};
    return DecoderPointer(std::make_unique<BankKadpcmDecoder>(std::move(sound)));
}

} // namespace engine
