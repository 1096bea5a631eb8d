// SPDX-License-Identifier: MIT
#include "source/interleaver.hpp"

#include <algorithm>
#include <cstring>

namespace builder {

namespace {

bank::SampleFormat widest(const std::vector<std::unique_ptr<FrameSource>>& parts)
{
    // The numbers of the formats increase with their width; float is the last.
    bank::SampleFormat format = bank::SampleFormat::None;
    for (const auto& part : parts)
        format = std::max(format, part->facts().sampleFormat);
    return format;
}

class Interleaver final : public FrameSource
{
public:
    explicit Interleaver(std::vector<std::unique_ptr<FrameSource>> parts)
        : mParts(std::move(parts))
    {
        mFacts.sampleRate = mParts.front()->facts().sampleRate;
        mFacts.sampleFormat = widest(mParts);
        for (const auto& part : mParts) {
            mFacts.channels += part->facts().channels;
            mFacts.length = std::max(mFacts.length, part->facts().length);
        }
    }

    const FrameFacts& facts() const override { return mFacts; }

    base::Result<> seek(uint64_t frame) override
    {
        mPosition = frame;
        for (const auto& part : mParts) {
            if (base::Result<> status = part->seek(std::min(frame, part->facts().length)); !status)
                return status;
        }
        return {};
    }

    base::Result<> readFloat(float* frames, size_t count) override
    {
        return readParts(frames, count, sizeof(float),
                         [](FrameSource& part, std::vector<uint8_t>& buffer, size_t wanted) {
                             return part.readFloat(reinterpret_cast<float*>(buffer.data()), wanted);
                         });
    }

    base::Result<> readSamples(void* frames, size_t count) override
    {
        if (mFacts.sampleFormat == bank::SampleFormat::Float)
            return readFloat(static_cast<float*>(frames), count);
        const size_t width = bank::bytesPerSample(mFacts.sampleFormat);
        return readParts(frames, count, width, [width](FrameSource& part, std::vector<uint8_t>& buffer, size_t wanted) {
            if (base::Result<> status = part.readSamples(buffer.data(), wanted); !status)
                return status;
            widen(buffer, wanted * size_t(part.facts().channels), bank::bytesPerSample(part.facts().sampleFormat),
                  width);
            return base::Result<>();
        });
    }

private:
    // Widens little-endian integers from `from` to `to` bytes in the same buffer. The new low bytes are zero.
    static void widen(std::vector<uint8_t>& samples, size_t count, size_t from, size_t to)
    {
        if (from == to)
            return;
        for (size_t i = count; i-- > 0;) {
            uint8_t sample[4] = {};
            std::memcpy(sample + (to - from), &samples[i * from], from);
            std::memcpy(&samples[i * to], sample, to);
        }
    }

    template <typename ReadPart>
    base::Result<> readParts(void* frames, size_t count, size_t width, ReadPart readPart)
    {
        auto* target = static_cast<uint8_t*>(frames);
        const size_t frameBytes = size_t(mFacts.channels) * width;
        for (const auto& part : mParts) {
            const size_t partBytes = size_t(part->facts().channels) * width;
            const uint64_t remaining = part->facts().length - std::min(mPosition, part->facts().length);
            const size_t wanted = size_t(std::min<uint64_t>(count, remaining));
            mPartSamples.assign(count * partBytes, 0);
            if (wanted > 0) {
                if (base::Result<> status = readPart(*part, mPartSamples, wanted); !status)
                    return status;
            }
            for (size_t frame = 0; frame < count; ++frame)
                std::memcpy(target + frame * frameBytes, &mPartSamples[frame * partBytes], partBytes);
            target += partBytes;
        }
        mPosition += count;
        return {};
    }

    std::vector<std::unique_ptr<FrameSource>> mParts;
    FrameFacts mFacts;
    uint64_t mPosition = 0;
    std::vector<uint8_t> mPartSamples;
};

} // namespace

std::unique_ptr<FrameSource> interleave(std::vector<std::unique_ptr<FrameSource>> parts)
{
    if (parts.size() == 1)
        return std::move(parts.front());
    return std::make_unique<Interleaver>(std::move(parts));
}

} // namespace builder
