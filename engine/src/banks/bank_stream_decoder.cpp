// SPDX-License-Identifier: MIT
#include "banks/bank_stream_decoder.hpp"

#include "decode/sample_convert.hpp"

#include <algorithm>
#include <utility>

namespace engine {

BankStreamDecoder::BankStreamDecoder(BankSoundPointer sound, uint64_t preroll)
    : mSound(std::move(sound))
    , mPreroll(preroll)
{ }

base::Result<> BankStreamDecoder::seek(uint64_t frame)
{
    if (frame > facts().sampleCount)
        return base::Error{base::ErrorCode::NotSeekable};
    mFrame = frame;
    if (frame == facts().sampleCount)
        return {};
    const uint64_t target = sound().stored.preSkip + frame;
    const bank::SeekPoint point = seekPointBefore(sound().stored.seekPoints, target - std::min(target, mPreroll));
    // Continuing from here is faster than starting at the seek point, and is exact.
    if (!mNeedsRestart && mPosition <= target && mPosition >= point.position)
        return skipTo(target);
    mBlock = {};
    mNeedsRestart = true;
    if (base::Result<> restarted = restart(point.offset); !restarted)
        return restarted;
    mPosition = point.position;
    mNeedsRestart = false;
    return skipTo(target);
}

base::Result<> BankStreamDecoder::nextBlock()
{
    base::Result<std::span<float>> block = decodeBlock();
    if (!block) {
        mBlock = {};
        mNeedsRestart = true;
        return std::move(block.error());
    }
    correct(*block);
    mBlock = *block;
    return {};
}

// block begins at mPosition.
void BankStreamDecoder::correct(std::span<float> block) const
{
    const auto channels = static_cast<size_t>(facts().channels);
    for (const CorrectedRange& range : sound().corrections) {
        const uint64_t begin = std::max(mPosition, range.position);
        const uint64_t end =
            std::min(mPosition + block.size() / channels, range.position + range.values.size() / channels);
        if (begin >= end)
            continue;
        const float* value = range.values.data() + static_cast<size_t>(begin - range.position) * channels;
        for (float& sample : block.subspan(static_cast<size_t>(begin - mPosition) * channels,
                                           static_cast<size_t>(end - begin) * channels))
            sample += *value++;
    }
}

base::Result<> BankStreamDecoder::skipTo(uint64_t position)
{
    const auto channels = static_cast<size_t>(facts().channels);
    while (mPosition < position) {
        if (mBlock.empty()) {
            if (base::Result<> next = nextBlock(); !next)
                return next;
        }
        const size_t frames = static_cast<size_t>(std::min<uint64_t>(mBlock.size() / channels, position - mPosition));
        mBlock = mBlock.subspan(frames * channels);
        mPosition += frames;
    }
    return {};
}

template <typename Take>
base::Result<size_t> BankStreamDecoder::readFrames(size_t count, Take take)
{
    const auto channels = static_cast<size_t>(facts().channels);
    count = static_cast<size_t>(std::min<uint64_t>(count, facts().sampleCount - mFrame));
    if (mNeedsRestart || mPosition != sound().stored.preSkip + mFrame) {
        if (base::Result<> ready = seek(mFrame); !ready)
            return std::move(ready.error());
    }
    size_t done = 0;
    while (done < count) {
        if (mBlock.empty()) {
            if (base::Result<> next = nextBlock(); !next) {
                if (done > 0)
                    return done;
                return std::move(next.error());
            }
        }
        const size_t frames = std::min(mBlock.size() / channels, count - done);
        take(mBlock.first(frames * channels), done * channels);
        mBlock = mBlock.subspan(frames * channels);
        done += frames;
        mPosition += frames;
        mFrame += frames;
    }
    return done;
}

base::Result<size_t> BankStreamDecoder::read(void* buffer, size_t count)
{
    auto* samples = static_cast<int16_t*>(buffer);
    return readFrames(count, [samples](std::span<const float> frames, size_t at) {
        floatToInt16(frames.data(), samples + at, frames.size());
    });
}

base::Result<size_t> BankStreamDecoder::readFloat(float* buffer, size_t count)
{
    return readFrames(count, [buffer](std::span<const float> frames, size_t at) {
        std::copy(frames.begin(), frames.end(), buffer + at);
    });
}

} // namespace engine
