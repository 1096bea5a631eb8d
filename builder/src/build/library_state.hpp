// What the library keeps between the calls.
#pragma once

#include "build/build.hpp"
#include "build/progress_queue.hpp"
#include "support/remarks.hpp"
#include "tarnok.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <stop_token>

namespace tarnok {

// From Tarnok_Init to Tarnok_Release, and on until the build that was running then has ended: a build keeps the session
// that it began with, so that another thread may initialise the library again while that build is on its way out.
struct Session
{
    LibrarySettings settings;
    bool building = false;
    std::stop_source stop; // of the running build
    std::condition_variable buildEnded;
};

struct Library
{
    std::mutex mutex;
    std::shared_ptr<Session> session;
    ProgressQueue queue;
    Remarks remarks;
};

Library& library();

// Marks the session as building, for as long as it lives.
class RunningBuild
{
public:
    // Empty when the library isn't initialised or builds already; *result says which.
    static std::unique_ptr<RunningBuild> begin(TARNOK_RESULT* result);
    ~RunningBuild();
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

} // namespace tarnok
