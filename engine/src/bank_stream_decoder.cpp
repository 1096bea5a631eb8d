#include "bank_decoders.hpp"

#include "sample_convert.hpp"

#include <algorithm>

namespace kess {

namespace {

constexpr size_t kReadAhead = 16 * 1024;
constexpr int kLengthBits = 28;

} // namespace

PacketReader::PacketReader(EncodedData data)
    : mData(std::move(data))
{ }

void PacketReader::seek(uint64_t offset)
{
    mNext = std::min(offset, mData.bytes);
}

KESS_RESULT PacketReader::next(std::span<uint8_t>* packet)
{
    // The length, in groups of seven bits.
    size_t length = 0;
    for (int shift = 0;; shift += 7) {
        if (shift >= kLengthBits)
            return KESS_ERR_FILE_BAD;
        if (const KESS_RESULT result = require(1); result != KESS_OK)
            return result;
        const uint8_t byte = mBuffer[size_t(mNext - mBufferStart)];
        ++mNext;
        length |= size_t(byte & 0x7f) << shift;
        if (!(byte & 0x80))
            break;
    }
    if (const KESS_RESULT result = require(length); result != KESS_OK)
        return result;
    *packet = std::span(mBuffer).subspan(size_t(mNext - mBufferStart), length);
    mNext += length;
    return KESS_OK;
}

// Brings the next count bytes into the buffer, with what follows them.
KESS_RESULT PacketReader::require(size_t count)
{
    if (count > mData.bytes - mNext)
        return KESS_ERR_FILE_BAD;
    if (mNext >= mBufferStart && count <= mBuffered && mNext - mBufferStart <= mBuffered - count)
        return KESS_OK;
    const size_t wanted = size_t(std::min<uint64_t>(std::max(count, kReadAhead), mData.bytes - mNext));
    mBuffered = 0;
    mBuffer.resize(std::max(mBuffer.size(), wanted));
    const bank::Error error = mData.source->readAt(mData.offset + mNext, std::span(mBuffer).first(wanted));
    if (error != bank::Error::None)
        return resultOf(error);
    mBufferStart = mNext;
    mBuffered = wanted;
    return KESS_OK;
}

StreamDecoder::StreamDecoder(BankSound sound, uint64_t preroll)
    : mFacts(std::move(sound.facts))
    , mLeadIn(sound.stored.leadIn)
    , mPreroll(preroll)
    , mSeekPoints(std::move(sound.stored.seekPoints))
{ }

KESS_RESULT StreamDecoder::seek(uint64_t frame)
{
    if (frame > mFacts.sampleCount)
        return KESS_ERR_INVALID_POSITION;
    mFrame = frame;
    if (frame == mFacts.sampleCount)
        return KESS_OK;
    const uint64_t target = mLeadIn + frame;
    const bank::SeekPoint place = placeBefore(target);
    // Going on from here costs less than beginning at the seek point, and is exact.
    if (!mLost && mPosition <= target && mPosition >= place.position)
        return skipTo(target);
    mBlock = {};
    mLost = true;
    if (const KESS_RESULT result = restart(place.offset); result != KESS_OK)
        return result;
    mPosition = place.position;
    mLost = false;
    return skipTo(target);
}

bank::SeekPoint StreamDecoder::placeBefore(uint64_t position) const
{
    const uint64_t latest = position - std::min(position, mPreroll);
    const auto behind =
        std::upper_bound(mSeekPoints.begin(), mSeekPoints.end(), latest,
                         [](uint64_t wanted, const bank::SeekPoint& point) { return wanted < point.position; });
    return behind == mSeekPoints.begin() ? bank::SeekPoint{} : *(behind - 1);
}

KESS_RESULT StreamDecoder::skipTo(uint64_t position)
{
    const auto channels = size_t(mFacts.channels);
    while (mPosition < position) {
        if (mBlock.empty()) {
            if (const KESS_RESULT result = decodeBlock(&mBlock); result != KESS_OK) {
                mBlock = {};
                mLost = true;
                return result;
            }
        }
        const size_t frames = size_t(std::min<uint64_t>(mBlock.size() / channels, position - mPosition));
        mBlock = mBlock.subspan(frames * channels);
        mPosition += frames;
    }
    return KESS_OK;
}

template <typename Take>
KESS_RESULT StreamDecoder::readFrames(size_t count, size_t* done, Take take)
{
    const auto channels = size_t(mFacts.channels);
    *done = 0;
    count = size_t(std::min<uint64_t>(count, mFacts.sampleCount - mFrame));
    if (mLost || mPosition != mLeadIn + mFrame) {
        if (const KESS_RESULT result = seek(mFrame); result != KESS_OK)
            return result;
    }
    while (*done < count) {
        if (mBlock.empty()) {
            if (const KESS_RESULT result = decodeBlock(&mBlock); result != KESS_OK) {
                mBlock = {};
                mLost = true;
                return result;
            }
        }
        const size_t frames = std::min(mBlock.size() / channels, count - *done);
        take(mBlock.first(frames * channels), *done * channels);
        mBlock = mBlock.subspan(frames * channels);
        *done += frames;
        mPosition += frames;
        mFrame += frames;
    }
    return KESS_OK;
}

KESS_RESULT StreamDecoder::read(void* buffer, size_t count, size_t* done)
{
    auto* samples = static_cast<int16_t*>(buffer);
    return readFrames(count, done, [samples](std::span<const float> frames, size_t at) {
        floatToInt16(frames.data(), samples + at, frames.size());
    });
}

KESS_RESULT StreamDecoder::readFloat(float* buffer, size_t count, size_t* done)
{
    return readFrames(count, done, [buffer](std::span<const float> frames, size_t at) {
        std::copy(frames.begin(), frames.end(), buffer + at);
    });
}

} // namespace kess
