#include "scripted_builder.hpp"

#include <cstdlib>
#include <cstring>
#include <new>

namespace fakes {

namespace {

// A report in one block of memory: the record, then the reason of a failure behind it.
const TARNOK_PROGRESSITEM* makeItem(const Report& report)
{
    const size_t dataBytes = offsetof(TARNOK_STATE_DATA_FAILED, errorString) + report.text.size() + 1;
    auto* memory = static_cast<char*>(std::malloc(sizeof(TARNOK_PROGRESSITEM) + dataBytes));
    auto* item = new (memory) TARNOK_PROGRESSITEM{};
    item->subSoundIndex = report.index;
    item->threadId = report.thread;
    item->state = report.state;
    if (report.state == TARNOK_STATE_FAILED) {
        char* data = memory + sizeof(TARNOK_PROGRESSITEM);
        const TARNOK_RESULT code = TARNOK_ERR_ENCODER;
        std::memcpy(data, &code, sizeof code);
        std::memcpy(data + offsetof(TARNOK_STATE_DATA_FAILED, errorString), report.text.c_str(),
                    report.text.size() + 1);
        item->stateData = data;
    }
    return item;
}

void freeItem(const TARNOK_PROGRESSITEM* item)
{
    std::free(const_cast<TARNOK_PROGRESSITEM*>(item));
}

} // namespace

ScriptedBuilder& ScriptedBuilder::instance()
{
    // Never destroyed: the system's own singletons call the library at the end of the process.
    static auto* builder = new ScriptedBuilder;
    return *builder;
}

void ScriptedBuilder::reset()
{
    const std::lock_guard lock(mMutex);
    for (const TARNOK_PROGRESSITEM* item : mPosted)
        freeItem(item);
    mPosted.clear();
    mForgotten.merge(mHeld);
    mHeld.clear();
    mInitResult = mReleaseResult = mBuildResult = TARNOK_OK;
    mReports.clear();
    mStall = mCancelled = mMisused = false;
    mInits.clear();
    mBuilds.clear();
    mFinished = mReleases = mCancels = 0;
}

void ScriptedBuilder::setInitResult(TARNOK_RESULT result)
{
    const std::lock_guard lock(mMutex);
    mInitResult = result;
}

void ScriptedBuilder::setReleaseResult(TARNOK_RESULT result)
{
    const std::lock_guard lock(mMutex);
    mReleaseResult = result;
}

void ScriptedBuilder::setBuildResult(TARNOK_RESULT result)
{
    const std::lock_guard lock(mMutex);
    mBuildResult = result;
}

void ScriptedBuilder::setReports(std::vector<Report> reports)
{
    const std::lock_guard lock(mMutex);
    mReports = std::move(reports);
}

void ScriptedBuilder::stallBuilds()
{
    const std::lock_guard lock(mMutex);
    mStall = true;
}

void ScriptedBuilder::resume()
{
    const std::lock_guard lock(mMutex);
    mStall = false;
    mChanged.notify_all();
}

void ScriptedBuilder::post(const Report& report)
{
    const std::lock_guard lock(mMutex);
    postLocked(report);
}

void ScriptedBuilder::postLocked(const Report& report)
{
    mPosted.push_back(makeItem(report));
}

void ScriptedBuilder::waitForStarted(size_t builds)
{
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [&] { return mBuilds.size() >= builds; });
}

void ScriptedBuilder::waitForFinished(size_t builds)
{
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [&] { return mFinished >= builds; });
}

std::vector<InitCall> ScriptedBuilder::inits()
{
    const std::lock_guard lock(mMutex);
    return mInits;
}

std::vector<BuildCall> ScriptedBuilder::builds()
{
    const std::lock_guard lock(mMutex);
    return mBuilds;
}

size_t ScriptedBuilder::releases()
{
    const std::lock_guard lock(mMutex);
    return mReleases;
}

size_t ScriptedBuilder::cancels()
{
    const std::lock_guard lock(mMutex);
    return mCancels;
}

size_t ScriptedBuilder::itemsHeld()
{
    const std::lock_guard lock(mMutex);
    return mHeld.size();
}

