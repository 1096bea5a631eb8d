// SPDX-License-Identifier: MIT
// The common part of Vorbis and Opus: a stream that is decoded in blocks of float frames. The frames before the sound
// are dropped, and decoding can begin at seek points.
#pragma once

#include "banks/bank_decoders.hpp"

#include <span>
#include <vector>

namespace engine {

class BankStreamDecoder : public Decoder
{
public:
    [[nodiscard]] const SoundFacts& facts() const final { return mSound->facts; }
    base::Result<> seek(uint64_t frame) final;
    base::Result<size_t> read(void* buffer, size_t count) final;
    base::Result<size_t> readFloat(float* buffer, size_t count) final;

protected:
    [[nodiscard]] const BankSound& sound() const { return *mSound; }

    // preroll: the number of decoded samples after a seek point that may differ from those of sequential decoding. A
    // seek begins at least that far before its target.
    BankStreamDecoder(BankSoundPointer sound, uint64_t preroll);

    // Resets the codec. The next block begins with the first sample of the packet at offset.
    virtual base::Result<> restart(uint64_t offset) = 0;

    // Decodes one packet to interleaved frames, possibly none. They stay valid until the next call.
    virtual base::Result<std::span<float>> decodeBlock() = 0;

private:
    template <typename Take>
    base::Result<size_t> readFrames(size_t count, Take take);
    base::Result<> nextBlock();
    base::Result<> skipTo(uint64_t position);
    void correct(std::span<float> block) const;

    BankSoundPointer mSound;
    uint64_t mPreroll;
    std::span<const float> mBlock; // decoded and not yet delivered
    uint64_t mPosition = 0; // of the block's first frame, in decoded samples
    uint64_t mFrame = 0; // of the sound, delivered next
    bool mNeedsRestart = true;
};

} // namespace engine
