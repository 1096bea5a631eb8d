// SPDX-License-Identifier: MIT
// The events of a build, one JSON object per line on standard output.
#pragma once

#include "faults.hpp"

#include "build_system.hpp"

#include <chrono>
#include <vector>

namespace tarnok_build {

// Observes a build, counts its sounds, and writes events if they are wanted.
class EventLog : public TARNOK::BuildObserver
{
public:
    explicit EventLog(bool isWanted)
        : mIsWanted(isWanted)
    { }

    void fault(const Fault& fault);
    void message(const QString& text);

    // Before the build. output is the path of the bank.
    void begin(const TARNOK::SoundBank* bank, const QString& output);

    void reported(const TARNOK_PROGRESSITEM& item) override;
    void ended(TARNOK_RESULT result, const char* text) override;

    enum class Outcome
    {
        Written,
        Unchanged,
        Failed, // the build
        Refused // before the build, because of the inputs
    };

    // After the build: what each sound takes in the bank, if that is known, and the outcome.
    void sizes(const std::vector<unsigned long long>& bytes);
    void end(Outcome outcome, const QString& output, const QString& header);

    int sounds() const { return static_cast<int>(mSounds.size()); }
    int finished() const { return mCached + mEncoded + mFailed; }
    int cached() const { return mCached; }
    int encoded() const { return mEncoded; }
    int failed() const { return mFailed; }
    TARNOK_RESULT result() const { return mResult; }

private:
    using Clock = std::chrono::steady_clock;

    struct Sound
    {
        QString name;
        QStringList files;
        bool isSeen = false;
        bool isEnded = false;
        bool isCached = false;
        Clock::time_point began;
        long long milliseconds = 0;
    };

    void write(const nlohmann::ordered_json& event) const;
    nlohmann::ordered_json soundEvent(int index, const char* state) const;
    void count(const TARNOK_PROGRESSITEM& item, Sound* sound);

    bool mIsWanted;
    std::vector<Sound> mSounds;
    int mCached = 0;
    int mEncoded = 0;
    int mFailed = 0;
    TARNOK_RESULT mResult = TARNOK_OK;
    QString mResultText;
    Clock::time_point mBegan = Clock::now();
};

} // namespace tarnok_build
