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

// How many times a loop must be repeated until its total length is close enough to a whole number of samples. Any total
// length above half a sample / kMaximumDetuning is.
uint64_t repetitionsInTune(double loopLength)
{
    uint64_t repetitions = 1;
    while (std::abs(double(wholeLength(double(repetitions) * loopLength)) / (double(repetitions) * loopLength) - 1)
           > kMaximumDetuning)
        ++repetitions;
    return repetitions;
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

    mPeriodLength = loop->end - loop->start;
    mRepetitions = mPeriodLength == length ? 1 : repetitionsInTune(double(mPeriodLength) * wanted);
    mSourceLoop->end = loop->start + mRepetitions * mPeriodLength;
    mSourceLength += mSourceLoop->end - loop->end;

    const uint64_t loopLength = mRepetitions * mPeriodLength;
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
        return {positionWrittenOut(sourceFrame)};
    if (sourceFrame >= mSourceLoop->start + mPeriodLength)
        return {positionWrittenOut(sourceFrame + (mRepetitions - 1) * mPeriodLength)};
    std::vector<uint64_t> positions;
    for (uint64_t repetition = 0; repetition < mRepetitions; ++repetition)
        positions.push_back(positionWrittenOut(sourceFrame + repetition * mPeriodLength));
    return positions;
}

uint64_t ResamplingPlan::positionWrittenOut(uint64_t frame) const
{
    const double anchor = mSourceLoop ? double(mSourceLoop->start) : 0;
    const double newAnchor = mLoop ? double(mLoop->start) : 0;
    const double position = std::round(newAnchor + (double(frame) - anchor) * mOutput / mInput);
    return std::min(mLength, uint64_t(std::max(0.0, position)));
}

} // namespace builder
