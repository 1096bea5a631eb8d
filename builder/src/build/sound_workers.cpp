// SPDX-License-Identifier: MIT
#include "build/sound_workers.hpp"

#include "base/path.hpp"
#include "build/describe_error.hpp"
#include "support/worker_memory.hpp"
#include "support/worker_pool.hpp"

#include <algorithm>
#include <ctime>
#include <new>
#include <string>

namespace builder {

namespace {

constexpr int64_t kMarkEvery = 1200; // seconds; see kInUseFor for how long an entry is safe

} // namespace

SoundWorkers::SoundWorkers(const BuildRequest& request, const BuildServices& services, BuildReports& reports,
                           SoundResults& results)
    : mRequest(request)
    , mServices(services)
    , mReports(reports)
    , mResults(results)
    , mSettings(request.settings)
    , mMarkedAt(time(nullptr))
{ }

base::Result<> SoundWorkers::start(unsigned maximumThreads)
{
    const auto maximum = unsigned(std::min<size_t>(maximumThreads, mRequest.subsounds.size()));
    const base::Result<WorkerCount> workers = affordableWorkers(maximum, memoryLeft());
    if (!workers)
        return workers.error();
    if (!workers->remark.empty())
        mServices.remarks.post(workers->remark);
    loadModule();
    const SpillFiles spills(TemporaryFolders::startingWith(base::parentFolder(mRequest.outputFile)));
    for (unsigned worker = 0; worker < workers->count; ++worker)
        mBuilders.emplace_back(mServices, spills);
    return {};
}

void SoundWorkers::encode(std::span<const size_t> sounds)
{
    run(sounds, false);
}

void SoundWorkers::encodeAgain(std::span<const size_t> sounds)
{
    run(sounds, true);
}

void SoundWorkers::run(std::span<const size_t> sounds, bool again)
{
    runOnWorkers(unsigned(mBuilders.size()), sounds.size(), [&](size_t job, unsigned worker) {
        if (!mServices.stop.stop_requested())
            encodeSound({sounds[job], worker, again});
    });
}

void SoundWorkers::encodeSound(const Task& task) noexcept
{
    try {
        base::Result<EncodedLocation> location = tryToEncode(task);
        if (location) {
            mResults.setEncoded(task.index, std::move(*location));
            if (task.again)
                return;
            mReports.sound(task.index, task.worker, TARNOK_STATE_FINISHED);
            markUsedEntries();
        } else if (location.error().code != base::ErrorCode::Cancelled) {
            mResults.setFailed(task.index, location.error());
            mReports.soundFailed(task.index, task.worker, location.error());
        }
    } catch (...) {
        // Not even the report could be stored. The result is missing or still the previous one, which is detected where
        // it is needed.
    }
}

base::Result<EncodedLocation> SoundWorkers::tryToEncode(const Task& task)
{
    if (mModuleError)
        return *mModuleError;
    const TARNOK_SUBSOUND& subsound = mRequest.subsounds[task.index];
    const auto report = [this, &task](TARNOK_STATE state) {
        if (!task.again)
            mReports.sound(task.index, task.worker, state);
    };
    try {
        return mBuilders[task.worker].build(mSettings, subsound, task.again, report);
    } catch (const std::bad_alloc&) {
        return describeError({base::ErrorCode::Memory}, firstFile(subsound));
    } catch (const std::exception& exception) {
        return base::Error{base::ErrorCode::Codec,
                           firstFile(subsound) + ": the encoder failed (" + exception.what() + ")"};
    }
}

void SoundWorkers::loadModule()
{
    const auto codec = bank::Codec(mSettings.format);
    if (!EncoderModule::encodes(codec))
        return;
    base::Result<std::shared_ptr<const EncoderModule>> module = EncoderModule::load(codec);
    if (module)
        mSettings.module = std::move(*module);
    else
        mModuleError = module.error();
}

// A build may last longer than kInUseFor, the time for which a used entry is safe from tidying by other builds.
void SoundWorkers::markUsedEntries()
{
    const int64_t now = time(nullptr);
    int64_t markedAt = mMarkedAt;
    if (now - markedAt < kMarkEvery || !mMarkedAt.compare_exchange_strong(markedAt, now))
        return;
    for (size_t index = 0; index < mResults.count() && !mServices.stop.stop_requested(); ++index) {
        const EncodedLocation* location = mResults.find(index);
        if (location && location->inCache())
            mServices.cache.markUsed(location->key);
    }
}

} // namespace builder
