// SPDX-License-Identifier: MIT
// Source files, subsounds, sound banks, and the encoding settings of a bank.
#pragma once

#include "abstract_item.hpp"
#include "tarnok.h"

#include <QFile>

namespace TARNOK {

constexpr int MIN_QUALITY = 0;
constexpr int MAX_QUALITY = 100;

// The largest sum of channels to which files may be interleaved by hand.
constexpr int MAX_INTERLEAVED_CHANNELS = 16;

// The encoding settings of a bank: output format, quality, build flags. Can be stored in a file of its own.
class SoundProfile : public Serializable
{
public:
    TARNOK_FORMAT format() const { return mFormat; }
    void setFormat(TARNOK_FORMAT format) { change(mFormat, format); }

    unsigned int quality() const { return mQuality; }
    void setQuality(int quality); // MIN_QUALITY to MAX_QUALITY

    unsigned int buildFlags() const { return mBuildFlags; }
    void setBuildFlags(unsigned int flags) { change(mBuildFlags, flags); }
    void setBuildFlag(unsigned int flag, bool enabled);

    bool validate() const;

    // Copies the other profile's settings; modified only if one differs.
    void clone(const SoundProfile& other);

    bool serialize(QXmlStreamWriter* writer) const override;

    // Settings that the file doesn't mention keep their values, and its flags are added to those that are set.
    bool deserialize(XmlStreamIterator& xml) override;

private:
    bool deserializeFlags(XmlStreamIterator& xml);

    TARNOK_FORMAT mFormat = TARNOK_FORMAT_PCM;
    unsigned int mQuality = MAX_QUALITY;
    unsigned int mBuildFlags = 0;
};

// One audio file on disk, with its properties at the time when it was added.
class SourceFile : public AbstractItem
{
public:
    static constexpr float BYTES_TO_KILOBYTES = 1.0f / 1024.0f;

    explicit SourceFile(AbstractItem* parent);
    ~SourceFile() override;

    void setFile(const QFile& file, int sampleRate, int channelCount, int length_ms, KESS_SOUND_FORMAT format);

    // Location, name and type joined. The type is lowercase and its dot is always present, so that the name of a file
    // without a suffix, or with an uppercase one, changes.
    QString wholePath() const;

    bool serialize(QXmlStreamWriter* writer) const override;
    bool deserialize(XmlStreamIterator& xml) override; // reads nothing: the subsound does

    int rowOf(const AbstractItem* item) const override;
    int childCount() const override { return 0; }
    AbstractItem* child(int) const override { return nullptr; }
    void appendChild(AbstractItem* item) override;

    const QString& fileName() const override { return mFileName; }
    const QString& fileType() const override { return mFileType; }
    float fileSizeCurrent() const override { return mFileSizeCurrent; }
    const QString& fileLocation() const override { return mFileLocation; }
    int sampleRate() const override { return mSampleRate; }
    KESS_SOUND_FORMAT format() const override { return mFormat; }
    int length_ms() const override { return mLength_ms; }
    int channelCount() const override { return mChannelCount; }

private:
    QString mFileLocation;
    QString mFileName;
    QString mFileType;
    float mFileSizeCurrent = 0; // whole kilobytes
    int mSampleRate = 0; // hertz
    int mLength_ms = 0;
    int mChannelCount = 0;
    KESS_SOUND_FORMAT mFormat = KESS_SOUND_FORMAT_NONE;
};

// One sound of a bank: one file, or several interleaved ones. With one file it appears as a leaf: childCount() and
// child() hide the file, which is in the list.
class Subsound : public AbstractItemContainer<SourceFile>
{
public:
    explicit Subsound(AbstractItem* parent);
    ~Subsound() override;

    // False, with nothing changed, if the file isn't a valid sound.
    bool addFile(const QString& path);

    // For callers that have already validated the file.
    void addFileInternal(const QString& path, int sampleRate, int channelCount, int length_ms,
                         KESS_SOUND_FORMAT format);

    // The build flags that this sound overrides, and for each of them whether it is on.
    unsigned int buildFlagOverridesMask() const { return mBuildFlagOverridesMask; }
    unsigned int buildFlags() const { return mBuildFlags; }
    void overrideBuildFlag(unsigned int flag, bool enabled);

    // Quality of this sound alone; 0 means none. Not stored in project files, and changing it doesn't modify the
    // project.
    unsigned int quality() const { return mQuality; }
    void setQuality(unsigned int quality) { mQuality = quality; }

    float desiredSampleRate() const { return mDesiredSampleRate; } // hertz, 0 means that of the source

    bool serialize(QXmlStreamWriter* writer) const override;
    bool deserialize(XmlStreamIterator& xml) override;

    int childCount() const override { return size() > 1 ? static_cast<int>(size()) : 0; }

    const QString& fileName() const override;
    const QString& fileType() const override;
    float fileSizeCurrent() const override;
    const QString& fileLocation() const override;
    int sampleRate() const override;
    KESS_SOUND_FORMAT format() const override;
    int length_ms() const override;
    int channelCount() const override;

private:
    void serializeFlags(QXmlStreamWriter* writer) const;
    bool deserializeFlags(XmlStreamIterator& xml);
    bool deserializeAddedFlags(XmlStreamIterator& xml);
    bool deserializeRemovedFlags(XmlStreamIterator& xml);

    unsigned int mBuildFlags = 0;
    unsigned int mBuildFlagOverridesMask = 0;
    unsigned int mQuality = 0;
    float mDesiredSampleRate = 0;
};

// One output file of the project: subsounds, the path of the compiled bank, a key, and the encoding settings.
class SoundBank : public AbstractItemContainer<Subsound>
{
public:
    explicit SoundBank(AbstractItem* parent);
    ~SoundBank() override;

    // The new subsound with that one file. If the file isn't a valid sound, the error is logged and null is returned.
    Subsound* addSubsound(QString path);

    // Splits path into directory, name and extension. An existing directory replaces only the directory; a part that
    // path lacks is unchanged.
    void setOutputFilePath(const QString& path);
    QString outputFilePath() const;

    // Makes outputFilePath() return exactly this path, which names a file, however many dots it has.
    void setExactOutputFilePath(const QString& path);

    const QString& encryptionKey() const { return mEncryptionKey; }
    void setEncryptionKey(const QString& key) { change(mEncryptionKey, key); }

    SoundProfile& profile() { return mProfile; }
    const SoundProfile& profile() const { return mProfile; }

    // Whether the bank can be built and saved; what is missing is logged.
    bool validate() const;

    // Whether the bank or its profile has changes to save.
    virtual bool isModified();

    // Saves to a project file.
    bool save(const QString& path);

    // Removes the bank from the workspace and deletes it.
    void unload();

    bool serialize(QXmlStreamWriter* writer) const override;
    bool deserialize(XmlStreamIterator& xml) override;

    const QString& fileName() const override { return mFileName; }
    const QString& fileType() const override { return mFileType; }
    const QString& fileLocation() const override { return mFileLocation; }
    unsigned int subsoundQuality() const override { return mProfile.quality(); }

private:
    bool deserializeContent(XmlStreamIterator& xml);

    QString mFileLocation;
    QString mFileName;
    QString mFileType;
    QString mEncryptionKey;
    SoundProfile mProfile;
};

} // namespace TARNOK
