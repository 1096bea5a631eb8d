// What the lossy codecs have in common: they decode to float, and 16-bit samples are made from that.
#pragma once

#include "decode/decoder.hpp"

#include <vector>

namespace kess {

class FloatDecoder : public Decoder
{
public:
    [[nodiscard]] const SoundFacts& facts() const final { return mFacts; }
    [[nodiscard]] KESS_RESULT read(void* buffer, size_t count, size_t* done) final;
    [[nodiscard]] KESS_RESULT readFloat(float* buffer, size_t count, size_t* done) final;

protected:
    // Decodes at least one and at most count frames; none at the end, and where the file is damaged.
    [[nodiscard]] virtual size_t decode(float* buffer, size_t count) = 0;

    // To be filled by those who derive. The format stays 16 bits.
    SoundFacts mFacts;

private:
    std::vector<float> mScratch;
};

// Brings the channels of interleaved frames from the order that Vorbis and Opus have (Vorbis I, 4.3.9; RFC 7845, 5.1.1)
// into that of WAV files: front left, right, centre, low frequencies, back, side. Other numbers of channels than 3 and
// 5 to 8 stay as they are.
void reorderXiphChannels(float* frames, size_t count, int channels);

} // namespace kess
