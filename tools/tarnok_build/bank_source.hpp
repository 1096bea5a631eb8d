// SPDX-License-Identifier: MIT
// The inputs of a bank, and the bank that they make.
#pragma once

#include "faults.hpp"

#include "sound_bank.hpp"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace tarnok_build {

enum class InputKind
{
    Project,
    Profile,
    List,
    Folder,
    Sound
};

const char* wordOf(InputKind kind);

struct Input
{
    QString path; // absolute
    InputKind kind = InputKind::Sound;
    QStringList sounds; // of a folder, in the order of the bank
    QStringList folders; // of a folder: itself and, if they are included, those below it
};

// What the user asks for.
struct SourceRequest
{
    QStringList inputs;
    QString inputList; // a file with one more input per line; empty: none
    bool recursive = false;
    bool sorted = false; // the files of a folder, by path
    bool interleaved = false;
    bool allowTnb = false;
    bool ignoreErrors = false; // sounds that can't be used are left out

    // These override projects and profiles.
    std::optional<TARNOK_FORMAT> format;
    std::optional<int> quality;
    unsigned int flags = 0; // to be set
    QString keyFile;
};

// Reads the inputs into the bank of the workspace. Use: check(), then load().
class BankSource
{
public:
    explicit BankSource(SourceRequest request);

    // Finds out what the inputs are and what is wrong with them.
    void check(Faults* faults);

    // Whether check() has found nothing that prevents a load.
    bool isUsable(const Faults& faults) const;

    // The bank of the inputs, without the sounds that can't be used. Null, with a new fault, if it would have no sound.
    TARNOK::SoundBank* load(Faults* faults);

    const QList<Input>& inputs() const { return mInputs; }

    // Where a project puts its bank; empty without a project.
    const QString& projectOutput() const { return mProjectOutput; }

    // The files that determine the bank besides its sounds: projects, profiles, lists, the key file.
    QStringList documents() const;

    // The folders in which a new or removed file changes the bank.
    QStringList folders() const;

private:
    void readInputList(Faults* faults);
    void addInput(const QString& path, Faults* faults);
    void checkInput(Input* input, Faults* faults);
    void checkCombination(Faults* faults) const;
    void listFolder(Input* folder, Faults* faults);
    void loadProject(const Input& input, TARNOK::SoundBank* bank);
    void loadList(const Input& input, TARNOK::SoundBank* bank);
    void loadSounds(const QStringList& files, TARNOK::SoundBank* bank);
    bool applySettings(TARNOK::SoundBank* bank, Faults* faults) const;

    SourceRequest mRequest;
    QList<Input> mInputs;
    QStringList mLost; // inputs of which something could not be loaded
    QString mProjectOutput;
};

} // namespace tarnok_build
