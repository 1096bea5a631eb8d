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

// The object behind the six functions. All members may be used on any thread.
class ScriptedBuilder
{
public:
    static ScriptedBuilder& instance();

    // Forgets calls and script. No build may be running.
    void reset();

    // The script of builds that start from now on.
    void setInitResult(TARNOK_RESULT result);
    void setReleaseResult(TARNOK_RESULT result);
    void setBuildResult(TARNOK_RESULT result);
    void setReports(std::vector<Report> reports); // posted by each build when it starts

    // Builds wait, after posting their reports, until resume() or a cancel. A cancelled build returns result 2.
    void stallBuilds();
    void resume();

    // Posts a report now.
    void post(const Report& report);

    // Blocks until so many builds have started, or finished, since reset().
    void waitForStarted(size_t builds);
    void waitForFinished(size_t builds);

    // The record since reset().
    std::vector<InitCall> inits();
    std::vector<BuildCall> builds();
    size_t releases();
    size_t cancels();
    size_t itemsHeld(); // fetched and not released yet
    bool misused(); // an item was released twice or was none of ours, or calls came in a forbidden order

    // The library's side.
    TARNOK_RESULT init(const InitCall& call);
    TARNOK_RESULT release();
    TARNOK_RESULT build(BuildCall call);
    TARNOK_RESULT cancel();
    const TARNOK_PROGRESSITEM* fetch();
    void releaseItem(const TARNOK_PROGRESSITEM* item);

private:
    struct Item;
    void postLocked(const Report& report);

    std::mutex mMutex;
    std::condition_variable mChanged;
    TARNOK_RESULT mInitResult = TARNOK_OK;
    TARNOK_RESULT mReleaseResult = TARNOK_OK;
    TARNOK_RESULT mBuildResult = TARNOK_OK;
    std::vector<Report> mReports;
    bool mStall = false;
    bool mCancelled = false;
    bool mInitialised = false;
    bool mMisused = false;
    bool mRunning = false;
    std::vector<InitCall> mInits;
    std::vector<BuildCall> mBuilds;
    size_t mFinished = 0;
    size_t mReleases = 0;
    size_t mCancels = 0;
    std::deque<const TARNOK_PROGRESSITEM*> mPosted;
    std::set<const TARNOK_PROGRESSITEM*> mHeld;
    std::set<const TARNOK_PROGRESSITEM*> mForgotten; // held when reset() came; they may still be handed back
};

} // namespace fakes
