// SPDX-License-Identifier: MIT
#include "workspace.hpp"

#include "atomic_file.hpp"
#include "console_remarks.hpp"
#include "list_line.hpp"
#include "logger.hpp"
#include "utility_classes.hpp"
#include "xml_stream_iterator.hpp"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <algorithm>

namespace TARNOK {

namespace {

constexpr int XML_INDENT = 4;

// XML has no other blanks.
bool isBlank(const QString& text)
{
    return std::all_of(text.begin(), text.end(), [](QChar c) { return QStringView(u" \t\n\r").contains(c); });
}

// Why a project of this bank could not be opened again; empty if it could. A reader skips blanks between tags, so that
// a key or a name of blanks would be lost.
QString contentFault(const SoundBank* bank)
{
    if (isBlank(bank->outputFilePath()))
        return "The name of the bank consists of blanks, and would be lost in it";
    if (!bank->encryptionKey().isEmpty() && isBlank(bank->encryptionKey()))
        return "The key consists of blanks, and would be lost in it";
    return QString();
}

// A document that is empty or ends early may fail an assertion, which doesn't name the file.
void remarkOnShortDocument(QFile& file)
{
    constexpr qint64 LONGEST_MARK = 4; // a byte order mark plus one byte
    const QByteArray content = file.peek(std::max(LONGEST_MARK, file.size()));
    if (content.isEmpty() || content == "\xef\xbb\xbf" || content == "\xfe\xff" || content == "\xff\xfe") {
        remarks()->add(QString("'%1' is empty").arg(file.fileName()));
        return;
    }
    QXmlStreamReader reader(content);
    while (!reader.atEnd())
        reader.readNext();
    if (!file.isSequential() && reader.error() == QXmlStreamReader::PrematureEndOfDocumentError)
        remarks()->add(QString("'%1' ends early, in line %2").arg(file.fileName()).arg(reader.lineNumber()));
}

// Writes one object as a document of its own. If the object refuses, the file is removed. An object with hasChanges is
// marked as modified again if writing fails.
bool writeDocument(const Serializable& object, bool hasChanges, const QString& path, bool isPrivate,
                   QString fault = QString())
{
    AtomicFile file(path);
    Q_ASSERT(file.isOpen());

    QByteArray content;
    QXmlStreamWriter writer(&content);
    writer.setAutoFormatting(true);
    writer.setAutoFormattingIndent(XML_INDENT);
    writer.writeStartDocument();
    const bool serialized = object.serialize(&writer);
    writer.writeEndDocument();
    if (!serialized) {
        QFile::remove(path);
        return false;
    }

    if (fault.isEmpty() && (writer.hasError() || content.contains('\r')))
        fault = "A file name or the key holds a character that can't be kept in it";
    if (fault.isEmpty() && !file.write(content, isPrivate))
        fault = file.errorString();
    if (fault.isEmpty())
        return true;
    logger()->println(Logger::OUTPUT_ERROR, "ERROR: Cannot write file %s:\n%s.", path.toUtf8().constData(),
                      fault.toUtf8().constData());
    if (hasChanges)
        const_cast<Serializable&>(object).makeDirty();
    return false;
}

} // namespace

Workspace::Workspace()
    : AbstractItemContainer<SoundBank>(nullptr, RTTI_WORKSPACE)
{
    // The items log when they are destroyed. The logger must be created first, so that it is destroyed last.
    logger();
}

SoundBank* Workspace::createSoundBank()
{
    return newItem();
}

SoundBank* Workspace::loadSoundBank(const QString& path)
{
    SoundBank* bank = createSoundBank();
    const bool isList = path.endsWith(".lst", Qt::CaseInsensitive) || path.endsWith(".txt", Qt::CaseInsensitive);
    if (isList ? loadFromList(path, bank) : loadFromXml(path, bank))
        return bank;
    deleteItem(bank);
    return nullptr;
}

QString Workspace::rootOf(const QString& path)
{
    // Opening a pipe would block until it has a writer.
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return QString();
    QXmlStreamReader reader(&file);
    reader.setNamespaceProcessing(false);
    return reader.readNextStartElement() ? reader.name().toString() : QString();
}

bool Workspace::loadFromXml(const QString& path, SoundBank* bank)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly | QIODevice::Text);
    if (!file.isOpen())
        return false;

    remarkOnShortDocument(file);
    QXmlStreamReader reader(&file);
    reader.setNamespaceProcessing(false);
    XmlStreamIterator xml(&reader);
    if (++xml != XmlStreamIterator::XML_BLOCK_START || xml.name() != "soundbank") {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: [XML] near line %u, expected beginning 'Soundbank' block",
                          xml.lineNumber());
        return false;
    }
    if (!bank->deserialize(xml))
        return false;
    if (xml.name() != "soundbank") {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: [XML] near line %u, expected end of 'Soundbank' block",
                          xml.lineNumber());
        return false;
    }
    return true;
}

bool Workspace::saveSoundBank(const SoundBank* bank, const QString& path)
{
    return writeDocument(*bank, true, path, !bank->encryptionKey().isEmpty(), contentFault(bank));
}

bool Workspace::saveProfile(const SoundProfile& profile, const QString& path)
{
    return writeDocument(profile, profile.isDirty(), path, false);
}

bool Workspace::loadProfile(SoundProfile* profile, const QString& path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly | QIODevice::Text);
    if (!file.isOpen()) {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: file not found '%s'", path.toUtf8().constData());
        remarks()->add(QString("the profile '%1' can't be opened: %2").arg(path, file.errorString()));
        Q_ASSERT(file.isOpen());
    }

    remarkOnShortDocument(file);
    QXmlStreamReader reader(&file);
    reader.setNamespaceProcessing(false);
    SoundProfile loaded;
    XmlStreamIterator xml(&reader);
    if (++xml != XmlStreamIterator::XML_BLOCK_START || xml.name() != "profile")
        return false;
    if (!loaded.deserialize(xml))
        return false;
    if (xml.name() != "profile")
        return false;

    Q_ASSERT(!isEmpty());
    profile->clone(loaded);
    return true;
}

bool Workspace::loadFromList(const QString& path, SoundBank* bank)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly | QIODevice::Text);
    if (!file.isOpen())
        return false;

    const QString base = QFileInfo(path).absolutePath();
    bank->setOutputFilePath(path.chopped(3) + "tnb");

    QTextStream stream(&file);
    QString line = stream.readLine();
    int number = 1;
    int waitingAt = 0; // the line that was reported
    while (!line.isEmpty()) {
        const ListLine parsed(line, base);
        Subsound* subsound = bank->addSubsound(parsed.path);
        if (!subsound) {
            const QString& written = parsed.fields.at(0);
            logger()->println(Logger::OUTPUT_WARNING, "failed to load '%s'", written.toUtf8().constData());
            if (waitingAt != number)
                remarks()->add(QString("%1:%2: '%3' can't be taken (%4); it is tried again until it can")
                                   .arg(path, QString::number(number), written,
                                        Singleton<SoundFileValidator>::instance()->fault()));
            waitingAt = number;
            continue;
        }

        parsed.applyTo(subsound);
        line = stream.readLine();
        ++number;
    }
    return true;
}

} // namespace TARNOK
