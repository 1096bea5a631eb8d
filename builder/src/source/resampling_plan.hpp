// Lengths, loops and positions of a sound before and after its sample rate is changed.
#pragma once

#include "bank/sound.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace tarnok {

// Which position of a sound becomes which by resampling.
//
// A loop must be a whole number of samples long and begin on a sample. So a looping sound isn't resampled by exactly
// toRate / fromRate, but by the nearest ratio that makes its loop whole: the pitch is off by at most one part in twice
// the new loop length (0.02 cents for a loop of one second at 44.1 kHz, 8.6 cents for one of a hundred samples), and
// the sound as a whole is moved by at most half a new sample, so that the loop starts on one.
//
// A sound that doesn't loop as a whole must not be detuned for the sake of a short loop inside it: where that would
// cost more than a cent, the loop is written out a few times, until it is long enough. The sound gets longer by that,
// by less than 900 samples.
class ResamplingPlan
{
public:
    // length is at least 1; a loop is inside it.
    ResamplingPlan(uint64_t length, std::optional<base::Loop> loop, double fromRate, double toRate);

    uint64_t length() const { return mLength; }
    std::optional<base::Loop> loop() const { return mLoop; }

    // The loop in the source.
    std::optional<base::Loop> sourceLoop() const
    {
        return mSourceLoop ? std::optional(base::Loop{mSourceLoop->start, mSourceLoop->start + mRoundLength})
                           : std::nullopt;
    }

    // How many times the loop is written out.
    uint64_t rounds() const { return mRounds; }

    // What a position of the source becomes, in each round if it is in the loop; rounded, at most length().
    std::vector<uint64_t> positions(uint64_t sourceFrame) const;

private:
    friend class Resampler;

    uint64_t positionInRounds(uint64_t frame) const;

    uint64_t mRounds = 1;
    uint64_t mRoundLength = 0; // of the loop as it is in the source
    uint64_t mSourceLength; // these two with the loop written out
    std::optional<base::Loop> mSourceLoop;
    double mInput = 1; // so many samples of the source ...
    double mOutput = 1; // ... become so many
    uint64_t mLength = 0;
    std::optional<base::Loop> mLoop;
};

} // namespace tarnok
