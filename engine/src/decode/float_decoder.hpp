// SPDX-License-Identifier: MIT
// The common part of lossy codecs: they decode to float, and 16-bit samples are made from that.
#pragma once

#include "decode/decoder.hpp"

#include <vector>

namespace engine {

class FloatDecoder : public Decoder
{
public:
    [[nodiscard]] const SoundFacts& facts() const final { return mFacts; }
    base::Result<size_t> read(void* buffer, size_t count) final;
    base::Result<size_t> readFloat(float* buffer, size_t count) final;

protected:
    // Decodes at least one and at most count frames. Returns 0 at the end and where the file is damaged.
    [[nodiscard]] virtual size_t decode(float* buffer, size_t count) = 0;

    // Filled by the derived classes. The format stays 16 bits.
    SoundFacts mFacts;

private:
    std::vector<float> mScratch;
};

// Reorders the channels of interleaved frames from the order of Vorbis and Opus (Vorbis I, 4.3.9; RFC 7845, 5.1.1) to
// that of WAV files: front left, right, centre, low frequencies, back, side. Numbers of channels other than 3 and 5 to
// 8 stay unchanged.
void reorderXiphChannels(float* frames, size_t count, int channels);

} // namespace engine
