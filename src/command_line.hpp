// SPDX-License-Identifier: MIT
// The console tool's body: switches, the grammar of its arguments, the population of a bank, and the build.
#pragma once

#include "console_remarks.hpp"
#include "logger.hpp"
#include "singleton.hpp"
#include "sound_bank.hpp"

#include <QList>
#include <QString>
#include <QStringList>

namespace TARNOK {

// One switch. Its objects are static and register themselves before main; nothing creates or deletes one later.
class AbstractAction
{
public:
    AbstractAction(const char* name, const char* help, bool hidden);

    // Executes the switch; false if that failed. bank is null for a switch that runs before population; value is empty
    // for a switch without a value.
    virtual bool execute(SoundBank* bank, const QString& value) const = 0;

    const QList<QString>& names() const { return mNames; }
    const QString& name() const { return mNames.first(); } // the long one, which help shows
    const char* help() const { return mHelp; }
    bool hidden() const { return mHidden; }

    void addAlias(const char* name);

protected:
    ~AbstractAction() = default;

private:
    QList<QString> mNames;
    const char* mHelp;
    bool mHidden;
};

// Adds a switch to those that run before the bank is populated, or to those that run after.
void registerCommand(AbstractAction* action, bool prepopulate);

// Base-10 integer. A value out of range is clamped, with a warning; false if text is not a number.
bool convertToInt(const QString& text, int minimum, int maximum, int* result);

// The priority that a word names, ignoring case. On false, *priority is unchanged.
bool stringToVerbosity(const QString& text, Logger::OUTPUTPRIORITY* priority);

// Compiles banks from one argument vector. A process uses it once.
class CommandLine
{
public:
    // One switch of the argument vector: its name without the first character, and its value. Neither is owned.
    struct Arg
    {
        const char* name;
        const char* value;
    };

    // Switches in the order of their registration; not owned.
    class CommandActions : public QList<AbstractAction*>
    {
    public:
        // By any of its names, ignoring case; one leading "-" is dropped. Null if there is none.
        AbstractAction* find(QString name) const;
    };

    // True if the run was completed. For the results of its builds see allBanksWritten().
    bool buildBank(int argc, char** argv);

    // Whether every requested file was written.
    bool allBanksWritten() const { return mBanksWanted > 0 && mBanksWritten == mBanksWanted; }

    // Whether all requested sounds are in the bank, or the user chose to ignore errors.
    bool allSoundsTaken() const { return mIgnoreErrors || remarks()->missingSounds() == 0; }

    // Whether a project was requested instead of banks.
    bool isWritingProject() const { return mWriteProject; }

    void printHelp();

    // Gags the logger, so that switches which set its threshold also apply to earlier lines. Always true.
    bool init();

    // Whether an argument looks like a path: it contains a ".", "/" or "\" after its first character.
    bool isPath(const char* argument);

    // Sorts the arguments into one source, a destination and switches by their form alone. Errors are logged, and
    // parsing continues.
    bool parseArgs(int argc, char** argv, QList<QString>* sources, QString* destination, QList<Arg>* args);

    // Runs the switches that control the population and removes them from args.
    bool processPrepopulateArgs(QList<Arg>* args);

    bool validateArgs(const QList<QString>& sources, const QString& destination, const QList<Arg>& args);

    // Makes a bank of the source: a project, a list, a sound file, or the files of a directory.
    bool populateTNB(const QList<QString>& sources, SoundBank** bank);

    // Lists the files of the paths, including those inside directories. A path that doesn't exist aborts.
    bool getFileListFromPath(const QList<QString>& paths, QList<QString>* files, QString relativePath);

    // Runs the switches that change the bank.
    bool processArgs(const QList<Arg>& args, SoundBank* bank);

    void registerAction(AbstractAction* action, bool prepopulate);

    void setInterleaved(bool interleaved) { mInterleaved = interleaved; }
    void setMultiple() { mMultiple = true; }
    void setWriteProject() { mWriteProject = true; }
    void setRecursive() { mRecursive = true; }
    void setIgnoreErrors() { mIgnoreErrors = true; }

    // A file that the run reads settings from: no bank may replace it.
    void protect(const QString& path) { mProtected.append(path); }

private:
    bool fail(const char* line, const char* hint = nullptr);
    QString projectReplacementFault(const QString& path) const;
    void setDefaultOutputPath(SoundBank* bank, const QString& destination);
    void writeProject(const SoundBank* bank, const QString& destination);
    [[nodiscard]] bool buildToTheEnd(const SoundBank* bank); // whether the bank was written
    bool buildMultiple(SoundBank* bank, const QString& destination);

    CommandActions mPrepopulateActions;
    CommandActions mPostpopulateActions;
    bool mInterleaved = false;
    bool mMultiple = false;
    bool mWriteProject = false;
    bool mRecursive = false;
    bool mIgnoreErrors = false;
    QStringList mProtected;
    int mBanksWanted = 0;
    int mBanksWritten = 0;
};

} // namespace TARNOK
