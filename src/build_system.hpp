// SPDX-License-Identifier: MIT
// Runs builds: the builder library's initialisation, the queue of jobs, and the translation of its progress reports.
#pragma once

#include "build_context.hpp"
#include "singleton.hpp"
#include "tarnok.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QReadWriteLock>
#include <QString>

namespace TARNOK {

// Watches builds, besides the log. Its functions are called within BuildSystem::update().
class BuildObserver
{
public:
    virtual ~BuildObserver() = default;

    // A report of the library on a sound or on the bank.
    virtual void reported(const TARNOK_PROGRESSITEM& item) = 0;

    // The build has ended, after its last report; text describes its result unless that is TARNOK_OK.
    virtual void ended(TARNOK_RESULT result, const char* text) = 0;
};

// Turns the library's reports on one build into a log line for each sound and one fraction for the progress bar.
class ProgressMonitor
{
public:
    // Prepares for a build of that many sounds, and releases the reports still held from the previous build.
    void prepare(int numSubsounds);

    // Processes all reports that are available.
    void updateInternal(const BuildContext* context);

    // Not owned; null for none.
    void setObserver(BuildObserver* observer) { mObserver = observer; }
    BuildObserver* observer() const { return mObserver; }

    // From 0 to 1, or -1 while the bank is being written. May decrease when a worker leaves a sound for another one.
    float progress();

    const char* stateToString(TARNOK_STATE state);

private:
    void processProgressItem(const TARNOK_PROGRESSITEM* item, const BuildContext* context);
    void processBankItem(const TARNOK_PROGRESSITEM* item);
    QString getFileNameStrings(const BuildContext::LibSubsound* subsound);
    static QString pathsOf(const BuildContext::LibSubsound* subsound);

    QList<int> mCompleted;
    int mNumSubsounds = 0;
    QMap<int, const TARNOK_PROGRESSITEM*> mInProgress; // by worker: its last report on a sound that isn't done yet
    QList<int> mPending; // sounds that no report has mentioned yet
    bool mWriting = false;
    BuildObserver* mObserver = nullptr;
};

// The jobs in order of arrival. The head is the one that runs. The queue doesn't own what it points to.
class BuildQueue
{
public:
    // Here and below, locked means that the caller already holds the lock, which isn't recursive.
    void enqueue(BuildContext* context, bool locked);
    BuildContext* first(bool locked);
    int size(bool locked);
    void remove(BuildContext* context); // with the write lock held

    QReadWriteLock* lock() { return &mLock; }

private:
    QReadWriteLock mLock;
    QList<BuildContext*> mContexts;
};

// Both front ends build through this: they enqueue a bank and call update() until it returns false. Everything else
// happens inside update(), on the caller's thread; one thread makes all calls.
class BuildSystem : public QObject, public Singleton<BuildSystem>
{
    Q_OBJECT

public:
    BuildSystem();
    ~BuildSystem() override;

    // Copies the bank into a job and starts it, unless the bank is invalid or a build is running.
    void enqueueBuild(const SoundBank* bank);

    // Processes the progress of the running job, or its result. True while there is something left to poll.
    bool update();

    // The job must still be polled until it ends.
    void cancelBuild();

    // These take effect at the next build. The first two are also written to the settings.
    void setThreadCount(unsigned int count);
    void setGenerateCodeHeader(bool enabled);
    void setTNBVersion(TARNOK_TNBVERSION version);

    // Sets or clears one of the TARNOK_INIT_* bits for the next build. The settings don't change.
    void setInitFlag(unsigned int flag, bool enabled);

    bool isBuilding() const { return mBuilding; }
    unsigned int threadCount() const { return mThreadCount; }
    bool generateCodeHeader() const { return (initFlags & TARNOK_INIT_CREATE_HEADER) != 0; }
    ProgressMonitor& progressMonitor() { return mProgressMonitor; }

    // Whether the build that was enqueued last has written its bank.
    bool lastBuildSucceeded() const { return mLastBuildSucceeded; }

signals:
    void buildStateChanged();

private:
    void processNext(bool locked);
    void initLib();
    void releaseLib();
    void reportResult(const BuildContext* context);

    ProgressMonitor mProgressMonitor;
    BuildQueue mQueue;
    unsigned int initFlags = TARNOK_INIT_ALWAYS;
    QString mCacheDir;
    bool mInitialised = false;
    bool mSettingsChanged = false;
    bool mBuilding = false;
    unsigned int mThreadCount;
    TARNOK_TNBVERSION mTnbVersion = TARNOK_TNBVERSION_CURRENT;
    bool mLastBuildSucceeded = false;
};

// The program's one build system.
inline BuildSystem* buildSystem()
{
    return Singleton<BuildSystem>::instance();
}

} // namespace TARNOK
