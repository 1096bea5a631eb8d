// What the console tool says beside its log.
#pragma once

#include "singleton.hpp"

#include <QString>
#include <QStringList>

namespace TARNOK {

// Lines on standard error for people and build farms: sounds that didn't make it into the bank, files that go elsewhere
// than the arguments suggest, and reasons that the log doesn't give. Other programs never start it, and then nothing is
// said.
class ConsoleRemarks : public Singleton<ConsoleRemarks>
{
public:
    // What is added from now on is held back: how much the user wants to hear isn't known yet.
    void start() { mState = State::Held; }

    // Says what was held back and all that follows, or nothing ever if the logger is silent.
    void release();

    // One line. Control characters are escaped: names of files may hold any.
    void add(const QString& text);

    // The same, unless it was added in this way before: what holds for one bank may hold for all.
    void addOnce(const QString& text);

    // A sound that the user has named isn't in the bank. The second: its build failed, so it is an empty one in the
    // bank, or there is no bank.
    void addMissingSound(const QString& path, const QString& reason);
    void addFailedSound(const QString& paths, const QString& reason);
    int missingSounds() const { return mMissingSounds; }

    // Whether the user wants to hear nothing at all. May be asked when all else is gone.
    static bool isSilent() { return sSilent; }

private:
    enum class State
    {
        Off,
        Held,
        Said
    };

    static inline bool sSilent = false;

    State mState = State::Off;
    QStringList mHeld;
    QStringList mAddedOnce;
    int mMissingSounds = 0;
};

// The program's one set of remarks.
inline ConsoleRemarks* remarks()
{
    return Singleton<ConsoleRemarks>::instance();
}

// The same text with each control character as \xNN or \uNNNN; those in kept stay.
QString withEscapedControls(const QString& text, QLatin1StringView kept = {});

} // namespace TARNOK
