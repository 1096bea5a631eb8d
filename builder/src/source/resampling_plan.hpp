// SPDX-License-Identifier: MIT
// Lengths, loops and positions of a sound before and after resampling.
#pragma once

#include "bank/sound.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace builder {

// Maps positions of a sound to positions after resampling.
//
// A loop must be a whole number of samples long and start on a sample. So a looping sound isn't resampled by exactly
// toRate / fromRate, but by the nearest ratio that gives its loop a whole number of samples. The pitch is off by at
// most 1 / (2 * new loop length): 0.02 cents for a loop of one second at 44.1 kHz, 8.6 cents for a loop of a hundred
// samples. The sound as a whole is shifted by at most half a new sample, so that the loop starts on a sample.
//
// A sound that doesn't loop as a whole must not be detuned for the sake of a short loop inside it. Where the ratio
// would change the pitch by more than a cent, the loop is written out several times until it is long enough. This makes
// the sound longer, by less than 900 samples.
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
        return mSourceLoop ? std::optional(base::Loop{mSourceLoop->start, mSourceLoop->start + mPeriodLength})
                           : std::nullopt;
    }

    // How many times the loop is written out.
    uint64_t repetitions() const { return mRepetitions; }

    // The positions that a position of the source is mapped to: one per repetition if it is in the loop. Rounded, at
    // most length().
    std::vector<uint64_t> positions(uint64_t sourceFrame) const;

private:
    friend class Resampler;

    uint64_t positionWrittenOut(uint64_t frame) const;

    uint64_t mRepetitions = 1;
    uint64_t mPeriodLength = 0; // length of the loop in the source
    uint64_t mSourceLength; // this and mSourceLoop are counted with the loop written out
    std::optional<base::Loop> mSourceLoop;
    // mInput samples of the source become mOutput samples.
    double mInput = 1;
    double mOutput = 1;
    uint64_t mLength = 0;
    std::optional<base::Loop> mLoop;
};

} // namespace builder
