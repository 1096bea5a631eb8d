// SPDX-License-Identifier: MIT
#include "audio_comparison.hpp"

#include "base/bytes.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>

namespace tnb {

namespace {

using base::Result;

constexpr unsigned kFramesAtOnce = 8192;

bool isDecodable(const SoundProperties& facts)
{
    return facts.codec != KESS_CODEC_XMA && facts.codec != KESS_CODEC_AT9 && facts.codec != KESS_CODEC_UNKNOWN;
}

// The samples of one sound in the highest precision that the engine delivers.
class SampleReader
{
public:
    SampleReader(KESS::Sound& sound, const SoundProperties& facts)
        : mSound(sound)
        , mFacts(facts)
        , mFloats(static_cast<size_t>(kFramesAtOnce) * static_cast<size_t>(facts.channels))
        , mSamples(mFloats.size())
    { }

    // The next frames, at most kFramesAtOnce. ErrorCode::Damaged: the sound ends before its length.
    Result<std::span<const double>> read(unsigned frames)
    {
        const size_t count = static_cast<size_t>(frames) * static_cast<size_t>(mFacts.channels);
        for (size_t filled = 0; filled < count;) {
            const Result<size_t> got = readSome(filled, count - filled);
            if (!got)
                return got.error();
            filled += *got;
        }
        return std::span<const double>(mSamples).first(count);
    }

private:
    Result<size_t> readSome(size_t at, size_t count)
    {
        unsigned got = 0; // bytes or frames
        KESS_RESULT result = KESS_OK;
        // Floats don't hold all bits of these samples, which take as much room as floats.
        const bool isWide = mFacts.format == KESS_SOUND_FORMAT_PCM32;
        if (isWide)
            result = mSound.readData(mFloats.data(), static_cast<unsigned>(count * sizeof(float)), &got);
        else
            result = mSound.readFloat(mFloats.data(), static_cast<unsigned>(count) / channels(), &got);
        if (result != KESS_OK && result != KESS_ERR_FILE_EOF)
            return engineError(result);
        if (got == 0)
            return base::Error{base::ErrorCode::Damaged, "damaged: it ends early"};
        const size_t samples = isWide ? got / sizeof(float) : static_cast<size_t>(got) * channels();
        for (size_t i = 0; i < samples; ++i)
            mSamples[at + i] = isWide ? wideSample(i) : static_cast<double>(mFloats[i]);
        return samples;
    }

    [[nodiscard]] unsigned channels() const { return static_cast<unsigned>(mFacts.channels); }

    [[nodiscard]] double wideSample(size_t index) const
    {
        const auto* bytes = reinterpret_cast<const uint8_t*>(&mFloats[index]);
        return base::loadLittle<int32_t>(bytes) / 2147483648.0;
    }

    KESS::Sound& mSound;
    const SoundProperties& mFacts;
    std::vector<float> mFloats;
    std::vector<double> mSamples;
};

// Two samples that aren't numbers are equal.
double distance(double left, double right)
{
    if (left == right || (std::isnan(left) && std::isnan(right)))
        return 0;
    const double difference = std::abs(left - right);
    return std::isnan(difference) ? std::numeric_limits<double>::infinity() : difference;
}

} // namespace

Result<std::optional<AudioDifference>> compareAudio(const ComparedSound& left, const ComparedSound& right)
{
    if (!isDecodable(left.facts) || !isDecodable(right.facts)) {
        const bool isEqual = left.facts.codec == right.facts.codec && left.facts.bytes == right.facts.bytes
            && left.facts.checksum == right.facts.checksum;
        return isEqual ? std::nullopt : std::optional(AudioDifference());
    }
    if (left.facts.channels != right.facts.channels)
        return std::optional(AudioDifference());

    AudioDifference difference;
    SampleReader leftReader(left.sound, left.facts);
    SampleReader rightReader(right.sound, right.facts);
    const uint64_t common = std::min(left.facts.samples, right.facts.samples);
    const auto channels = static_cast<size_t>(left.facts.channels);
    for (uint64_t position = 0; position < common;) {
        const auto frames = static_cast<unsigned>(std::min<uint64_t>(common - position, kFramesAtOnce));
        const Result<std::span<const double>> leftSamples = leftReader.read(frames);
        const Result<std::span<const double>> rightSamples = leftSamples ? rightReader.read(frames) : leftSamples;
        if (!rightSamples)
            return rightSamples.error();
        for (size_t i = 0; i < leftSamples->size(); ++i) {
            const double apart = distance((*leftSamples)[i], (*rightSamples)[i]);
            if (apart == 0)
                continue;
            if (!difference.firstSample)
                difference.firstSample = position + i / channels;
            difference.largest = std::max(difference.largest.value_or(0), apart);
        }
        position += frames;
    }
    if (!difference.firstSample && left.facts.samples != right.facts.samples)
        difference.firstSample = common;
    return difference.firstSample ? std::optional(difference) : std::nullopt;
}

} // namespace tnb
