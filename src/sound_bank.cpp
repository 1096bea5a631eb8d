// SPDX-License-Identifier: MIT
#include "sound_bank.hpp"

#include "console_remarks.hpp"
#include "logger.hpp"
#include "utility_classes.hpp"
#include "utility_functions.hpp"
#include "workspace.hpp"
#include "xml_stream_iterator.hpp"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace TARNOK {

namespace {

constexpr int FLAG_BITS = 32;

// The first invalid format number of a profile, which is one beyond that of the last real format.
constexpr quint32 FORMAT_LIMIT = FORMAT_COUNT + 1;

// Reports an unexpected step. Always false, for the reader to return.
bool unexpectedTag(XmlStreamIterator& xml)
{
    xml.raiseError("unexpected tag '%s' : '%s'");
    logger()->println(Logger::OUTPUT_ERROR, "ERROR: [XML] near line %u, unexpected tag '%s' : '%s'", xml.lineNumber(),
                      xml.name().toUtf8().constData(), xml.text().toUtf8().constData());
    return false;
}

bool unknownFlag(XmlStreamIterator& xml)
{
    xml.raiseError("unknown flag '%s'");
    logger()->println(Logger::OUTPUT_ERROR, "ERROR: [XML] near line %u, unknown flag '%s'", xml.lineNumber(),
                      xml.text().toUtf8().constData());
    return false;
}

bool unrecognisedBlock(XmlStreamIterator& xml)
{
    xml.raiseError("Unrecognised block '%s' started, expected 'flags' block");
    logger()->println(Logger::OUTPUT_ERROR,
                      "ERROR: [XML] near line %u, Unrecognised block '%s' started, expected 'flags' block",
                      xml.lineNumber(), xml.name().toUtf8().constData());
    return false;
}

// Calls visit(flag) for each set bit, from bit 0 up.
template <typename Visit>
void forEachFlag(unsigned int flags, Visit visit)
{
    for (int bit = 0; bit < FLAG_BITS; ++bit) {
        const unsigned int flag = 1u << bit;
        if (flags & flag)
            visit(flag);
    }
}

} // namespace

void SoundProfile::setQuality(int quality)
{
    Q_ASSERT(MIN_QUALITY <= quality && quality <= MAX_QUALITY);
    change(mQuality, static_cast<unsigned int>(quality));
}

void SoundProfile::setBuildFlag(unsigned int flag, bool enabled)
{
    change(mBuildFlags, enabled ? mBuildFlags | flag : mBuildFlags & ~flag);
}

bool SoundProfile::validate() const
{
    return static_cast<quint32>(mFormat) < FORMAT_LIMIT && mQuality <= static_cast<unsigned int>(MAX_QUALITY);
}

void SoundProfile::clone(const SoundProfile& other)
{
    change(mFormat, other.mFormat);
    change(mQuality, other.mQuality);
    change(mBuildFlags, other.mBuildFlags);
}

bool SoundProfile::serialize(QXmlStreamWriter* writer) const
{
    writer->writeStartElement("profile");
    writer->writeTextElement("format", formatToString(mFormat));
    if (getFormatType(mFormat) != FORMAT_TYPE_NONE)
        writer->writeTextElement("quality", QString::number(mQuality));
    if (mBuildFlags != 0) {
        writer->writeStartElement("flags");
        forEachFlag(mBuildFlags, [&](unsigned int flag) { writer->writeEmptyElement(buildFlagToString(flag)); });
        writer->writeEndElement();
    }
    writer->writeEndElement();

    // Whether it is saved isn't part of the content.
    const_cast<SoundProfile*>(this)->makeClean();
    return true;
}

bool SoundProfile::deserialize(XmlStreamIterator& xml)
{
    if (xml.name() != "profile")
        return unexpectedTag(xml);

    for (;;) {
        switch (++xml) {
        case XmlStreamIterator::XML_TEXT_ELEMENT:
            if (xml.name() == "format") {
                mFormat = stringToFormat(xml.text(), nullptr);
            } else if (xml.name() == "quality") {
                const int quality = xml.text().toInt();
                if (quality < MIN_QUALITY || quality > MAX_QUALITY)
                    return unexpectedTag(xml);
                mQuality = static_cast<unsigned int>(quality);
            }
            break;
        case XmlStreamIterator::XML_BLOCK_START:
            if (xml.name() != "flags")
                return unexpectedTag(xml);
            if (!deserializeFlags(xml))
                return false;
            break;
        case XmlStreamIterator::XML_BLOCK_END:
            if (xml.name() != "profile")
                return unexpectedTag(xml);
            makeClean();
            return validate();
        default:
            return unexpectedTag(xml);
        }
    }
}

