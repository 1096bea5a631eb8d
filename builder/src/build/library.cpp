// SPDX-License-Identifier: MIT
// The C boundary of the library.
#include "build/build.hpp"
#include "build/build_reports.hpp"
#include "build/library_state.hpp"
#include "build/result_code.hpp"
#include "tarnok.h"

#include "base/worker_thread.hpp"

#include <algorithm>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>

namespace builder {

namespace {

constexpr unsigned kMaximumThreads = 256;

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

std::string headerFile()
{
    Library& state = library();
    const std::lock_guard lock(state.mutex);
    return state.headerFile;
}

} // namespace

} // namespace builder

using namespace builder;

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

TARNOK_RESULT Tarnok_SetHeaderFile(const char* headerFileName)
{
    return guarded([&] {
        if (headerFileName && !*headerFileName)
            return TARNOK_ERR_INVALID_PARAM;
        Library& state = library();
        const std::lock_guard lock(state.mutex);
        state.headerFile = headerFileName ? headerFileName : "";
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
        base::Result<BuildRequest> request =
            checkRequest(subsounds, numSubsounds, format, buildFlags, quality, encryptionKey, outputFileName);
        if (!request) {
            BuildReports(library().queue, settings.flags & TARNOK_INIT_ALWAYS).bankFailed(request.error());
            return resultCode(request.error().code);
        }
        request->headerFile = headerFile();
        const base::SignalShield shield(false);
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
    constexpr unsigned kMaximumCharacterBytes = 4; // in UTF-8
    if (!text || size <= kMaximumCharacterBytes)
        return TARNOK_ERR_INVALID_PARAM;
    text[0] = '\0';
    return guarded([&] {
        copyCharacters(library().remarks.fetch(), text, size);
        return TARNOK_OK;
    });
}
