#include "source/resampler.hpp"

#include "bank/vector_state.hpp"
#include "source/frame_spool.hpp"

#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace tarnok {

namespace {

constexpr size_t kBlockFrames = 4096;

// More than half the length of soxr's filter at this quality, in frames of whichever rate is lower.
constexpr double kFilterReach = 2048;

using Soxr = std::unique_ptr<soxr, void (*)(soxr_t)>;

Result<Soxr> startSoxr(double input, double output, int channels, ResamplingPrecision precision)
{
    const soxr_io_spec_t samples = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = precision == ResamplingPrecision::Bits24
        ? soxr_quality_spec(SOXR_VHQ, SOXR_HI_PREC_CLOCK)
        : soxr_quality_spec(SOXR_HQ, 0);
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t error = nullptr;
    Soxr made(soxr_create(input, output, unsigned(channels), &error, &samples, &quality, &runtime), soxr_delete);
    if (error)
        return Fault{TARNOK_ERR_ENCODER, std::string("the resampler failed: ") + error};
    return made;
}

// A cent: the largest change of pitch that an inner loop may cost the sound around it.
constexpr double kMostDetuning = 5.7e-4;

uint64_t wholeLength(double exactly)
{
    return std::max<uint64_t>(1, uint64_t(std::llround(exactly)));
}

// How many rounds of a loop come close enough to a whole number of samples. Any that are longer than half a sample
// divided by the largest detuning do.
uint64_t roundsInTune(double loopLength)
{
    uint64_t rounds = 1;
    while (std::abs(double(wholeLength(double(rounds) * loopLength)) / (double(rounds) * loopLength) - 1)
           > kMostDetuning)
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

std::vector<uint64_t> ResamplingPlan::places(uint64_t sourceFrame) const
{
    if (!mSourceLoop || sourceFrame < mSourceLoop->start)
        return {placeInRounds(sourceFrame)};
    if (sourceFrame >= mSourceLoop->start + mRoundLength)
        return {placeInRounds(sourceFrame + (mRounds - 1) * mRoundLength)};
    std::vector<uint64_t> places;
    for (uint64_t round = 0; round < mRounds; ++round)
        places.push_back(placeInRounds(sourceFrame + round * mRoundLength));
    return places;
}

uint64_t ResamplingPlan::placeInRounds(uint64_t frame) const
{
    const double anchor = mSourceLoop ? double(mSourceLoop->start) : 0;
    const double newAnchor = mLoop ? double(mLoop->start) : 0;
    const double place = std::round(newAnchor + (double(frame) - anchor) * mOutput / mInput);
    return std::min(mLength, uint64_t(std::max(0.0, place)));
}

// Runs soxr over stretches of the source and puts what comes out in its place.
class Resampler
{
public:
    Resampler(FrameSource& source, const ResamplingPlan& plan, FrameSpool& spool, ResamplingPrecision precision,
              std::stop_token stop)
        : mSource(source)
        , mPlan(plan)
        , mSpool(spool)
        , mPrecision(precision)
        , mStop(std::move(stop))
    {
        const double lower = std::max(1.0, plan.mInput / plan.mOutput);
        mReach = uint64_t(std::ceil(kFilterReach * lower));
        mOutputReach = uint64_t(std::ceil(double(mReach) * plan.mOutput / plan.mInput));
        mInputBlock.resize(kBlockFrames * size_t(source.facts().channels));
        mOutputBlock.resize(mInputBlock.size());
    }

    Status run()
    {
        if (!mPlan.mLoop)
            return runStretch(Outside::Silence, 0, 0, 0, mPlan.mLength);
        if (mPlan.mLoop->start == 0 && mPlan.mSourceLoop->start == 0)
            return runFromLoopStart();
        return runInnerLoop();
    }

private:
    // What the filter hears behind the end of the loop.
    enum class Outside
    {
        Silence,
        LoopStart
    };

    // The loop begins with the sound. It is resampled from its first frame on, round and round: what comes out first
    // has heard silence before the start and is dropped; the same samples come once more after the first round.
    Status runFromLoopStart()
    {
        const uint64_t loopLength = mPlan.mLoop->end;
        const uint64_t dropped = mOutputReach;
        if (Status status = runStretch(Outside::LoopStart, 0, dropped, dropped % loopLength, loopLength); !status)
            return status;
        return runTail();
    }

    // soxr puts its first output sample exactly on its first input sample. For the grid of output samples to meet the
    // loop's start, it is started a whole number of common periods of both rates before that, in front of all samples
    // that matter; positions before the sound are silent.
    Status runInnerLoop()
    {
        const uint64_t periods = periodsCovering(mPlan.mSourceLoop->start + mReach);
        const int64_t from = int64_t(mPlan.mSourceLoop->start) - int64_t(periods * uint64_t(mPlan.mInput));
        const uint64_t dropped = periods * uint64_t(mPlan.mOutput) - mPlan.mLoop->start;
        if (Status status = runStretch(Outside::LoopStart, from, dropped, 0, mPlan.mLoop->end); !status)
            return status;
        return runTail();
    }

    // What follows the loop is heard by a listener who left the loop at its end, so its filter hears the loop's end
    // before it and nothing repeated.
    Status runTail()
    {
        const uint64_t tail = mPlan.mLength - mPlan.mLoop->end;
        if (tail == 0)
            return {};
        const uint64_t periods = periodsCovering(mReach);
        const int64_t from = int64_t(mPlan.mSourceLoop->end) - int64_t(periods * uint64_t(mPlan.mInput));
        return runStretch(Outside::Silence, from, periods * uint64_t(mPlan.mOutput), mPlan.mLoop->end, tail);
    }

    uint64_t periodsCovering(uint64_t frames) const
    {
        const auto period = uint64_t(mPlan.mInput);
        return (frames + period - 1) / period;
    }

    // Feeds the source from the position `from` on, drops the first samples that come out, and stores the next `count`
    // at `place`; behind the end of the loop, storing goes on at its start.
    Status runStretch(Outside outside, int64_t from, uint64_t dropped, uint64_t place, uint64_t count)
    {
        const auto channels = size_t(mSource.facts().channels);
        Result<Soxr> resampler = startSoxr(mPlan.mInput, mPlan.mOutput, int(channels), mPrecision);
        if (!resampler)
            return resampler.fault();
        size_t waiting = 0; // frames of the input block not taken yet
        size_t taken = 0;
        while (count > 0) {
            if (mStop.stop_requested())
                return cancelled();
            if (waiting == 0) {
                if (Status status = fetch(outside, from); !status)
                    return status;
                from += int64_t(kBlockFrames);
                waiting = kBlockFrames;
                taken = 0;
            }
            size_t used = 0;
            size_t made = 0;
            bank::clearVectorState();
            const soxr_error_t error = soxr_process(resampler->get(), &mInputBlock[taken * channels], waiting, &used,
                                                    mOutputBlock.data(), kBlockFrames, &made);
            if (error)
                return Fault{TARNOK_ERR_ENCODER, std::string("the resampler failed: ") + error};
            waiting -= used;
            taken += used;
            const size_t skipped = size_t(std::min<uint64_t>(dropped, made));
            dropped -= skipped;
            const size_t kept = size_t(std::min<uint64_t>(count, made - skipped));
            if (Status status = store(outside, &place, mOutputBlock.data() + skipped * channels, kept); !status)
                return status;
            count -= kept;
        }
        return {};
    }

    Status store(Outside outside, uint64_t* place, const float* frames, size_t count)
    {
        const auto channels = size_t(mSource.facts().channels);
        while (count > 0) {
            const uint64_t end = outside == Outside::LoopStart ? mPlan.mLoop->end : mPlan.mLength;
            const size_t piece = size_t(std::min<uint64_t>(count, end - *place));
            if (Status status = mSpool.write(*place, frames, piece); !status)
                return status;
            frames += piece * channels;
            count -= piece;
            *place += piece;
            if (outside == Outside::LoopStart && *place == end)
                *place = mPlan.mLoop->start;
        }
        return {};
    }

    // Fills the input block from the position `from` on.
    Status fetch(Outside outside, int64_t from)
    {
        const auto channels = size_t(mSource.facts().channels);
        float* target = mInputBlock.data();
        size_t left = kBlockFrames;
        while (left > 0) {
            if (mStop.stop_requested())
                return cancelled();
            const auto [frame, run] = locate(outside, from, left);
            if (frame) {
                if (Status status = mSource.seek(*frame); !status)
                    return status;
                if (Status status = mSource.readFloat(target, run); !status)
                    return status;
            } else {
                std::fill_n(target, run * channels, 0.0f);
            }
            target += run * channels;
            left -= run;
            from += int64_t(run);
        }
        return {};
    }

    struct Run
    {
        std::optional<uint64_t> frame; // none: silence
        size_t count;
    };

    Run locate(Outside outside, int64_t position, size_t most) const
    {
        if (position < 0)
            return {std::nullopt, size_t(std::min<uint64_t>(most, uint64_t(-position)))};
        auto frame = uint64_t(position);
        uint64_t end = mPlan.mSourceLength;
        if (outside == Outside::LoopStart) {
            const base::Loop& loop = *mPlan.mSourceLoop;
            if (frame >= loop.end)
                frame = loop.start + (frame - loop.end) % (loop.end - loop.start);
            end = loop.end;
        }
        if (frame >= end)
            return {std::nullopt, most};
        if (mPlan.mRounds > 1)
            return locateInRounds(frame, std::min<uint64_t>(most, end - frame));
        return {frame, size_t(std::min<uint64_t>(most, end - frame))};
    }

    // The rounds exist in the plan only; the source has one.
    Run locateInRounds(uint64_t frame, uint64_t most) const
    {
        const base::Loop& loop = *mPlan.mSourceLoop;
        if (frame < loop.start)
            return {frame, size_t(std::min(most, loop.start - frame))};
        if (frame >= loop.end)
            return {frame - (mPlan.mRounds - 1) * mPlan.mRoundLength, size_t(most)};
        const uint64_t offset = (frame - loop.start) % mPlan.mRoundLength;
        return {loop.start + offset, size_t(std::min(most, mPlan.mRoundLength - offset))};
    }

    FrameSource& mSource;
    const ResamplingPlan& mPlan;
    FrameSpool& mSpool;
    ResamplingPrecision mPrecision;
    std::stop_token mStop;
    uint64_t mReach = 0; // of the filter, in frames of the source
    uint64_t mOutputReach = 0; // the same in frames of the result
    std::vector<float> mInputBlock;
    std::vector<float> mOutputBlock;
};

Result<std::unique_ptr<FrameSource>> resample(FrameSource& source, const ResamplingPlan& plan, double toRate,
                                              const std::vector<std::string>& spoolFolders, std::stop_token stop,
                                              ResamplingPrecision precision)
{
    FrameFacts facts = source.facts();
    facts.sampleRate = toRate;
    facts.length = plan.length();
    Result<std::unique_ptr<FrameSpool>> spool = FrameSpool::create(facts, spoolFolders, stop);
    if (!spool)
        return spool.fault();
    if (Status status = Resampler(source, plan, **spool, precision, std::move(stop)).run(); !status)
        return status.fault();
    return std::unique_ptr<FrameSource>(std::move(*spool));
}

} // namespace tarnok
