#include "source/frame_source.hpp"

#include <algorithm>
#include <cstring>

namespace tarnok {

namespace {

bank::SampleFormat widest(const std::vector<std::unique_ptr<FrameSource>>& parts)
{
    // The numbers of the formats rise with their width, float last.
    bank::SampleFormat format = bank::SampleFormat::None;
    for (const auto& part : parts)
        format = std::max(format, part->facts().sampleFormat);
    return format;
}

// See interleave().
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

    Status seek(uint64_t frame) override
    {
        mPosition = frame;
        for (const auto& part : mParts) {
            if (Status status = part->seek(std::min(frame, part->facts().length)); !status)
                return status;
        }
        return {};
    }

    Status readFloat(float* frames, size_t count) override
    {
        return readParts(frames, count, sizeof(float),
                         [](FrameSource& part, std::vector<uint8_t>& room, size_t wanted) {
                             return part.readFloat(reinterpret_cast<float*>(room.data()), wanted);
                         });
    }

    Status readSamples(void* frames, size_t count) override
    {
        if (mFacts.sampleFormat == bank::SampleFormat::Float)
            return readFloat(static_cast<float*>(frames), count);
        const size_t width = bank::bytesPerSample(mFacts.sampleFormat);
        return readParts(frames, count, width, [width](FrameSource& part, std::vector<uint8_t>& room, size_t wanted) {
            if (Status status = part.readSamples(room.data(), wanted); !status)
                return status;
            widen(room, wanted * size_t(part.facts().channels), bank::bytesPerSample(part.facts().sampleFormat), width);
            return Status();
        });
    }

private:
    // Little-endian integers of `from` bytes become ones of `to` bytes in place: the new low bytes are zero.
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
    Status readParts(void* frames, size_t count, size_t width, ReadPart readPart)
    {
        auto* target = static_cast<uint8_t*>(frames);
        const size_t frameBytes = size_t(mFacts.channels) * width;
        for (const auto& part : mParts) {
            const size_t partBytes = size_t(part->facts().channels) * width;
            const uint64_t left = part->facts().length - std::min(mPosition, part->facts().length);
            const size_t wanted = size_t(std::min<uint64_t>(count, left));
            mRoom.assign(count * partBytes, 0);
            if (wanted > 0) {
                if (Status status = readPart(*part, mRoom, wanted); !status)
                    return status;
            }
            for (size_t frame = 0; frame < count; ++frame)
                std::memcpy(target + frame * frameBytes, &mRoom[frame * partBytes], partBytes);
            target += partBytes;
        }
        mPosition += count;
        return {};
    }

    std::vector<std::unique_ptr<FrameSource>> mParts;
    FrameFacts mFacts;
    uint64_t mPosition = 0;
    std::vector<uint8_t> mRoom;
};

// Holds a stretch of a sound; the rest is read from the source. Each of the two forms is read when it is first asked
// for; usually only one is.
class HeldStretch final : public FrameSource
{
public:
    HeldStretch(std::unique_ptr<FrameSource> source, const base::Loop& stretch)
        : mSource(std::move(source))
        , mStretch(stretch)
    { }

    const FrameFacts& facts() const override { return mSource->facts(); }

    Status seek(uint64_t frame) override
    {
        mPosition = frame;
        return {};
    }

    Status readFloat(float* frames, size_t count) override
    {
        return read(frames, count, sizeof(float), &mFloats, [this](uint8_t* target, size_t run) {
            return mSource->readFloat(reinterpret_cast<float*>(target), run);
        });
    }

    Status readSamples(void* frames, size_t count) override
    {
        return read(frames, count, bank::bytesPerSample(facts().sampleFormat), &mSamples,
                    [this](uint8_t* target, size_t run) { return mSource->readSamples(target, run); });
    }

private:
    template <typename ReadSource>
    Status read(void* frames, size_t count, size_t width, std::vector<uint8_t>* held, ReadSource readSource)
    {
        auto* target = static_cast<uint8_t*>(frames);
        const size_t frameBytes = size_t(facts().channels) * width;
        while (count > 0) {
            const bool isHeld = mPosition >= mStretch.start && mPosition < mStretch.end;
            const uint64_t end = isHeld ? mStretch.end : mPosition < mStretch.start ? mStretch.start : facts().length;
            const size_t run = size_t(std::min<uint64_t>(count, end - mPosition));
            Status status;
            if (!isHeld)
                status = readAt(mPosition, target, run, readSource);
            else if (held->empty())
                status = hold(held, frameBytes, readSource);
            if (!status)
                return status;
            if (isHeld)
                std::memcpy(target, held->data() + size_t(mPosition - mStretch.start) * frameBytes, run * frameBytes);
            target += run * frameBytes;
            count -= run;
            mPosition += run;
        }
        return {};
    }

    template <typename ReadSource>
    Status hold(std::vector<uint8_t>* held, size_t frameBytes, ReadSource readSource)
    {
        const size_t length = size_t(mStretch.end - mStretch.start);
        held->resize(length * frameBytes);
        Status status = readAt(mStretch.start, held->data(), length, readSource);
        if (!status)
            held->clear();
        return status;
    }

    template <typename ReadSource>
    Status readAt(uint64_t frame, uint8_t* target, size_t count, ReadSource readSource)
    {
        Status status = mSource->seek(frame);
        return status ? readSource(target, count) : status;
    }

    std::unique_ptr<FrameSource> mSource;
    base::Loop mStretch;
    std::vector<uint8_t> mFloats;
    std::vector<uint8_t> mSamples;
    uint64_t mPosition = 0;
};

bool isShort(const FrameFacts& facts)
{
    constexpr uint64_t kMostSamples = 64 << 10; // half a megabyte in both forms
    return facts.length <= kMostSamples / uint64_t(facts.channels);
}

} // namespace

std::unique_ptr<FrameSource> interleave(std::vector<std::unique_ptr<FrameSource>> parts)
{
    if (parts.size() == 1)
        return std::move(parts.front());
    return std::make_unique<Interleaver>(std::move(parts));
}

std::unique_ptr<FrameSource> holdIfShort(std::unique_ptr<FrameSource> source)
{
    if (!isShort(source->facts()))
        return source;
    const base::Loop whole{0, source->facts().length};
    return std::make_unique<HeldStretch>(std::move(source), whole);
}

std::unique_ptr<FrameSource> holdLoopIfShort(std::unique_ptr<FrameSource> source, const std::optional<base::Loop>& loop)
{
    constexpr uint64_t kMostFrames = 64 << 10; // the reach of encoders: a longer loop is heard once
    const FrameFacts& facts = source->facts();
    if (isShort(facts) || !loop || loop->start >= loop->end || loop->end > facts.length
        || loop->end - loop->start > kMostFrames)
        return source;
    return std::make_unique<HeldStretch>(std::move(source), *loop);
}

} // namespace tarnok