bool SoundProfile::deserializeFlags(XmlStreamIterator& xml)
{
    while (++xml != XmlStreamIterator::XML_BLOCK_END) {
        const unsigned int flag = stringToBuildFlag(xml.text());
        if (flag == 0)
            logger()->println(Logger::OUTPUT_WARNING, "[XML] near line %u, unknown flag '%s'", xml.lineNumber(),
                              xml.text().toUtf8().constData());
        mBuildFlags |= flag;
    }
    return xml.name() == "flags" || unexpectedTag(xml);
}

SourceFile::SourceFile(AbstractItem* parent)
    : AbstractItem(parent, RTTI_SOURCEFILE)
{ }

SourceFile::~SourceFile()
{
    logger()->println(Logger::OUTPUT_DEBUG, "source file %d destructed", ownRow());
}

void SourceFile::setFile(const QFile& file, int sampleRate, int channelCount, int length_ms, KESS_SOUND_FORMAT format)
{
    const float size = static_cast<float>(static_cast<qint32>(file.size()));
    const int kilobytes = static_cast<int>(size * BYTES_TO_KILOBYTES + 0.5f); // NOLINT(bugprone-incorrect-roundings)
    mFileSizeCurrent = static_cast<float>(kilobytes);

    const QFileInfo info(file);
    mFileName = info.completeBaseName();
    mFileType = info.suffix().toLower();
    mFileLocation = info.dir().path();

    mSampleRate = sampleRate;
    mChannelCount = channelCount;
    mLength_ms = length_ms;
    mFormat = format;
    mDirty = true;
}

QString SourceFile::wholePath() const
{
    return mFileLocation + "/" + mFileName + "." + mFileType;
}

bool SourceFile::serialize(QXmlStreamWriter* writer) const
{
    writer->writeTextElement("file", wholePath());
    return true;
}

bool SourceFile::deserialize(XmlStreamIterator&)
{
    return true;
}

int SourceFile::rowOf(const AbstractItem*) const
{
    Q_ASSERT(!"a source file has no children");
    return -1;
}

void SourceFile::appendChild(AbstractItem*)
{
    Q_ASSERT(!"a source file can't have children");
}

Subsound::Subsound(AbstractItem* parent)
    : AbstractItemContainer<SourceFile>(parent, RTTI_SUBSOUND)
{ }

Subsound::~Subsound()
{
    logger()->println(Logger::OUTPUT_DEBUG, "subsound %d destructed", ownRow());
}

bool Subsound::addFile(const QString& path)
{
    int sampleRate = 0;
    int channelCount = 0;
    int length_ms = 0;
    KESS_SOUND_FORMAT format = KESS_SOUND_FORMAT_NONE;
    if (!Singleton<SoundFileValidator>::instance()->isValid(path, &sampleRate, &channelCount, &length_ms, &format))
        return false;
    addFileInternal(path, sampleRate, channelCount, length_ms, format);
    return true;
}

void Subsound::addFileInternal(const QString& path, int sampleRate, int channelCount, int length_ms,
                               KESS_SOUND_FORMAT format)
{
    newItem()->setFile(QFile(path), sampleRate, channelCount, length_ms, format);
    mDirty = true;
}

void Subsound::overrideBuildFlag(unsigned int flag, bool enabled)
{
    change(mBuildFlagOverridesMask, mBuildFlagOverridesMask | flag);
    change(mBuildFlags, enabled ? mBuildFlags | flag : mBuildFlags & ~flag);
}

bool Subsound::serialize(QXmlStreamWriter* writer) const
{
    if (isEmpty()) {
        logger()->println(Logger::OUTPUT_MESSAGE, "Empty subsound not saved");
        Q_ASSERT(!isEmpty());
    }
    writer->writeStartElement("subsound");
    serializeFlags(writer);
    if (!serializeChildren(writer))
        return false;
    writer->writeEndElement();
    return true;
}

void Subsound::serializeFlags(QXmlStreamWriter* writer) const
{
    const unsigned int buildFlagMask = mBuildFlagOverridesMask;
    Q_ASSERT((buildFlagMask & (~TARNOK_BUILD_OVERRIDE_MASK)) == 0);
    if (buildFlagMask == 0)
        return;

    const auto writeFlag = [writer](const char* element, unsigned int flag) {
        writer->writeStartElement(element);
        writer->setAutoFormatting(false);
        writer->writeEmptyElement(buildFlagToString(flag));
        writer->writeEndElement();
        writer->setAutoFormatting(true);
    };

    writer->writeStartElement("flags");
    forEachFlag(buildFlagMask & mBuildFlags, [&](unsigned int flag) { writeFlag("add", flag); });
    forEachFlag(buildFlagMask & ~mBuildFlags, [&](unsigned int flag) { writeFlag("remove", flag); });
    writer->writeEndElement();
}

