// SPDX-License-Identifier: MIT
#include "banks/decoding_check.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace engine {

namespace {

constexpr size_t kFramesAtOnce = 4096;
constexpr size_t kComparedFrames = 256;

// The limits that the format sets for Opus, in windows of 20 ms: at most -60 dB of the sound, or -90 dB of full scale.
constexpr double kRelativeLimit = 1e-3;
constexpr double kFaint = 3.16e-2;
constexpr uint32_t kWindowsPerSecond = 50;

// A failure of the medium keeps its own text.
base::Error describe(base::Error error, std::string text)
{
    if (error.code == base::ErrorCode::Damaged)
        error.text = std::move(text);
    return error;
}

} // namespace

uint64_t sampleAt(uint64_t position, const bank::Sound& sound)
{
    return position > sound.preSkip ? position - sound.preSkip : 0;
}

base::Error misleadingSeek(uint64_t sample)
{
    return {base::ErrorCode::Damaged, "its seek table leads astray at sample " + std::to_string(sample)};
}

DecodingCheck::DecodingCheck(const bank::Sound& sound, Decoder& sequential, Decoder& seeking)
    : mSound(sound)
    , mSequential(sequential)
    , mSeeking(seeking)
    , mFrames(kFramesAtOnce * sound.channels)
    , mOther(mFrames.size())
{ }

base::Result<> DecodingCheck::run()
{
    for (size_t i = 0; i < mSound.seekPoints.size(); ++i) {
        const uint64_t target = sampleAt(mSound.seekPoints[i].position + preroll(), mSound);
        if (target < mPosition || target >= mSound.sampleCount)
            continue;
        base::Result<> result = readTo(target);
        if (result)
            result = isOpus() ? compareUntil(comparisonEnd(i)) : compareHere();
        if (!result)
            return result;
    }
    return readTo(mSound.sampleCount);
}

std::string DecodingCheck::remark() const
{
    if (mWeak == 0)
        return {};
    return std::to_string(mWeak) + (mWeak == 1 ? " seek point is" : " seek points are") + " weak: at sample "
        + std::to_string(mWorstPosition) + " the samples after a seek differ by "
        + std::to_string(std::lround(20 * std::log10(mWorst * kRelativeLimit))) + " dB";
}

// Positions after a seek point, from which on samples are correct.
uint64_t DecodingCheck::preroll() const
{
    return isOpus() ? mSound.sampleRate * kOpusPrerollMilliseconds / 1000 : 0;
}

// From that sample on, a seek begins at the next seek point. The end of the sound for the last one.
uint64_t DecodingCheck::comparisonEnd(size_t point) const
{
    return point + 1 < mSound.seekPoints.size()
        ? std::min(sampleAt(mSound.seekPoints[point + 1].position + preroll(), mSound), mSound.sampleCount)
        : mSound.sampleCount;
}

base::Result<> DecodingCheck::read(Decoder& decoder, std::vector<float>& frames, size_t count) const
{
    size_t done = 0;
    base::Result<size_t> got = decoder.readFloat(frames.data(), count);
    if (got)
        done = *got;
    if (done == count)
        return {};
    return describe(got ? base::Error{base::ErrorCode::Damaged} : std::move(got.error()),
                    "it can't be decoded from sample " + std::to_string(mPosition + done) + " on");
}

base::Result<> DecodingCheck::readTo(uint64_t position)
{
    while (mPosition < position) {
        const auto count = static_cast<size_t>(std::min<uint64_t>(kFramesAtOnce, position - mPosition));
        if (base::Result<> result = read(mSequential, mFrames, count); !result)
            return result;
        mPosition += count;
    }
    return {};
}

// Reads count frames with both decoders.
base::Result<> DecodingCheck::readBoth(size_t count)
{
    base::Result<> result = read(mSequential, mFrames, count);
    return result ? read(mSeeking, mOther, count) : result;
}

// Seeks to the start first: otherwise the decoder might continue from where it is and not use the seek point.
base::Result<> DecodingCheck::seekHere()
{
    base::Result<> result = mSeeking.seek(0);
    if (result)
        result = mSeeking.seek(mPosition);
    if (!result)
        return describe(std::move(result.error()), misleadingSeek(mPosition).text);
    return {};
}

base::Result<> DecodingCheck::compareHere()
{
    const auto count = static_cast<size_t>(std::min<uint64_t>(kComparedFrames, mSound.sampleCount - mPosition));
    base::Result<> result = seekHere();
    if (result)
        result = readBoth(count);
    const auto samples = static_cast<ptrdiff_t>(count * mSound.channels);
    if (result && !std::equal(mFrames.begin(), mFrames.begin() + samples, mOther.begin()))
        result = misleadingSeek(mPosition);
    mPosition += count;
    return result;
}

base::Result<> DecodingCheck::compareUntil(uint64_t end)
{
    const uint32_t window = std::max(mSound.sampleRate / kWindowsPerSecond, 1u);
    double worst = 0;
    base::Result<> result = seekHere();
    while (result && mPosition < end) {
        const auto count = static_cast<size_t>(std::min<uint64_t>(window, end - mPosition));
        result = readBoth(count);
        if (!result)
            break;
        const double here = difference(count * mSound.channels);
        worst = std::max(worst, here);
        if (here > mWorst) {
            mWorst = here;
            mWorstPosition = mPosition;
        }
        mPosition += count;
    }
    mWeak += worst > 1;
    return result;
}

// Relative to the limit of the format.
double DecodingCheck::difference(size_t samples) const
{
    double signal = 0;
    double squares = 0;
    for (size_t i = 0; i < samples; ++i) {
        const double apart = static_cast<double>(mFrames[i]) - mOther[i];
        signal += static_cast<double>(mFrames[i]) * mFrames[i];
        squares += apart * apart;
    }
    const auto count = static_cast<double>(samples);
    return std::sqrt(squares / count) / (kRelativeLimit * std::max(std::sqrt(signal / count), kFaint));
}

} // namespace engine
