// SPDX-License-Identifier: MIT
#include "source/sound_preparation.hpp"

#include "base/path.hpp"
#include "source/analysis.hpp"
#include "source/held_source.hpp"
#include "source/interleaver.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <tuple>

namespace builder {

namespace {

// A header with a rate of 1 Hz would turn a moment of sound into hours. In the other direction, the filter would read
// hours of sound for a single sample. The slowest sensors and the highest studio rates are well inside these limits.
base::Result<> checkRatio(std::string_view name, double fromRate, double toRate)
{
    constexpr double kMaximumUpsampling = 64;
    constexpr double kMaximumDownsampling = 1024;
    if (toRate <= fromRate * kMaximumUpsampling && fromRate <= toRate * kMaximumDownsampling)
        return {};
    char text[160];
    std::snprintf(text, sizeof text, ": its sample rate of %.6g Hz is too far from the requested %.6g Hz", fromRate,
                  toRate);
    return base::Error{base::ErrorCode::Unsupported, std::string(name) + text};
}

} // namespace

base::Result<> SoundPreparation::open(KESS::System& engine, std::span<const std::string> paths)
{
    Files files;
    int channels = 0;
    for (const std::string& path : paths) {
        if (mStop.stop_requested())
            return base::cancelled();
        base::Result<std::unique_ptr<DecodedFile>> file = DecodedFile::open(engine, path);
        if (!file)
            return file.error();
        const FrameFacts& facts = (*file)->facts();
        channels += facts.channels;
        if (channels > mSettings.maximumChannels())
            return base::Error{base::ErrorCode::Unsupported,
                               std::string(base::baseName(path)) + ": " + std::to_string(channels)
                                   + " channels are too many for one sound in " + codecName(mSettings.codec)
                                   + " (at most " + std::to_string(mSettings.maximumChannels()) + ")"};
        files.push_back(std::move(*file));
        const double rate = files.front()->facts().sampleRate;
        if (base::Result<> status = checkRatio(base::baseName(path), facts.sampleRate, rate); !status)
            return status;
        if (mSettings.syncPoints) {
            merge(files.back()->syncPoints(), rate / facts.sampleRate);
            if (const std::string remark = files.back()->remark(); !remark.empty())
                mRemarks.push_back(remark);
        }
    }
    mName = base::baseName(paths.front());
    if (files.size() == 1)
        mRawSamples = files.front()->rawSamples();
    if (mSettings.loop)
        mLoop = commonLoop(files);
    return combine(std::move(files));
}

// The loop of the first file that has one, at the rate of the first file; otherwise the whole of the longest file.
base::Loop SoundPreparation::commonLoop(const Files& files)
{
    const double rate = files.front()->facts().sampleRate;
    uint64_t length = 0;
    std::optional<base::Loop> found;
    for (const auto& file : files) {
        const FrameFacts& facts = file->facts();
        length = std::max(length, ResamplingPlan(facts.length, std::nullopt, facts.sampleRate, rate).length());
        const auto loop = found ? std::nullopt : file->loop();
        if (!loop)
            continue;
        const ResamplingPlan plan(facts.length, loop, facts.sampleRate, rate);
        found = plan.loop();
        // Written out several times, the loop would no longer be aligned with the other files.
        if (plan.repetitions() > 1) {
            const ResamplingPlan plain(facts.length, std::nullopt, facts.sampleRate, rate);
            found = base::Loop{plain.positions(loop->start).front(), plain.positions(loop->end).front()};
        }
    }
    return found && found->start < found->end ? *found : base::Loop{0, length};
}

// The plan for resampling one of several files to the rate of the first. If the file covers the sound's whole loop, it
// wraps there.
ResamplingPlan SoundPreparation::planPart(const DecodedFile& file, double rate) const
{
    const FrameFacts& facts = file.facts();
    if (mLoop) {
        const double scale = facts.sampleRate / rate;
        const base::Loop counterpart{uint64_t(std::llround(double(mLoop->start) * scale)),
                                     std::min(facts.length, uint64_t(std::llround(double(mLoop->end) * scale)))};
        for (const base::Loop& loop : {file.loop().value_or(counterpart), counterpart}) {
            if (loop.start >= loop.end)
                continue;
            ResamplingPlan plan(facts.length, loop, facts.sampleRate, rate);
            if (plan.loop() == mLoop)
                return plan;
        }
    }
    return {facts.length, std::nullopt, facts.sampleRate, rate};
}

base::Result<> SoundPreparation::combine(Files files)
{
    const double rate = files.front()->facts().sampleRate;
    std::vector<std::unique_ptr<FrameSource>> parts;
    for (std::unique_ptr<DecodedFile>& file : files) {
        const double ownRate = file->facts().sampleRate;
        const ResamplingPlan plan = planPart(*file, rate);
        base::Result<std::unique_ptr<FrameSource>> part = holdIfShort(std::move(file));
        if (part && ownRate != rate)
            part = resample(*holdLoopIfShort(std::move(*part), plan.sourceLoop()), plan, rate, mSpoolFolders, mStop);
        if (!part)
            return part.error();
        parts.push_back(std::move(*part));
    }
    mFrames = interleave(std::move(parts));
    const uint64_t length = mFrames->facts().length;
    for (base::SyncPoint& point : mSyncPoints)
        point.frame = std::min(point.frame, length);
    if (mLoop && (mLoop->start >= length || mLoop->end > length))
        mLoop = base::Loop{0, length};
    mFrames = holdLoopIfShort(std::move(mFrames), mLoop);
    return {};
}

base::Result<> SoundPreparation::analyse()
{
    uint32_t lowestRate = 0;
    if (mSettings.peak || mSettings.lowestRate) {
        const base::Result<float> peak =
            builder::analyse(*mFrames, mSettings.lowestRate ? &lowestRate : nullptr, mStop);
        if (!peak)
            return peak.error();
        if (mSettings.peak)
            mPeak = *peak;
    }
    mRate = uint32_t(std::lround(mFrames->facts().sampleRate));
    if (mSettings.desiredRate != 0)
        mRate = mSettings.desiredRate;
    else if (mSettings.lowestRate)
        mRate = lowestRate;
    mRate = mSettings.encodingRate(mRate);
    return {};
}

base::Result<> SoundPreparation::preprocess()
{
    const FrameFacts& facts = mFrames->facts();
    if (mRate != uint32_t(std::lround(facts.sampleRate))) {
        if (base::Result<> status = checkRatio(mName, facts.sampleRate, mRate); !status)
            return status;
        const ResamplingPlan plan(facts.length, mLoop, facts.sampleRate, mRate);
        const auto precision =
            mSettings.codec == bank::Codec::Opus ? ResamplingPrecision::Bits20 : ResamplingPrecision::Bits24;
        base::Result<std::unique_ptr<FrameSource>> resampled =
            resample(*mFrames, plan, mRate, mSpoolFolders, mStop, precision);
        if (!resampled)
            return resampled.error();
        mFrames = std::move(*resampled);
        mRawSamples.reset();
        mLoop = plan.loop();
        std::vector<base::SyncPoint> points;
        for (const base::SyncPoint& point : mSyncPoints) {
            for (const uint64_t position : plan.positions(point.frame))
                points.push_back({position, point.name});
        }
        mSyncPoints.clear();
        merge(std::move(points), 1);
    }
    limitSyncPoints();
    mPrepared = std::make_unique<LoopedSound>(*mFrames, mLoop, mStop);
    return {};
}

// A bank limits the number of sync points of a sound and their size in bytes.
void SoundPreparation::limitSyncPoints()
{
    constexpr size_t kPointBytes = 12; // in a bank, besides the name
    constexpr size_t kMaximumBytes = bank::kMaximumChunksBytes / 2; // the rest is for the seek table
    size_t kept = 0;
    size_t bytes = 0;
    for (; kept < std::min(mSyncPoints.size(), bank::kMaximumSyncPoints); ++kept) {
        bytes += kPointBytes + mSyncPoints[kept].name.size();
        if (bytes > kMaximumBytes)
            break;
    }
    if (kept == mSyncPoints.size())
        return;
    mRemarks.push_back(mName + ": " + std::to_string(mSyncPoints.size() - kept)
                       + " of its markers were left out, because a bank stores at most 65,536 for a sound, and 4 MiB "
                         "with their names");
    mSyncPoints.resize(kept);
}

PreparedSound& SoundPreparation::sound()
{
    return *mPrepared;
}

void SoundPreparation::complete(bank::Sound* encoded) const
{
    encoded->syncPoints = mSyncPoints;
    encoded->peak = mPeak;
}

// Files of one recording often contain the same markers; each is kept once.
void SoundPreparation::merge(std::vector<base::SyncPoint> points, double scale)
{
    for (base::SyncPoint& point : points)
        point.frame = uint64_t(std::llround(double(point.frame) * scale));
    mSyncPoints.insert(mSyncPoints.end(), points.begin(), points.end());
    const auto order = [](const base::SyncPoint& left, const base::SyncPoint& right) {
        return std::tie(left.frame, left.name) < std::tie(right.frame, right.name);
    };
    std::sort(mSyncPoints.begin(), mSyncPoints.end(), order);
    mSyncPoints.erase(std::unique(mSyncPoints.begin(), mSyncPoints.end()), mSyncPoints.end());
}

} // namespace builder
