// Changes the sample rate of a sound, without a seam where it loops.
#pragma once

#include "source/frame_source.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace tarnok {

// Where everything of a sound lies after resampling.
//
// A loop must be a whole number of samples long and begin on a sample. So a looping sound isn't resampled by exactly
// toRate / fromRate, but by the nearest ratio that makes its loop whole: the pitch is off by at most one part in twice
// the new loop length (0.02 cents for a loop of one second at 44.1 kHz, 8.6 cents for one of a hundred samples), and
// the sound as a whole is moved by at most half a new sample, so that the loop's start lies on one.
//
// A sound that doesn't loop as a whole must not be detuned for the sake of a short loop inside it: where that would
// cost more than a cent, the loop is written out a few times, until it is long enough. The sound gets longer by that,
// by less than 900 samples.
class ResamplingPlan
{
public:
    // length is at least 1; a loop lies inside it.
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

    // Where a position of the source is heard, in each round if it lies in the loop; rounded, at most length().
    std::vector<uint64_t> places(uint64_t sourceFrame) const;

private:
    friend class Resampler;

    uint64_t placeInRounds(uint64_t frame) const;

    uint64_t mRounds = 1;
    uint64_t mRoundLength = 0; // of the loop as it is in the source
    uint64_t mSourceLength; // these two with the loop written out
    std::optional<base::Loop> mSourceLoop;
    double mInput = 1; // so many samples of the source ...
    double mOutput = 1; // ... become so many
    uint64_t mLength = 0;
    std::optional<base::Loop> mLoop;
};

// How far below full scale images and aliases are: out of sight of 24 bits, or 20 bits (120 dB), which takes half the
// processor time and is as good for a codec whose own error is near 60 dB.
enum class ResamplingPrecision
{
    Bits24,
    Bits20
};

// Resamples all of source by soxr (band up to 0.913 of the lower Nyquist frequency). At the end of a loop the filter
// hears the loop's start; before the start of a sound that loops as a whole, the loop's end; elsewhere outside the
// sound, silence. spoolFolders: see FrameSpool. toRate becomes the rate of the result.
Result<std::unique_ptr<FrameSource>> resample(FrameSource& source, const ResamplingPlan& plan, double toRate,
                                              const std::vector<std::string>& spoolFolders, std::stop_token stop,
                                              ResamplingPrecision precision = ResamplingPrecision::Bits24);

} // namespace tarnok
