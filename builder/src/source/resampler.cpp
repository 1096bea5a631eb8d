// SPDX-License-Identifier: MIT
#include "source/resampler.hpp"

#include "bank/vector_state.hpp"
#include "source/frame_spool.hpp"

#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

namespace builder {

namespace {

constexpr size_t kBlockFrames = 4096;

// An upper bound of half the length of soxr's filter at this quality, in frames of the lower of the two rates.
constexpr double kHalfFilter = 2048;

using Soxr = std::unique_ptr<soxr, void (*)(soxr_t)>;

base::Result<Soxr> startSoxr(double input, double output, int channels, ResamplingPrecision precision)
{
    const soxr_io_spec_t samples = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = precision == ResamplingPrecision::Bits24
        ? soxr_quality_spec(SOXR_VHQ, SOXR_HI_PREC_CLOCK)
        : soxr_quality_spec(SOXR_HQ, 0);
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t error = nullptr;
    Soxr made(soxr_create(input, output, unsigned(channels), &error, &samples, &quality, &runtime), soxr_delete);
    if (error)
        return base::Error{base::ErrorCode::Codec, std::string("the resampler failed: ") + error};
    return made;
}

} // namespace

// Resamples ranges of the source with soxr and stores the output at its positions.
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
        mFilterFrames = uint64_t(std::ceil(kHalfFilter * lower));
        mFilterOutputFrames = uint64_t(std::ceil(double(mFilterFrames) * plan.mOutput / plan.mInput));
        mInputBlock.resize(kBlockFrames * size_t(source.facts().channels));
        mOutputBlock.resize(mInputBlock.size());
    }

    base::Result<> run()
    {
        if (!mPlan.mLoop)
            return runRange(Outside::Silence, 0, 0, 0, mPlan.mLength);
        if (mPlan.mLoop->start == 0 && mPlan.mSourceLoop->start == 0)
            return runFromLoopStart();
        return runInnerLoop();
    }

