// SPDX-License-Identifier: MIT
// What the console tool writes besides its log.
#pragma once

#include "singleton.hpp"

#include <QString>
#include <QStringList>

#include <functional>

namespace TARNOK {

// Lines on standard error for people and build farms: sounds that are missing from the bank, output files that differ
// from what the arguments suggest, and reasons that the log doesn't give. In programs that neither start it nor set a
// receiver, nothing is written.
class ConsoleRemarks : public Singleton<ConsoleRemarks>
{
public:
    // From now on, remarks are held back until the verbosity is known.
    void start() { mState = State::Held; }

    // From now on, remarks go to this function instead of standard error.
    void sendTo(std::function<void(const QString& text)> receiver);

    // Writes what was held back and all later remarks; writes nothing at all if the logger is silent.
    void release();

    // One line. Control characters are escaped, because names of files may contain them.
    void add(const QString& text);

    // The same, unless this function has added it before: what applies to one bank may apply to all.
    void addOnce(const QString& text);

    // The first: a sound that the user named isn't in the bank. The second: its build failed, so the bank has an empty
    // sound instead, or there is no bank.
    void addMissingSound(const QString& path, const QString& reason);
    void addFailedSound(const QString& paths, const QString& reason);
    int missingSounds() const { return mMissingSounds; }

    // Whether the user wants no output at all. May be called after every other object was destroyed.
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
    std::function<void(const QString& text)> mReceiver;
    QStringList mHeld;
    QStringList mAddedOnce;
    int mMissingSounds = 0;
};

// The program's one set of remarks.
inline ConsoleRemarks* remarks()
{
    return Singleton<ConsoleRemarks>::instance();
}

// The text with each control character written as \xNN or \uNNNN, except for those in kept.
QString withEscapedControls(const QString& text, QLatin1StringView kept = {});

} // namespace TARNOK
