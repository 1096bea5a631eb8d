// The C boundary of the library, and its state between the calls.
#include "build/build.hpp"
#include "build/build_reports.hpp"
#include "build/progress_queue.hpp"
#include "build/result_code.hpp"
#include "support/remarks.hpp"
#include "support/worker_pool.hpp"
#include "tarnok.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <new>

namespace tarnok {

namespace {

constexpr unsigned kMaximumThreads = 256;

// From Tarnok_Init to Tarnok_Release, and on until the build that was running then has ended: a build keeps the session
// that it began with, so that another thread may initialise the library again while that build is on its way out.
struct Session
{
    LibrarySettings settings;
    bool building = false;
    std::stop_source stop; // of the running build
    std::condition_variable buildEnded;
};

// What the library keeps between the calls.
struct Library
{
    std::mutex mutex;
    std::shared_ptr<Session> session;
    ProgressQueue queue;
    Remarks remarks;
};

// Never destroyed. At the end of a process, static objects of the program may still release the library after ours
// would be gone, and a thread may still be on its way out of Tarnok_Build.
Library& library()
{
    alignas(Library) static std::byte storage[sizeof(Library)];
    static Library* const library = new (storage) Library;
    return *library;
}

// No exception leaves the library.
template <typename Call>
TARNOK_RESULT guarded(Call call) noexcept
{
    try {
        return call();
    } catch (const std::bad_alloc&) {
        return TARNOK_ERR_MEMORY;
    } catch (const std::exception&) {
        return TARNOK_ERR_FILE_OS;
    }
}

// Marks the session as building, for as long as it lives.
class RunningBuild
{
public:
    // Empty when the library isn't initialised or builds already; *result says which.
    static std::unique_ptr<RunningBuild> begin(TARNOK_RESULT* result)
    {
        Library& state = library();
        const std::lock_guard lock(state.mutex);
        if (!state.session || state.session->building) {
            *result = state.session ? TARNOK_ERR_INITIALIZED : TARNOK_ERR_UNINITIALIZED;
            return nullptr;
        }
        std::stop_source stop;
        std::unique_ptr<RunningBuild> running(new RunningBuild(state.session));
        state.session->stop = stop;
        state.session->building = true;
        state.queue.beginBuild();
        state.remarks.beginBuild();
        return running;
    }

    ~RunningBuild()
    {
        library().queue.endBuild(stop());
        const std::lock_guard lock(library().mutex);
        mSession->building = false;
        mSession->buildEnded.notify_all();
    }

    RunningBuild(const RunningBuild&) = delete;
    RunningBuild& operator=(const RunningBuild&) = delete;

    const LibrarySettings& settings() const { return mSession->settings; }
    std::stop_token stop() const { return mSession->stop.get_token(); }

private:
    explicit RunningBuild(std::shared_ptr<Session> session)
        : mSession(std::move(session))
    { }

    std::shared_ptr<Session> mSession;
};

} // namespace

} // namespace tarnok

using namespace tarnok;

TARNOK_RESULT Tarnok_Init(TARNOK_TNBVERSION version, unsigned int flags, unsigned int threadCount,
                          const char* cacheDirectory)
{
    return guarded([&] {
        Library& state = library();
        const std::lock_guard lock(state.mutex);
        if (state.session)
            return TARNOK_ERR_INITIALIZED;
        if (version != TARNOK_TNBVERSION_CURRENT || !cacheDirectory || !*cacheDirectory)
            return TARNOK_ERR_INVALID_PARAM;
        auto session = std::make_shared<Session>();
        session->settings = {flags, std::clamp(threadCount, 1u, kMaximumThreads), cacheDirectory};
        state.session = std::move(session);
        return TARNOK_OK;
    });
}

TARNOK_RESULT Tarnok_Release(void)
{
    return guarded([&] {
        Library& state = library();
        std::unique_lock lock(state.mutex);
        const std::shared_ptr<Session> session = std::exchange(state.session, nullptr);
        if (!session)
            return TARNOK_ERR_UNINITIALIZED;
        session->stop.request_stop();
        session->buildEnded.wait(lock, [&] { return !session->building; });
        return TARNOK_OK;
    });
}

TARNOK_RESULT Tarnok_Build(const TARNOK_SUBSOUND* subsounds, unsigned int numSubsounds, TARNOK_FORMAT format,
                           unsigned int buildFlags, unsigned int quality, const char* encryptionKey,
                           const char* outputFileName)
{
    return guarded([&] {
        TARNOK_RESULT refused = TARNOK_OK;
        const std::unique_ptr<RunningBuild> running = RunningBuild::begin(&refused);
        if (!running)
            return refused;
        const LibrarySettings& settings = running->settings();
        const base::Result<BuildRequest> request =
            checkRequest(subsounds, numSubsounds, format, buildFlags, quality, encryptionKey, outputFileName);
        if (!request) {
            BuildReports(library().queue, settings.flags & TARNOK_INIT_ALWAYS).bankFailed(request.error());
            return resultCode(request.error().code);
        }
        const SignalShield shield(false);
        const base::Result<> result =
            Build(settings, *request, library().queue, library().remarks, running->stop()).run();
        return result ? TARNOK_OK : resultCode(result.error().code);
    });
}

TARNOK_RESULT Tarnok_BuildCancel(void)
{
    return guarded([&] {
        Library& state = library();
        const std::lock_guard lock(state.mutex);
        if (!state.session)
            return TARNOK_ERR_UNINITIALIZED;
        if (state.session->building)
            state.session->stop.request_stop();
        return TARNOK_OK;
    });
}

TARNOK_RESULT Tarnok_FetchNextProgressItem(const TARNOK_PROGRESSITEM** item)
{
    if (!item)
        return TARNOK_ERR_INVALID_PARAM;
    *item = nullptr;
    return guarded([&] {
        *item = library().queue.fetch();
        return TARNOK_OK;
    });
}

TARNOK_RESULT Tarnok_ReleaseProgressItem(const TARNOK_PROGRESSITEM* item)
{
    return guarded([&] { return library().queue.release(item) ? TARNOK_OK : TARNOK_ERR_INVALID_PARAM; });
}

TARNOK_RESULT Tarnok_FetchNextRemark(char* text, unsigned int size)
{
    constexpr unsigned kLongestCharacter = 4; // bytes
    if (!text || size <= kLongestCharacter)
        return TARNOK_ERR_INVALID_PARAM;
    text[0] = '\0';
    return guarded([&] {
        copyCharacters(library().remarks.fetch(), text, size);
        return TARNOK_OK;
    });
}
