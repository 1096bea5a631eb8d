// SPDX-License-Identifier: MIT
#include "source/looped_sound.hpp"

#include "bank/vector_state.hpp"

#include <algorithm>
#include <cmath>

namespace builder {

LoopedSound::LoopedSound(FrameSource& frames, std::optional<base::Loop> loop, std::stop_token stop)
    : mFrames(frames)
    , mStop(std::move(stop))
{
    const FrameFacts& facts = frames.facts();
    mFacts.channels = facts.channels;
    mFacts.sampleRate = uint32_t(std::lround(facts.sampleRate));
    mFacts.sampleFormat = facts.sampleFormat;
    mFacts.sampleCount = facts.length;
    mFacts.loop = loop;
}

base::Result<> LoopedSound::seek(int64_t position)
{
    mPosition = position;
    return {};
}

base::Result<> LoopedSound::readFloat(float* frames, size_t count)
{
    return read(reinterpret_cast<uint8_t*>(frames), count, sizeof(float),
                [this](void* target, size_t run) { return mFrames.readFloat(static_cast<float*>(target), run); });
}

base::Result<> LoopedSound::readSamples(void* frames, size_t count)
{
    return read(static_cast<uint8_t*>(frames), count, bank::bytesPerSample(mFacts.sampleFormat),
                [this](void* target, size_t run) { return mFrames.readSamples(target, run); });
}

template <typename ReadRun>
base::Result<> LoopedSound::read(uint8_t* target, size_t count, size_t sampleBytes, ReadRun readRun)
{
    const size_t frameBytes = size_t(mFacts.channels) * sampleBytes;
    while (count > 0) {
        if (mStop.stop_requested())
            return base::Error{base::ErrorCode::Cancelled};
        const std::optional<uint64_t> frame = frameAt(mPosition, mFacts);
        const size_t run = size_t(std::min<uint64_t>(count, runLength(frame)));
        if (frame) {
            base::Result<> done = mFrames.seek(*frame);
            if (done)
                done = readRun(target, run);
            if (!done)
                return done;
        } else {
            std::fill_n(target, run * frameBytes, uint8_t(0));
        }
        target += run * frameBytes;
        count -= run;
        mPosition += int64_t(run);
    }
    bank::clearVectorState(); // for the encoder, which continues now
    return {};
}

// The number of frames, starting at the current position, that are contiguous in the sound or all silent.
uint64_t LoopedSound::runLength(std::optional<uint64_t> frame) const
{
    const auto length = int64_t(mFacts.sampleCount);
    if (!frame)
        return mPosition < 0 ? uint64_t(-mPosition) : UINT64_MAX;
    if (mPosition >= 0 && mPosition < length)
        return uint64_t(length - mPosition);
    const uint64_t run = mFacts.loop->end - *frame;
    return mPosition < 0 ? std::min(run, uint64_t(-mPosition)) : run;
}

} // namespace builder
