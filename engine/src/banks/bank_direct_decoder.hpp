// SPDX-License-Identifier: MIT
// The common part of PCM and KADPCM: a seek only stores the position of the next read.
#pragma once

#include "banks/bank_decoders.hpp"

#include <algorithm>
#include <utility>

namespace engine {

class BankDirectDecoder : public Decoder
{
public:
    [[nodiscard]] const SoundFacts& facts() const final { return mSound->facts; }
    base::Result<> seek(uint64_t frame) final
    {
        if (frame > facts().sampleCount)
            return base::Error{base::ErrorCode::NotSeekable};
        mFrame = frame;
        return {};
    }

protected:
    explicit BankDirectDecoder(BankSoundPointer sound)
        : mSound(std::move(sound))
    { }

    // count, or the number of frames up to the end if that is less.
    [[nodiscard]] size_t readableFrames(size_t count) const
    {
        return static_cast<size_t>(std::min<uint64_t>(count, facts().sampleCount - mFrame));
    }

    BankSoundPointer mSound;
    uint64_t mFrame = 0; // delivered next
};

} // namespace engine
