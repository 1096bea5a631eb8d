#include "workspace.hpp"

#include "logger.hpp"
#include "xml_stream_iterator.hpp"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTextStream>

#include <algorithm>

namespace TARNOK {

namespace {

constexpr int XML_INDENT = 4;

// What a document that is about to be replaced holds.
QByteArray formerContents(const QString& path)
{
    QFile file(path);
    return QFileInfo(path).isFile() && file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Tells of a document that couldn't be written to its end and puts back what was there before, for which there was
// room. The object has changes that are not on disk again.
void abandonDocument(const Serializable& object, const QString& path, const QString& fault, const QByteArray& former)
{
    logger()->println(Logger::OUTPUT_ERROR, "ERROR: Cannot write file %s:\n%s.", path.toUtf8().constData(),
                      fault.toUtf8().constData());
    const_cast<Serializable&>(object).makeDirty();

    QFile file(path);
    if (!QFileInfo(file).isFile())
        return;
    if (former.isEmpty())
        file.remove();
    else if (file.open(QIODevice::WriteOnly))
        file.write(former);
}

// Empty if there is none.
QString faultOf(const QFile& file)
{
    return file.error() == QFileDevice::NoError ? QString() : file.errorString();
}

// Writes one object as a document of its own; the file is removed again if the object refuses.
bool writeDocument(const Serializable& object, const QString& path, QIODevice::OpenMode mode)
{
    const QByteArray former = formerContents(path);
    QFile file(path);
    file.open(mode);
    Q_ASSERT(file.isOpen());

    QXmlStreamWriter writer(&file);
    writer.setAutoFormatting(true);
    writer.setAutoFormattingIndent(XML_INDENT);
    writer.writeStartDocument();
    const bool serialized = object.serialize(&writer);
    writer.writeEndDocument();

    // A write that ends early has no reason to give, the next one has; closing forgets it.
    if (!file.flush())
        file.flush();
    QString fault = faultOf(file);
    file.close();
    if (fault.isEmpty())
        fault = faultOf(file);
    if (fault.isEmpty() && (writer.hasError() || formerContents(path).contains('\r')))
        fault = "A file name or the key holds a character that can't be kept in it";
    if (!serialized) {
        file.remove();
        return false;
    }
    if (!fault.isEmpty())
        abandonDocument(object, path, fault, former);
    return fault.isEmpty();
}

// The largest float that an unsigned integer holds.
constexpr float QUALITY_LIMIT = 4294967040.0f;

// Of several quality options the first counts.
void applyQualityOption(const QStringList& fields, Subsound* subsound)
{
    static const QRegularExpression pattern(QRegularExpression::anchoredPattern("quality=(\\d+)"));
    for (const QString& field : fields) {
        const QRegularExpressionMatch match = pattern.match(field);
        if (match.hasMatch()) {
            subsound->setQuality(static_cast<unsigned int>(std::min(match.captured(1).toFloat(), QUALITY_LIMIT)));
            return;
        }
    }
}

} // namespace

Workspace::Workspace()
    : AbstractItemContainer<SoundBank>(nullptr, RTTI_WORKSPACE)
{
    // The items log when they are destroyed: the logger must be there first, to go last.
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

bool Workspace::loadFromXml(const QString& path, SoundBank* bank)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly | QIODevice::Text);
    if (!file.isOpen())
        return false;

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
    return writeDocument(*bank, path, QIODevice::WriteOnly | QIODevice::Text);
}

bool Workspace::saveProfile(const SoundProfile& profile, const QString& path)
{
    return writeDocument(profile, path, QIODevice::WriteOnly);
}

bool Workspace::loadProfile(SoundProfile* profile, const QString& path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly | QIODevice::Text);
    if (!file.isOpen()) {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: file not found '%s'", path.toUtf8().constData());
        Q_ASSERT(file.isOpen());
    }

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
    while (!line.isEmpty()) {
        const QStringList fields = line.split(',', Qt::SkipEmptyParts);
        QString sound = fields.at(0);
        if (QFileInfo(sound).isRelative())
            sound = QFileInfo(base + "/" + sound).canonicalFilePath();

        Subsound* subsound = bank->addSubsound(sound);
        if (!subsound) {
            logger()->println(Logger::OUTPUT_WARNING, "failed to load '%s'", fields.at(0).toUtf8().constData());
            continue;
        }

        applyQualityOption(fields, subsound);
        if (fields.contains("ksound_loop_off"))
            subsound->overrideBuildFlag(TARNOK_BUILD_DONTLOOP, true);
        line = stream.readLine();
    }
    return true;
}

} // namespace TARNOK