bool ScriptedBuilder::misused()
{
    const std::lock_guard lock(mMutex);
    return mMisused;
}

TARNOK_RESULT ScriptedBuilder::init(const InitCall& call)
{
    const std::lock_guard lock(mMutex);
    mMisused |= mInitialised;
    mInits.push_back(call);
    mInitialised = mInitResult == TARNOK_OK;
    return mInitResult;
}

TARNOK_RESULT ScriptedBuilder::release()
{
    const std::lock_guard lock(mMutex);
    mMisused |= !mInitialised;
    mInitialised = false;
    ++mReleases;
    return mReleaseResult;
}

TARNOK_RESULT ScriptedBuilder::build(BuildCall call)
{
    std::unique_lock lock(mMutex);
    mMisused |= !mInitialised || mRunning;
    mRunning = true;
    mCancelled = false;
    for (const Report& report : mReports)
        postLocked(report);
    mBuilds.push_back(std::move(call));
    mChanged.notify_all();
    mChanged.wait(lock, [&] { return !mStall || mCancelled; });
    const TARNOK_RESULT result = mCancelled ? TARNOK_ERR_CANCELLED : mBuildResult;
    mRunning = false;
    ++mFinished;
    mChanged.notify_all();
    return result;
}

TARNOK_RESULT ScriptedBuilder::cancel()
{
    const std::lock_guard lock(mMutex);
    ++mCancels;
    mCancelled = true;
    mChanged.notify_all();
    return TARNOK_OK;
}

const TARNOK_PROGRESSITEM* ScriptedBuilder::fetch()
{
    const std::lock_guard lock(mMutex);
    if (mPosted.empty())
        return nullptr;
    const TARNOK_PROGRESSITEM* item = mPosted.front();
    mPosted.pop_front();
    mHeld.insert(item);
    return item;
}

void ScriptedBuilder::releaseItem(const TARNOK_PROGRESSITEM* item)
{
    const std::lock_guard lock(mMutex);
    if (mHeld.erase(item) + mForgotten.erase(item) == 0) {
        mMisused = true;
        return;
    }
    freeItem(item);
}

} // namespace fakes

extern "C" {

TARNOK_RESULT Tarnok_Init(TARNOK_TNBVERSION version, unsigned int flags, unsigned int threadCount,
                          const char* cacheDirectory)
{
    return fakes::ScriptedBuilder::instance().init({version, flags, threadCount, cacheDirectory});
}

TARNOK_RESULT Tarnok_Release(void)
{
    return fakes::ScriptedBuilder::instance().release();
}

TARNOK_RESULT Tarnok_Build(const TARNOK_SUBSOUND* subsounds, unsigned int numSubsounds, TARNOK_FORMAT format,
                           unsigned int buildFlags, unsigned int quality, const char* encryptionKey,
                           const char* outputFileName)
{
    fakes::BuildCall call{{}, format, buildFlags, quality, {}, outputFileName};
    if (encryptionKey)
        call.encryptionKey = encryptionKey;
    for (unsigned int i = 0; i < numSubsounds; ++i) {
        const TARNOK_SUBSOUND& sound = subsounds[i];
        call.subsounds.push_back({{sound.fileNames, sound.fileNames + sound.numFiles},
                                  sound.overrideFlags,
                                  sound.overrideQuality,
                                  sound.desiredSampleRate});
    }
    return fakes::ScriptedBuilder::instance().build(std::move(call));
}

TARNOK_RESULT Tarnok_BuildCancel(void)
{
    return fakes::ScriptedBuilder::instance().cancel();
}

TARNOK_RESULT Tarnok_FetchNextProgressItem(const TARNOK_PROGRESSITEM** item)
{
    *item = fakes::ScriptedBuilder::instance().fetch();
    return TARNOK_OK;
}

TARNOK_RESULT Tarnok_ReleaseProgressItem(const TARNOK_PROGRESSITEM* item)
{
    fakes::ScriptedBuilder::instance().releaseItem(item);
    return TARNOK_OK;
}

} // extern "C"
