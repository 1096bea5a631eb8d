// SPDX-License-Identifier: MIT
#include "source/held_source.hpp"

#include <algorithm>
#include <cstring>
#include <vector>

namespace builder {

namespace {

// Keeps a range of a sound in memory; the rest is read from the source. Floats and samples in the source's format are
// loaded separately, when they are first requested; usually only one of them is.
class HeldRange final : public FrameSource
{
public:
    HeldRange(std::unique_ptr<FrameSource> source, const base::Loop& range)
        : mSource(std::move(source))
        , mRange(range)
    { }

    const FrameFacts& facts() const override { return mSource->facts(); }

    base::Result<> seek(uint64_t frame) override
    {
        mPosition = frame;
        return {};
    }

    base::Result<> readFloat(float* frames, size_t count) override
    {
        return read(frames, count, sizeof(float), &mFloats, [this](uint8_t* target, size_t run) {
            return mSource->readFloat(reinterpret_cast<float*>(target), run);
        });
    }

    base::Result<> readSamples(void* frames, size_t count) override
    {
        return read(frames, count, bank::bytesPerSample(facts().sampleFormat), &mSamples,
                    [this](uint8_t* target, size_t run) { return mSource->readSamples(target, run); });
    }

private:
    template <typename ReadSource>
    base::Result<> read(void* frames, size_t count, size_t width, std::vector<uint8_t>* held, ReadSource readSource)
    {
        auto* target = static_cast<uint8_t*>(frames);
        const size_t frameBytes = size_t(facts().channels) * width;
        while (count > 0) {
            const bool isHeld = mPosition >= mRange.start && mPosition < mRange.end;
            const uint64_t end = isHeld ? mRange.end : mPosition < mRange.start ? mRange.start : facts().length;
            const size_t run = size_t(std::min<uint64_t>(count, end - mPosition));
            base::Result<> status;
            if (!isHeld)
                status = readAt(mPosition, target, run, readSource);
            else if (held->empty())
                status = hold(held, frameBytes, readSource);
            if (!status)
                return status;
            if (isHeld)
                std::memcpy(target, held->data() + size_t(mPosition - mRange.start) * frameBytes, run * frameBytes);
            target += run * frameBytes;
            count -= run;
            mPosition += run;
        }
        return {};
    }

    template <typename ReadSource>
    base::Result<> hold(std::vector<uint8_t>* held, size_t frameBytes, ReadSource readSource)
    {
        const size_t length = size_t(mRange.end - mRange.start);
        held->resize(length * frameBytes);
        base::Result<> status = readAt(mRange.start, held->data(), length, readSource);
        if (!status)
            held->clear();
        return status;
    }

    template <typename ReadSource>
    base::Result<> readAt(uint64_t frame, uint8_t* target, size_t count, ReadSource readSource)
    {
        base::Result<> status = mSource->seek(frame);
        return status ? readSource(target, count) : status;
    }

    std::unique_ptr<FrameSource> mSource;
    base::Loop mRange;
    std::vector<uint8_t> mFloats;
    std::vector<uint8_t> mSamples;
    uint64_t mPosition = 0;
};

bool isShort(const FrameFacts& facts)
{
    constexpr uint64_t kMaximumSamples = 64 << 10; // half a megabyte in both forms
    return facts.length <= kMaximumSamples / uint64_t(facts.channels);
}

} // namespace

std::unique_ptr<FrameSource> holdIfShort(std::unique_ptr<FrameSource> source)
{
    if (!isShort(source->facts()))
        return source;
    const base::Loop whole{0, source->facts().length};
    return std::make_unique<HeldRange>(std::move(source), whole);
}

std::unique_ptr<FrameSource> holdLoopIfShort(std::unique_ptr<FrameSource> source, const std::optional<base::Loop>& loop)
{
    constexpr uint64_t kMaximumFrames = 64 << 10; // the lookaround of encoders: they read a longer loop only once
    const FrameFacts& facts = source->facts();
    if (isShort(facts) || !loop || loop->start >= loop->end || loop->end > facts.length
        || loop->end - loop->start > kMaximumFrames)
        return source;
    return std::make_unique<HeldRange>(std::move(source), *loop);
}

} // namespace builder
