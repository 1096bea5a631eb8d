// SPDX-License-Identifier: MIT
// One build job: a frozen copy of what the builder library needs of a bank, and the thread on which the library runs.
#pragma once

#include "tarnok.h"

#include <QString>
#include <QThread>

#include <atomic>

namespace TARNOK {

class SoundBank;
class Subsound;

// Stores a NUL-terminated UTF-8 copy of source, from new[], in *destination. An empty source aborts.
void createCopy(const char** destination, const QString& source);

// The constructor copies everything, so that the tree may change while the build runs. A context runs once.
class BuildContext : public QThread
{
public:
    // One sound in the library's own layout. It owns its file names.
    struct LibSubsound : TARNOK_SUBSOUND
    {
        LibSubsound();
        ~LibSubsound();
        LibSubsound(const LibSubsound&) = delete;
        LibSubsound& operator=(const LibSubsound&) = delete;

        void init(const SoundBank* bank, const Subsound* subsound);
    };
    static_assert(sizeof(LibSubsound) == sizeof(TARNOK_SUBSOUND));

    BuildContext();
    ~BuildContext() override;

    bool construct(const SoundBank* bank);
    bool clear();
    void run() override;

    // Ends a job whose thread could not be started.
    void fail(TARNOK_RESULT result);

    // Cancels the build, even if its thread has not reached the library yet.
    void cancel() { mCancelled.store(true); }
    bool cancelled() const { return mCancelled.load(); }

    // Once this is true, the result is final.
    bool finished() const { return mFinished.load(std::memory_order_acquire); }
    TARNOK_RESULT result() const { return mResult; }

    const char* outputFile() const { return mOutputFile; }
    unsigned int numSubsounds() const { return mNumSubsounds; }
    const LibSubsound* subsound(unsigned int index) const;

private:
    TARNOK_RESULT mResult = TARNOK_OK;
    LibSubsound* mSubsounds = nullptr;
    const char* mOutputFile = nullptr;
    const char* mEncryptionKey = nullptr;
    unsigned int mNumSubsounds = 0;
    TARNOK_FORMAT mFormat = TARNOK_FORMAT_PCM;
    unsigned int mBuildFlags = 0;
    unsigned int mQuality = 0;
    std::atomic<bool> mFinished = false;
    std::atomic<bool> mCancelled = false;
};

} // namespace TARNOK
