// SPDX-License-Identifier: MIT
#include "source/resampling_plan.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace builder {

namespace {

// One cent: the maximum change of pitch of the whole sound for the sake of an inner loop.
constexpr double kMaximumDetuning = 5.7e-4;

uint64_t wholeLength(double exactly)
{
    return std::max<uint64_t>(1, uint64_t(std::llround(exactly)));
}

// The number of rounds of a loop whose length is close enough to a whole number of samples. Any length above half a
// sample divided by kMaximumDetuning is.
uint64_t roundsInTune(double loopLength)
{
    uint64_t rounds = 1;
    while (std::abs(double(wholeLength(double(rounds) * loopLength)) / (double(rounds) * loopLength) - 1)
           > kMaximumDetuning)
        ++rounds;
    return rounds;
}

} // namespace

ResamplingPlan::ResamplingPlan(uint64_t length, std::optional<base::Loop> loop, double fromRate, double toRate)
    : mSourceLength(length)
    , mSourceLoop(loop)
    , mInput(fromRate)
    , mOutput(toRate)
{
    const double wanted = toRate / fromRate;
    mLength = std::max<uint64_t>(1, uint64_t(std::llround(double(length) * wanted)));
    if (!loop)
        return;

    mRoundLength = loop->end - loop->start;
    mRounds = mRoundLength == length ? 1 : roundsInTune(double(mRoundLength) * wanted);
    mSourceLoop->end = loop->start + mRounds * mRoundLength;
    mSourceLength += mSourceLoop->end - loop->end;

    const uint64_t loopLength = mRounds * mRoundLength;
    const uint64_t newLoopLength = wholeLength(double(loopLength) * wanted);
    const uint64_t divisor = std::gcd(loopLength, newLoopLength);
    const uint64_t input = loopLength / divisor;
    const uint64_t output = newLoopLength / divisor;
    mInput = double(input);
    mOutput = double(output);
    const double ratio = mOutput / mInput;
    const auto start = uint64_t(std::llround(double(loop->start) * ratio));
    mLoop = base::Loop{start, start + newLoopLength};
    mLength = mLoop->end + uint64_t(std::llround(double(length - loop->end) * ratio));
}

std::vector<uint64_t> ResamplingPlan::positions(uint64_t sourceFrame) const
{
    if (!mSourceLoop || sourceFrame < mSourceLoop->start)
        return {positionInRounds(sourceFrame)};
    if (sourceFrame >= mSourceLoop->start + mRoundLength)
        return {positionInRounds(sourceFrame + (mRounds - 1) * mRoundLength)};
    std::vector<uint64_t> positions;
    for (uint64_t round = 0; round < mRounds; ++round)
        positions.push_back(positionInRounds(sourceFrame + round * mRoundLength));
    return positions;
}

uint64_t ResamplingPlan::positionInRounds(uint64_t frame) const
{
    const double anchor = mSourceLoop ? double(mSourceLoop->start) : 0;
    const double newAnchor = mLoop ? double(mLoop->start) : 0;
    const double position = std::round(newAnchor + (double(frame) - anchor) * mOutput / mInput);
    return std::min(mLength, uint64_t(std::max(0.0, position)));
}

} // namespace builder
