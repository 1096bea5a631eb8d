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
    for (const TARNOK_PROGRESSITEM* item : mState.posted)
        freeItem(item);
    mForgotten.merge(mState.held);
    mState = {};
}

void ScriptedBuilder::post(const Report& report)
{
    const std::lock_guard lock(mMutex);
    mState.posted.push_back(makeItem(report));
}

void ScriptedBuilder::waitForStarted(size_t builds)
{
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [&] { return mState.builds.size() >= builds; });
}

void ScriptedBuilder::waitForFinished(size_t builds)
{
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [&] { return mState.finished >= builds; });
}

TARNOK_RESULT ScriptedBuilder::init(const InitCall& call)
{
    const std::lock_guard lock(mMutex);
    mState.misused |= mInitialised;
    mState.inits.push_back(call);
    mInitialised = mState.initResult == TARNOK_OK;
    return mState.initResult;
}

TARNOK_RESULT ScriptedBuilder::release()
{
    const std::lock_guard lock(mMutex);
    mState.misused |= !mInitialised;
    mInitialised = false;
    ++mState.releases;
    return mState.releaseResult;
}

TARNOK_RESULT ScriptedBuilder::build(const BuildCall& call)
{
    std::unique_lock lock(mMutex);
    mState.misused |= !mInitialised || mRunning;
    mRunning = true;
    mState.cancelled = false;
    for (const Report& report : mState.reports)
        mState.posted.push_back(makeItem(report));
    mState.builds.push_back(call);
    mChanged.notify_all();
    mChanged.wait(lock, [&] { return !mState.stall || mState.cancelled; });
    mRunning = false;
    ++mState.finished;
    mChanged.notify_all();
    return mState.cancelled ? TARNOK_ERR_CANCELLED : mState.buildResult;
}

TARNOK_RESULT ScriptedBuilder::cancel()
{
    const std::lock_guard lock(mMutex);
    ++mState.cancels;
    mState.cancelled = true;
    mChanged.notify_all();
    return TARNOK_OK;
}

const TARNOK_PROGRESSITEM* ScriptedBuilder::fetch()
{
    const std::lock_guard lock(mMutex);
    if (mState.posted.empty())
        return nullptr;
    const TARNOK_PROGRESSITEM* item = mState.posted.front();
    mState.posted.pop_front();
    mState.held.insert(item);
    return item;
}

void ScriptedBuilder::releaseItem(const TARNOK_PROGRESSITEM* item)
{
    const std::lock_guard lock(mMutex);
    if (mState.held.erase(item) + mForgotten.erase(item) == 0)
        mState.misused = true;
    else
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
    return fakes::ScriptedBuilder::instance().build(call);
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
