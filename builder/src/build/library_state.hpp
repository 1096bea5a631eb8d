// SPDX-License-Identifier: MIT
// The state of the library between calls.
#pragma once

#include "build/build.hpp"
#include "build/progress_queue.hpp"
#include "support/remarks.hpp"
#include "tarnok.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>

namespace builder {

// Exists from Tarnok_Init to Tarnok_Release, and until a build that was running then has ended. A build keeps the
// session with which it started, so that another thread may initialise the library again while that build is ending.
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
    std::string headerFile; // of the next builds; empty: beside the bank
};

Library& library();

// Marks the session as building while it exists.
class RunningBuild
{
public:
    // Null if the library isn't initialised or is already building; *result contains the reason.
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

} // namespace builder
