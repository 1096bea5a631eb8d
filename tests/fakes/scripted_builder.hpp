// A builder library that encodes nothing: it records every call, and reports, stalls, fails and cancels as it is told.
#pragma once

#include "tarnok.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace fakes {

struct InitCall
{
    TARNOK_TNBVERSION version;
    unsigned int flags;
    unsigned int threadCount;
    std::string cacheDirectory;
};

struct BuiltSubsound
{
    std::vector<std::string> files;
    unsigned int overrideFlags;
    unsigned int overrideQuality;
    float desiredSampleRate;
};

struct BuildCall
{
    std::vector<BuiltSubsound> subsounds;
    TARNOK_FORMAT format;
    unsigned int buildFlags;
    unsigned int quality;
    std::optional<std::string> encryptionKey;
    std::string outputFile;
};

// One report; text is the reason of a failure.
struct Report
{
    int index;
    int thread;
    TARNOK_STATE state;
    std::string text = {};
};

// The object behind the six functions. All functions may be used on any thread.
class ScriptedBuilder
{
public:
    static ScriptedBuilder& instance();

    // Forgets calls and script. No build may be running.
    void reset();

    // The script of builds that start from now on.
    void setInitResult(TARNOK_RESULT result) { set(&State::initResult, result); }
    void setReleaseResult(TARNOK_RESULT result) { set(&State::releaseResult, result); }
    void setBuildResult(TARNOK_RESULT result) { set(&State::buildResult, result); }
    void setReports(const std::vector<Report>& reports) { set(&State::reports, reports); } // each build's, at its start

    // Builds wait, after posting their reports, until resume() or a cancel. A cancelled build returns result 2.
    void stallBuilds() { set(&State::stall, true); }
    void resume() { set(&State::stall, false); }

    // Posts a report now.
    void post(const Report& report);

    // Blocks until so many builds have started, or finished, since reset().
    void waitForStarted(size_t builds);
    void waitForFinished(size_t builds);

    // The record since reset().
    std::vector<InitCall> inits() { return get(&State::inits); }
    std::vector<BuildCall> builds() { return get(&State::builds); }
    size_t releases() { return get(&State::releases); }
    size_t cancels() { return get(&State::cancels); }
    size_t itemsHeld() { return get(&State::held).size(); } // fetched and not released yet
    // An item was released twice or was none of ours, or calls came in a forbidden order.
    bool misused() { return get(&State::misused); }

    // The library's side.
    TARNOK_RESULT init(const InitCall& call);
    TARNOK_RESULT release();
    TARNOK_RESULT build(const BuildCall& call);
    TARNOK_RESULT cancel();
    const TARNOK_PROGRESSITEM* fetch();
    void releaseItem(const TARNOK_PROGRESSITEM* item);

private:
    struct State
    {
        TARNOK_RESULT initResult = TARNOK_OK;
        TARNOK_RESULT releaseResult = TARNOK_OK;
        TARNOK_RESULT buildResult = TARNOK_OK;
        std::vector<Report> reports;
        bool stall = false;
        bool cancelled = false;
        bool misused = false;
        std::vector<InitCall> inits;
        std::vector<BuildCall> builds;
        size_t finished = 0;
        size_t releases = 0;
        size_t cancels = 0;
        std::deque<const TARNOK_PROGRESSITEM*> posted;
        std::set<const TARNOK_PROGRESSITEM*> held;
    };

    template <typename Value>
    void set(Value State::*member, const Value& value)
    {
        const std::lock_guard lock(mMutex);
        mState.*member = value;
        mChanged.notify_all();
    }

    template <typename Value>
    Value get(Value State::*member)
    {
        const std::lock_guard lock(mMutex);
        return mState.*member;
    }

    std::mutex mMutex;
    std::condition_variable mChanged;
    State mState;
    bool mInitialised = false;
    bool mRunning = false;
    std::set<const TARNOK_PROGRESSITEM*> mForgotten; // held when reset() came; they may still be handed back
};

} // namespace fakes