private:
    // The input of the filter after the end of the loop.
    enum class Outside
    {
        Silence,
        LoopStart
    };

    // For a loop that starts with the sound. The loop is fed repeatedly from its first frame. The first output samples
    // are dropped, because the filter's input before them was silence; they are produced again after the first
    // repetition.
    base::Result<> runFromLoopStart()
    {
        const uint64_t loopLength = mPlan.mLoop->end;
        const uint64_t dropped = mFilterOutputFrames;
        if (base::Result<> status = runRange(Outside::LoopStart, 0, dropped, dropped % loopLength, loopLength); !status)
            return status;
        return runTail();
    }

    // soxr aligns its first output sample with its first input sample. So that an output sample coincides with the
    // start of the loop, the input starts a whole number of common periods of both rates before it, and before all
    // samples that matter. Positions before the sound are silent.
    base::Result<> runInnerLoop()
    {
        const uint64_t periods = periodsCovering(mPlan.mSourceLoop->start + mFilterFrames);
        const int64_t from = int64_t(mPlan.mSourceLoop->start) - int64_t(periods * uint64_t(mPlan.mInput));
        const uint64_t dropped = periods * uint64_t(mPlan.mOutput) - mPlan.mLoop->start;
        if (base::Result<> status = runRange(Outside::LoopStart, from, dropped, 0, mPlan.mLoop->end); !status)
            return status;
        return runTail();
    }

    // The part after the loop is heard after the loop was left at its end. So the filter's input before it is the end
    // of the loop, and nothing is repeated.
    base::Result<> runTail()
    {
        const uint64_t tail = mPlan.mLength - mPlan.mLoop->end;
        if (tail == 0)
            return {};
        const uint64_t periods = periodsCovering(mFilterFrames);
        const int64_t from = int64_t(mPlan.mSourceLoop->end) - int64_t(periods * uint64_t(mPlan.mInput));
        return runRange(Outside::Silence, from, periods * uint64_t(mPlan.mOutput), mPlan.mLoop->end, tail);
    }

    uint64_t periodsCovering(uint64_t frames) const
    {
        const auto period = uint64_t(mPlan.mInput);
        return (frames + period - 1) / period;
    }

    // Feeds the source starting at `from`, drops the first `dropped` output frames, and stores the next `count`
    // starting at `target`. At the end of the loop, storing continues at its start.
    base::Result<> runRange(Outside outside, int64_t from, uint64_t dropped, uint64_t target, uint64_t count)
    {
        const auto channels = size_t(mSource.facts().channels);
        base::Result<Soxr> resampler = startSoxr(mPlan.mInput, mPlan.mOutput, int(channels), mPrecision);
        if (!resampler)
            return resampler.error();
        size_t waiting = 0; // frames of the input block that soxr has not consumed yet
        size_t taken = 0;
        while (count > 0) {
            if (mStop.stop_requested())
                return base::cancelled();
            if (waiting == 0) {
                if (base::Result<> status = fetch(outside, from); !status)
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
                return base::Error{base::ErrorCode::Codec, std::string("the resampler failed: ") + error};
            waiting -= used;
            taken += used;
            const size_t skipped = size_t(std::min<uint64_t>(dropped, made));
            dropped -= skipped;
            const size_t kept = size_t(std::min<uint64_t>(count, made - skipped));
            if (base::Result<> status = store(outside, &target, mOutputBlock.data() + skipped * channels, kept);
                !status)
                return status;
            count -= kept;
        }
        return {};
    }

    base::Result<> store(Outside outside, uint64_t* target, const float* frames, size_t count)
    {
        const auto channels = size_t(mSource.facts().channels);
        while (count > 0) {
            const uint64_t end = outside == Outside::LoopStart ? mPlan.mLoop->end : mPlan.mLength;
            const size_t piece = size_t(std::min<uint64_t>(count, end - *target));
            if (base::Result<> status = mSpool.write(*target, frames, piece); !status)
                return status;
            frames += piece * channels;
            count -= piece;
            *target += piece;
            if (outside == Outside::LoopStart && *target == end)
                *target = mPlan.mLoop->start;
        }
        return {};
    }

    // Fills the input block with frames starting at `from`.
    base::Result<> fetch(Outside outside, int64_t from)
    {
        const auto channels = size_t(mSource.facts().channels);
        float* target = mInputBlock.data();
        size_t remaining = kBlockFrames;
        while (remaining > 0) {
            if (mStop.stop_requested())
                return base::cancelled();
            const auto [frame, run] = locate(outside, from, remaining);
            if (frame) {
                if (base::Result<> status = mSource.seek(*frame); !status)
                    return status;
                if (base::Result<> status = mSource.readFloat(target, run); !status)
                    return status;
            } else {
                std::fill_n(target, run * channels, 0.0f);
            }
            target += run * channels;
            remaining -= run;
            from += int64_t(run);
        }
        return {};
    }

    struct Run
    {
        std::optional<uint64_t> frame; // nullopt: silence
        size_t count;
    };

    Run locate(Outside outside, int64_t position, size_t maximum) const
    {
        if (position < 0)
            return {std::nullopt, size_t(std::min<uint64_t>(maximum, uint64_t(-position)))};
        auto frame = uint64_t(position);
        uint64_t end = mPlan.mSourceLength;
        if (outside == Outside::LoopStart) {
            const base::Loop& loop = *mPlan.mSourceLoop;
            if (frame >= loop.end)
                frame = loop.start + (frame - loop.end) % (loop.end - loop.start);
            end = loop.end;
        }
        if (frame >= end)
            return {std::nullopt, maximum};
        if (mPlan.mRepetitions > 1)
            return locateInRepetitions(frame, std::min<uint64_t>(maximum, end - frame));
        return {frame, size_t(std::min<uint64_t>(maximum, end - frame))};
    }

    // The repetitions exist only in the plan; the source contains the loop once.
    Run locateInRepetitions(uint64_t frame, uint64_t maximum) const
    {
        const base::Loop& loop = *mPlan.mSourceLoop;
        if (frame < loop.start)
            return {frame, size_t(std::min(maximum, loop.start - frame))};
        if (frame >= loop.end)
            return {frame - (mPlan.mRepetitions - 1) * mPlan.mPeriodLength, size_t(maximum)};
        const uint64_t offset = (frame - loop.start) % mPlan.mPeriodLength;
        return {loop.start + offset, size_t(std::min(maximum, mPlan.mPeriodLength - offset))};
    }

    FrameSource& mSource;
    const ResamplingPlan& mPlan;
    FrameSpool& mSpool;
    ResamplingPrecision mPrecision;
    std::stop_token mStop;
    uint64_t mFilterFrames = 0; // half the filter, in frames of the source
    uint64_t mFilterOutputFrames = 0; // the same in frames of the result
    std::vector<float> mInputBlock;
    std::vector<float> mOutputBlock;
};

base::Result<std::unique_ptr<FrameSource>> resample(FrameSource& source, const ResamplingPlan& plan, double toRate,
                                                    const TemporaryFolders& spoolFolders, std::stop_token stop,
                                                    ResamplingPrecision precision)
{
    FrameFacts facts = source.facts();
    facts.sampleRate = toRate;
    facts.length = plan.length();
    base::Result<std::unique_ptr<FrameSpool>> spool = FrameSpool::create(facts, spoolFolders, stop);
    if (!spool)
        return spool.error();
    if (base::Result<> status = Resampler(source, plan, **spool, precision, std::move(stop)).run(); !status)
        return status.error();
    return std::unique_ptr<FrameSource>(std::move(*spool));
}

} // namespace builder
