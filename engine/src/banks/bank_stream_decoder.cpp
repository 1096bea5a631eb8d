#include "banks/bank_decoders.hpp"

#include "banks/bank_file.hpp"
#include "decode/sample_convert.hpp"

#include <algorithm>

namespace kess {

namespace {

constexpr size_t kReadAhead = 16 * 1024;
constexpr int kLengthBits = 21;
static_assert((size_t{1} << kLengthBits) - 1 == bank::kMaximumPacketBytes);

// Who asks for the most that may be needed may use little of it. With this factor, no byte is read more than twice.
constexpr size_t kReadAheadFactor = 2;

} // namespace

DataWindow::DataWindow(EncodedData data)
    : mData(std::move(data))
{ }

KESS_RESULT DataWindow::view(uint64_t offset, size_t count, std::span<const uint8_t>* bytes)
{
    if (offset > mData.bytes || count > mData.bytes - offset)
        return KESS_ERR_FILE_BAD;
    const bool held = offset >= mBufferStart && count <= mBuffered
        && offset - mBufferStart <= static_cast<uint64_t>(mBuffered - count);
    if (!held) {
        const size_t wanted = static_cast<size_t>(
            std::min<uint64_t>(std::max(count * kReadAheadFactor, kReadAhead), mData.bytes - offset));
        mBuffered = 0;
        mBuffer.resize(std::max(mBuffer.size(), wanted));
        const base::Result<> read = mData.source->readAt(mData.offset + offset, std::span(mBuffer).first(wanted));
        if (!read)
            return resultOf(read);
        mBufferStart = offset;
        mBuffered = wanted;
    }
    *bytes = std::span(mBuffer).first(mBuffered).subspan(static_cast<size_t>(offset - mBufferStart));
    return KESS_OK;
}

PacketReader::PacketReader(EncodedData data)
    : mWindow(std::move(data))
{ }

void PacketReader::seek(uint64_t offset)
{
    mNext = std::min(offset, mWindow.size());
}

KESS_RESULT PacketReader::next(std::span<const uint8_t>* packet)
{
    // The length, in groups of seven bits.
    std::span<const uint8_t> bytes;
    size_t length = 0;
    for (int shift = 0;; shift += 7) {
        if (shift >= kLengthBits)
            return KESS_ERR_FILE_BAD;
        if (const KESS_RESULT result = mWindow.view(mNext, 1, &bytes); result != KESS_OK)
            return result;
        ++mNext;
        length |= static_cast<size_t>(bytes[0] & 0x7f) << shift;
        if (!(bytes[0] & 0x80))
            break;
    }
    if (const KESS_RESULT result = mWindow.view(mNext, length, &bytes); result != KESS_OK)
        return result;
    *packet = bytes.first(length);
    mNext += length;
    return KESS_OK;
}

bank::SeekPoint seekPointBefore(const std::vector<bank::SeekPoint>& points, uint64_t position)
{
    const auto behind =
        std::upper_bound(points.begin(), points.end(), position,
                         [](uint64_t wanted, const bank::SeekPoint& point) { return wanted < point.position; });
    return behind == points.begin() ? bank::SeekPoint{} : *(behind - 1);
}

StreamDecoder::StreamDecoder(BankSound sound, uint64_t preroll)
    : mFacts(std::move(sound.facts))
    , mLeadIn(sound.stored.preSkip)
    , mPreroll(preroll)
    , mSeekPoints(std::move(sound.stored.seekPoints))
{
    for (const bank::Correction& correction : sound.stored.corrections)
        mCorrections.push_back({mLeadIn + correction.first, bank::expandCorrection(correction, mFacts.channels)});
}

KESS_RESULT StreamDecoder::seek(uint64_t frame)
{
    if (frame > mFacts.sampleCount)
        return KESS_ERR_INVALID_POSITION;
    mFrame = frame;
    if (frame == mFacts.sampleCount)
        return KESS_OK;
    const uint64_t target = mLeadIn + frame;
    const bank::SeekPoint place = seekPointBefore(mSeekPoints, target - std::min(target, mPreroll));
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

KESS_RESULT StreamDecoder::nextBlock()
{
    std::span<float> block;
    if (const KESS_RESULT result = decodeBlock(&block); result != KESS_OK) {
        mBlock = {};
        mLost = true;
        return result;
    }
    correct(block);
    mBlock = block;
    return KESS_OK;
}

// block begins at mPosition.
void StreamDecoder::correct(std::span<float> block) const
{
    const auto channels = static_cast<size_t>(mFacts.channels);
    for (const Corrected& corrected : mCorrections) {
        const uint64_t begin = std::max(mPosition, corrected.position);
        const uint64_t end =
            std::min(mPosition + block.size() / channels, corrected.position + corrected.values.size() / channels);
        if (begin >= end)
            continue;
        const float* value = corrected.values.data() + static_cast<size_t>(begin - corrected.position) * channels;
        for (float& sample : block.subspan(static_cast<size_t>(begin - mPosition) * channels,
                                           static_cast<size_t>(end - begin) * channels))
            sample += *value++;
    }
}

KESS_RESULT StreamDecoder::skipTo(uint64_t position)
{
    const auto channels = static_cast<size_t>(mFacts.channels);
    while (mPosition < position) {
        if (mBlock.empty()) {
            if (const KESS_RESULT result = nextBlock(); result != KESS_OK)
                return result;
        }
        const size_t frames = static_cast<size_t>(std::min<uint64_t>(mBlock.size() / channels, position - mPosition));
        mBlock = mBlock.subspan(frames * channels);
        mPosition += frames;
    }
    return KESS_OK;
}

template <typename Take>
KESS_RESULT StreamDecoder::readFrames(size_t count, size_t* done, Take take)
{
    const auto channels = static_cast<size_t>(mFacts.channels);
    *done = 0;
    count = static_cast<size_t>(std::min<uint64_t>(count, mFacts.sampleCount - mFrame));
    if (mLost || mPosition != mLeadIn + mFrame) {
        if (const KESS_RESULT result = seek(mFrame); result != KESS_OK)
            return result;
    }
    while (*done < count) {
        if (mBlock.empty()) {
            if (const KESS_RESULT result = nextBlock(); result != KESS_OK)
                return result;
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
