// SPDX-License-Identifier: MIT
// The validator of sound files, and the user's settings.
#pragma once

#include "kess.hpp"
#include "singleton.hpp"

#include <QMap>
#include <QString>

namespace TARNOK {

// Organisation and application of the settings store; the latter is also the title of message boxes.
inline constexpr const char* COMPANY_NAME = "KESS";
inline constexpr const char* APP_NAME = "KESS SoundBank Generator";

// The version is shown in hexadecimal, 2.03.08; the label names the kind of release and is empty for a regular one.
inline constexpr unsigned int VERSION_MAJOR = 0x2;
inline constexpr unsigned int VERSION_MINOR = 0x3;
inline constexpr unsigned int VERSION_PATCH = 0x8;
inline constexpr const char* APP_VERSION_LABEL = "";
inline constexpr const char* COPYRIGHT_LINE = "Copyright (C) KESS. All rights reserved.";

// Asks an audio engine without output what a file is, and decides whether it may be added to a bank. The process can't
// continue without the engine.
class SoundFileValidator
{
public:
    SoundFileValidator();
    ~SoundFileValidator();
    SoundFileValidator(const SoundFileValidator&) = delete;
    SoundFileValidator& operator=(const SoundFileValidator&) = delete;

    // Any of the pointers may be null. When the result is false, the values are unspecified.
    bool isValid(const QString& path, int* sampleRate, int* channelCount, int* length_ms, KESS_SOUND_FORMAT* format);

    // Why the last file that was validated may not be added to a bank, in words for people.
    const QString& fault() const { return mFault; }

    // Whether a file is a sound file other than a bank, or may be one if there was too little memory to find out. Logs
    // nothing.
    bool isSound(const QString& path);

    // Whether a file's name has the extension of a sound; that of a bank counts only where banks may be sources.
    bool hasSoundExtension(const QString& path) const;

    // Whether compiled banks may serve as source files.
    bool allowTnbFiles() const { return mAllowTnbFiles; }
    void setAllowTnbFiles(bool allow) { mAllowTnbFiles = allow; }

private:
    // Null, with the reason logged, for a file that the engine refuses.
    KESS::Sound* open(const QString& path);
    KESS_RESULT tryOpen(const QString& path, KESS_SOUND_TYPE hint, KESS::Sound** sound);
    bool isAccepted(KESS_SOUND_TYPE type) const;

    KESS::System* mSystem = nullptr;
    bool mAllowTnbFiles = false;
    QString mFault;
};

// The type that a path's suffix suggests to the engine. The comparison is case-sensitive.
KESS_SOUND_TYPE getTypeFromFileExtension(const QString& path);

// The user's directories and values. A write goes to a table in memory, which reads see immediately. Only the finalize
// calls write it to the store on disk.
class System
{
public:
    static constexpr const char* BANK_NAME = "Bank";
    static constexpr const char* CACHE_NAME = "Cache";
    static constexpr const char* PROFILE_NAME = "Profile";
    static constexpr const char* LISTFILE_NAME = "ListFile";
    static constexpr const char* SOURCE_NAME = "Source";
    static constexpr const char* THREAD_COUNT = "ThreadCount";
    static constexpr const char* GENERATE_CODE_HEADER = "GenerateHeaders";

    // Bounds and default of THREAD_COUNT.
    static constexpr int MIN_THREADS = 1;
    static constexpr int MAX_THREADS = 16;
    static constexpr int DEFAULT_THREADS = 4;

    QString getDir(const char* name);
    void setDir(const char* name, const QString& directory);

    // An existing directory: the one that is set, otherwise one in the user's documents, which is created.
    QString getOutputDir(const char* name);

    // What getOutputDir() returned instead of a directory that can't be used, in words for people; empty if it returned
    // the one that is set.
    QString replacementOf(const QString& directory) const { return mReplaced.value(directory); }

    int getValue(const char* name);
    void setValue(const char* name, int value);
    int getDefaultValue(const char* name);

    // The recent projects, latest first. They are stored in the settings store alone.
    static QStringList recentProjects();

    // Moves path to the front of them.
    static void rememberProject(const QString& path);

    void finalizeSettings() const;
    void finalizeDirectories() const;
    void finalizeValues() const;

private:
    QMap<QString, QString> mDirectories;
    QMap<QString, QString> mReplaced;
    QMap<QString, int> mValues;
};

// The settings of the program's user.
inline System* settings()
{
    return Singleton<System>::instance();
}

} // namespace TARNOK
