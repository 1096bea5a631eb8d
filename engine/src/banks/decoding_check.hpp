// SPDX-License-Identifier: MIT
// Verifies that a sound can be decoded from its start and from each of its seek points.
#pragma once

#include "banks/bank_decoders.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace engine {

// The sample of the sound at a position; 0 for positions before the sound.
[[nodiscard]] uint64_t sampleAt(uint64_t position, const bank::Sound& sound);

// ErrorCode::Damaged: the seek table is wrong at that sample.
[[nodiscard]] base::Error misleadingSeek(uint64_t sample);

// Decodes a sound from its start to its end. At each seek point, it compares this with the result of a seek.
class DecodingCheck
{
public:
    // Two decoders of the same sound.
    DecodingCheck(const bank::Sound& sound, Decoder& sequential, Decoder& seeking);

    // ErrorCode::Damaged, with the reason in words.
    base::Result<> run();

    // Of Opus: the number of seek points after which samples differ by more than the format allows, and the worst one.
    // Empty if there are none.
    [[nodiscard]] std::string remark() const;

private:
    [[nodiscard]] bool isOpus() const { return mSound.codec == bank::Codec::Opus; }
    [[nodiscard]] uint64_t preroll() const;
    [[nodiscard]] uint64_t comparisonEnd(size_t point) const;
    base::Result<> read(Decoder& decoder, std::vector<float>& frames, size_t count) const;
    base::Result<> readTo(uint64_t position);
    base::Result<> readBoth(size_t count);
    base::Result<> seekHere();
    base::Result<> compareHere();
    base::Result<> compareUntil(uint64_t end);
    [[nodiscard]] double difference(size_t samples) const;

    const bank::Sound& mSound;
    Decoder& mSequential;
    Decoder& mSeeking;
    std::vector<float> mFrames;
    std::vector<float> mOther;
    uint64_t mPosition = 0; // of mSequential
    size_t mWeak = 0; // seek points
    double mWorst = 0;
    uint64_t mWorstPosition = 0;
};

} // namespace engine