bool Subsound::deserialize(XmlStreamIterator& xml)
{
    if (xml.name() != "subsound")
        return unexpectedTag(xml);

    for (;;) {
        switch (++xml) {
        case XmlStreamIterator::XML_TEXT_ELEMENT:
            if (xml.name() != "file")
                return unexpectedTag(xml);
            if (!addFile(xml.text())) {
                logger()->println(Logger::OUTPUT_WARNING, "Couldn't add file '%s' to subsound",
                                  xml.text().toUtf8().constData());
                remarks()->addMissingSound(xml.text(), Singleton<SoundFileValidator>::instance()->fault());
            }
            break;
        case XmlStreamIterator::XML_BLOCK_START:
            if (xml.name() != "flags")
                return unrecognisedBlock(xml);
            if (!deserializeFlags(xml))
                return false;
            break;
        case XmlStreamIterator::XML_BLOCK_END:
            if (xml.name() != "subsound")
                return unexpectedTag(xml);
            makeClean();
            return !isEmpty();
        default:
            return unexpectedTag(xml);
        }
    }
}

bool Subsound::deserializeFlags(XmlStreamIterator& xml)
{
    while (++xml == XmlStreamIterator::XML_BLOCK_START) {
        if (xml.name() == "add") {
            if (!deserializeAddedFlags(xml))
                return false;
        } else if (xml.name() == "remove") {
            if (!deserializeRemovedFlags(xml))
                return false;
        } else {
            return unexpectedTag(xml);
        }
    }
    if (xml.state() != XmlStreamIterator::XML_BLOCK_END || xml.name() != "flags")
        return unexpectedTag(xml);
    return true;
}

bool Subsound::deserializeAddedFlags(XmlStreamIterator& xml)
{
    while (++xml == XmlStreamIterator::XML_EMPTY_ELEMENT) {
        const unsigned int flag = stringToBuildFlag(xml.text());
        if (flag == 0)
            return unknownFlag(xml);
        overrideBuildFlag(flag, true);
    }
    if (xml.state() != XmlStreamIterator::XML_BLOCK_END || xml.name() != "add")
        return unexpectedTag(xml);
    return true;
}

// Unlike an "add", which contains only empty elements, a "remove" may contain text elements, whose text is the word.
bool Subsound::deserializeRemovedFlags(XmlStreamIterator& xml)
{
    while (++xml != XmlStreamIterator::XML_BLOCK_END) {
        const unsigned int flag = stringToBuildFlag(xml.text());
        if (flag == 0)
            return unknownFlag(xml);
        overrideBuildFlag(flag, false);
    }
    return xml.name() == "remove" || unexpectedTag(xml);
}

const QString& Subsound::fileName() const
{
    return isEmpty() ? EMPTY : first()->fileName();
}

const QString& Subsound::fileType() const
{
    return size() == 1 ? first()->fileType() : EMPTY;
}

float Subsound::fileSizeCurrent() const
{
    float sum = 0;
    for (const SourceFile* file : *this)
        sum += file->fileSizeCurrent();
    return sum;
}

const QString& Subsound::fileLocation() const
{
    return size() == 1 ? first()->fileLocation() : EMPTY;
}

int Subsound::sampleRate() const
{
    return isEmpty() ? 0 : first()->sampleRate();
}

KESS_SOUND_FORMAT Subsound::format() const
{
    return isEmpty() ? KESS_SOUND_FORMAT_NONE : first()->format();
}

int Subsound::length_ms() const
{
    int longest = isEmpty() ? 0 : first()->length_ms();
    for (const SourceFile* file : *this)
        longest = std::max(longest, file->length_ms());
    return longest;
}

int Subsound::channelCount() const
{
    int sum = 0;
    for (const SourceFile* file : *this)
        sum += file->channelCount();
    return sum;
}

SoundBank::SoundBank(AbstractItem* parent)
    : AbstractItemContainer<Subsound>(parent, RTTI_SOUNDBANK)
{ }

