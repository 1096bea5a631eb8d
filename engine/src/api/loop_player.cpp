// SPDX-License-Identifier: MIT
#include "api/loop_player.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace engine {

size_t LoopPlayer::frameBytes(Form form) const
{
    return size_t(facts().channels) * (form == AsFloat ? sizeof(float) : bytesPerSample(facts().format));
}

base::Result<> LoopPlayer::seek(uint64_t frame)
{
    mAtSeam = false;
    return moveTo(frame);
}

base::Result<> LoopPlayer::moveTo(uint64_t frame)
{
    mInStoredLoop = false;
    base::Result<> moved = mDecoder->seek(frame);
    if (moved)
        mPosition = frame;
    return moved;
}

base::Result<size_t> LoopPlayer::decode(uint8_t* buffer, Form form, size_t count)
{
    return form == AsFloat ? mDecoder->readFloat(reinterpret_cast<float*>(buffer), count)
                           : mDecoder->read(buffer, count);
}

bool LoopPlayer::isShortLoop() const
{
    constexpr uint64_t kMaximumFrames = 16384;
    constexpr uint64_t kMaximumSamples = 65536;
    const uint64_t frames = loop().end - loop().start;
    return frames <= kMaximumFrames && frames * uint64_t(facts().channels) <= kMaximumSamples;
}

bool LoopPlayer::storeLoop(Form form)
{
    std::vector<uint8_t>& stored = mStoredLoop[form];
    if (!isShortLoop())
        return false;
    if (!stored.empty())
        return true;
    const auto frames = size_t(loop().end - loop().start);
    if (!mDecoder->seek(loop().start))
        return false;
    stored.resize(frames * frameBytes(form));
    const base::Result<size_t> decoded = decode(stored.data(), form, frames);
    if (!decoded || *decoded < frames)
        stored.clear();
    return !stored.empty();
}

base::Result<> LoopPlayer::repeatLoop(Form form)
{
    if (storeLoop(form)) {
        mInStoredLoop = true;
        mPosition = loop().start;
    } else if (base::Result<> moved = moveTo(loop().start); !moved) {
        return moved;
    }
    if (mLoopsLeft > 0)
        --mLoopsLeft;
    return {};
}

// What a codec decodes depends on the samples before. So the last repetition is decoded again, and the samples after it
// are the same as if all repetitions had been decoded.
base::Result<> LoopPlayer::leaveStoredLoop(Form form)
{
    mInStoredLoop = false;
    if (base::Result<> moved = mDecoder->seek(loop().start); !moved)
        return moved;
    alignas(float) std::array<uint8_t, 8192> skipped;
    const size_t most = skipped.size() / frameBytes(form);
    for (auto frames = size_t(mPosition - loop().start); frames > 0;) {
        const size_t wanted = std::min(frames, most);
        base::Result<size_t> decoded = decode(skipped.data(), form, wanted);
        if (!decoded)
            return std::move(decoded.error());
        if (*decoded < wanted)
            return base::Error{base::ErrorCode::Damaged};
        frames -= wanted;
    }
    return {};
}

base::Result<size_t> LoopPlayer::readSome(uint8_t* buffer, Form form, size_t count)
{
    // The loop is stored by form, and the caller may change the form in the middle of it.
    if (mInStoredLoop && (mPosition >= loop().end || !storeLoop(form))) {
        if (base::Result<> result = leaveStoredLoop(form); !result)
            return std::move(result.error());
    }
    if (!mInStoredLoop)
        return decode(buffer, form, count);
    const size_t bytes = frameBytes(form);
    std::memcpy(buffer, &mStoredLoop[form][size_t(mPosition - loop().start) * bytes], count * bytes);
    return count;
}

base::Result<size_t> LoopPlayer::read(void* buffer, Form form, size_t count)
{
    if (mLoopsLeft != 0 && isShortLoop())
        mStoredLoop[form].reserve(size_t(loop().end - loop().start) * frameBytes(form));
    auto* bytes = static_cast<uint8_t*>(buffer);
    size_t done = 0;
    while (done < count) {
        if (mAtSeam && mLoopsLeft != 0) {
            if (base::Result<> repeated = repeatLoop(form); !repeated)
                return std::move(repeated.error());
        }
        mAtSeam = false;
        const bool endsAtSeam = mLoopsLeft != 0 && isInLoop();
        const uint64_t end = endsAtSeam || (mInStoredLoop && isInLoop()) ? loop().end : facts().sampleCount;
        if (mPosition >= end)
            break;
        const auto wanted = size_t(std::min<uint64_t>(count - done, end - mPosition));
        base::Result<size_t> got = readSome(bytes + done * frameBytes(form), form, wanted);
        if (got) {
            done += *got;
            mPosition += *got;
        }
        if (!got || *got < wanted) {
            // Samples before damage are delivered. The next call has none and reports it.
            if (done > 0)
                return done;
            return got ? base::Error{base::ErrorCode::Damaged, "its data is damaged here"} : std::move(got.error());
        }
        mAtSeam = endsAtSeam && mPosition == end;
    }
    return done;
}

} // namespace engine