SoundBank::~SoundBank()
{
    logger()->println(Logger::OUTPUT_DEBUG, "bank %d destructed", ownRow());
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is given
Subsound* SoundBank::addSubsound(QString path)
{
    int sampleRate = 0;
    int channelCount = 0;
    int length_ms = 0;
    KESS_SOUND_FORMAT format = KESS_SOUND_FORMAT_NONE;
    if (!Singleton<SoundFileValidator>::instance()->isValid(path, &sampleRate, &channelCount, &length_ms, &format)) {
        const auto separator = std::max(path.lastIndexOf('/'), path.lastIndexOf('\\'));
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: invalid file: '%s'",
                          path.mid(separator + 1).toUtf8().constData());
        return nullptr;
    }

    Subsound* subsound = newItem();
    subsound->addFileInternal(path, sampleRate, channelCount, length_ms, format);
    mDirty = true;
    return subsound;
}

void SoundBank::setOutputFilePath(const QString& path)
{
    const QString clean = QDir::cleanPath(path);
    if (QDir(clean).exists()) {
        change(mFileLocation, path);
        return;
    }

    const auto slash = clean.lastIndexOf('/');
    if (slash >= 0)
        change(mFileLocation, clean.left(slash));
    else
        mFileLocation.clear();

    // Searched from the slash on. Without a slash, the search starts at -1, the last character: a bare name keeps its
    // extension, and outputFilePath() doesn't add another.
    const auto dot = path.indexOf('.', slash);
    if (dot >= 0) {
        change(mFileName, clean.mid(slash + 1, dot - slash - 1));
        change(mFileType, clean.right(clean.size() - dot - 1));
    } else {
        change(mFileName, clean.right(clean.size() - slash - 1));
    }
}

QString SoundBank::outputFilePath() const
{
    QString path;
    if (!mFileLocation.isEmpty())
        path += mFileLocation + "/";
    path += mFileName;
    if (mFileType.isEmpty() || mFileName.contains("." + mFileType))
        return path;
    return path + "." + mFileType;
}

void SoundBank::setExactOutputFilePath(const QString& path)
{
    // The root folder can't be a location of its own.
    const auto slash = path.lastIndexOf('/');
    change(mFileLocation, path.left(std::max<qsizetype>(slash, 0)));
    change(mFileName, slash > 0 ? path.mid(slash + 1) : path);
    change(mFileType, QString());
}

bool SoundBank::validate() const
{
    if (mFileName.isEmpty()) {
        logger()->println(Logger::OUTPUT_WARNING, "No output file name specified for this soundbank");
        return false;
    }
    if (isEmpty()) {
        logger()->println(Logger::OUTPUT_WARNING, "soundbank contains no subsounds");
        return false;
    }
    return mProfile.validate();
}

bool SoundBank::isModified()
{
    return isDirty() || mProfile.isDirty();
}

bool SoundBank::save(const QString& path)
{
    return workspace()->saveSoundBank(this, path);
}

void SoundBank::unload()
{
    workspace()->deleteItem(this);
}

bool SoundBank::serialize(QXmlStreamWriter* writer) const
{
    if (!validate())
        return false;

    writer->writeStartElement("soundbank");
    writer->writeTextElement("file_name", outputFilePath());
    if (!mEncryptionKey.isEmpty())
        writer->writeTextElement("encryption_key", mEncryptionKey);
    mProfile.serialize(writer);
    writer->writeStartElement("content");
    if (!serializeChildren(writer))
        return false;
    writer->writeEndElement();
    writer->writeEndElement();

    const_cast<SoundBank*>(this)->makeClean();
    return true;
}

bool SoundBank::deserialize(XmlStreamIterator& xml)
{
    for (;;) {
        switch (++xml) {
        case XmlStreamIterator::XML_TEXT_ELEMENT:
            if (xml.name() == "file_name")
                setOutputFilePath(xml.text());
            else if (xml.name() == "encryption_key")
                mEncryptionKey = xml.text();
            break;
        case XmlStreamIterator::XML_BLOCK_START:
            if (xml.name() == "profile")
                (void)mProfile.deserialize(xml);
            else if (xml.name() == "content" && !deserializeContent(xml))
                return false;
            break;
        case XmlStreamIterator::XML_BLOCK_END:
            if (xml.name() != "soundbank")
                return unexpectedTag(xml);
            makeClean();
            return validate();
        default:
            return unexpectedTag(xml);
        }
    }
}

bool SoundBank::deserializeContent(XmlStreamIterator& xml)
{
    while (++xml != XmlStreamIterator::XML_BLOCK_END) {
        Subsound* subsound = newItem();
        if (!subsound->deserialize(xml))
            deleteItem(subsound);
    }
    return xml.name() == "content" || unexpectedTag(xml);
}

} // namespace TARNOK
