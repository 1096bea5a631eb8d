// SPDX-License-Identifier: MIT
#include "list_check.hpp"

#include "list_line.hpp"
#include "sound_bank.hpp"
#include "sound_check.hpp"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <optional>

namespace tarnok_build {

namespace {

using TARNOK::ListLine;

constexpr const char* LOOP_OFF = "ksound_loop_off";
constexpr const char* ENDLESS = "; tarnokexcl would wait for it on this line and never end";

class ListCheck
{
public:
    ListCheck(const QString& path, Faults* faults)
        : mPath(path)
        , mFolder(QFileInfo(path).absolutePath())
        , mFaults(faults)
    { }

    void run()
    {
        QFile file(mPath);
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
            report(Severity::Fatal, "not-readable", file.errorString());
            return;
        }
        QTextStream stream(&file);
        QString line = stream.readLine();
        for (; !line.isEmpty(); line = stream.readLine()) {
            ++mLine;
            checkLine(line);
        }
        const qint64 sounds = mLine;
        checkRest(stream);
        mLine = 0;
        if (sounds == 0)
            report(Severity::Fatal, "no-sounds", "the list names no sound");
    }

private:
    void report(Severity severity, const char* code, const QString& text)
    {
        mFaults->add({mPath, mLine, severity, code, text});
    }

    // The line that has ended the list was read.
    void checkRest(QTextStream& stream)
    {
        int ignored = 0;
        while (!stream.atEnd())
            ignored += stream.readLine().trimmed().isEmpty() ? 0 : 1;
        ++mLine;
        if (ignored > 0)
            report(Severity::Error, "ends-early",
                   QString("the list ends at this empty line; lines after it that are not read: %1").arg(ignored));
    }

    void checkLine(const QString& line)
    {
        const QStringList fields = ListLine::split(line);
        if (fields.isEmpty()) {
            report(Severity::Error, "no-path", "a line of commas; tarnokexcl would end with a failed assertion");
            return;
        }
        checkPath(ListLine(line, mFolder));
        bool hasQuality = false;
        for (qsizetype i = 1; i < fields.size(); ++i)
            checkOption(fields.at(i), &hasQuality);
    }

    void checkPath(const ListLine& line)
    {
        const QString& written = line.fields.at(0);
        const QString whole = written.startsWith('/') ? written : mFolder + "/" + written;
        const std::optional<SoundFault> fault = soundFault(line.path.isEmpty() ? whole : line.path, written);
        if (!fault)
            return;
        if (written.contains(QChar::Null))
            report(Severity::Error, fault->code, fault->text + ENDLESS);
        else if (written.contains(QChar::ReplacementCharacter))
            report(Severity::Error, "not-utf8", QString("'%1' is not UTF-8%2").arg(written, ENDLESS));
        else if (written.trimmed().isEmpty())
            report(Severity::Error, "blanks",
                   QString("a line of blanks doesn't end the list; it is taken as a path%1").arg(ENDLESS));
        else if (isComment(written) && !QFileInfo::exists(whole))
            report(Severity::Error, "comment",
                   QString("'%1': a list has no comments; this is taken as a path%2").arg(written, ENDLESS));
        else if (line.fields.size() > 1 && QFileInfo::exists(whole + "," + line.fields.at(1)))
            report(Severity::Error, "comma",
                   QString("'%1': a path in a list can't contain a comma%2").arg(written, ENDLESS));
        else if (isOption(written))
            report(Severity::Error, "no-path",
                   QString("the path must come first; '%1' is taken as the path%2").arg(written, ENDLESS));
        else
            report(Severity::Error, fault->code, fault->text + (waits(*fault) ? ENDLESS : ""));
    }

    // Whether the import would take this for a sound that may still come. A file whose name alone is wrong is imported,
    // and its build fails.
    static bool waits(const SoundFault& fault)
    {
        return qstrcmp(fault.code, "no-suffix") != 0 && !fault.text.contains("; rename it");
    }

    static bool isComment(const QString& field)
    {
        const QString text = field.trimmed();
        return text.startsWith('#') || text.startsWith(';') || text.startsWith("//");
    }

    static bool isOption(const QString& field)
    {
        return field.startsWith("quality=", Qt::CaseInsensitive) || field.compare(LOOP_OFF, Qt::CaseInsensitive) == 0;
    }

    void checkOption(const QString& field, bool* hasQuality)
    {
        const ListLine parsed("x," + field, mFolder);
        if (parsed.loopOff)
            return;
        if (parsed.quality) {
            checkQuality(field, *parsed.quality, *hasQuality);
            *hasQuality = true;
            return;
        }
        QString text = QString("'%1' is no option and is ignored").arg(field);
        const ListLine trimmed("x," + field.trimmed().toLower(), mFolder);
        if (trimmed.loopOff || trimmed.quality)
            text += field.trimmed() != field ? "; write it without blanks" : "; write it in lowercase";
        else if (field.trimmed().startsWith("quality", Qt::CaseInsensitive))
            text += QString("; a quality is written quality=N, with N from 1 to %1").arg(TARNOK::MAX_QUALITY);
        else
            text += QString("; the options are quality=N and %1").arg(LOOP_OFF);
        report(Severity::Warning, "unknown-option", text);
    }

    void checkQuality(const QString& field, unsigned int quality, bool isRepeated)
    {
        if (isRepeated)
            report(Severity::Warning, "repeated-option", QString("'%1' is ignored: only the first counts").arg(field));
        else if (quality > static_cast<unsigned int>(TARNOK::MAX_QUALITY))
            report(Severity::Warning, "quality",
                   QString("'%1' is above %2, and counts as that").arg(field).arg(TARNOK::MAX_QUALITY));
        else if (quality == 0)
            report(Severity::Warning, "quality", QString("'%1' means the quality of the bank").arg(field));
    }

    QString mPath;
    QString mFolder;
    Faults* mFaults;
    qint64 mLine = 0;
};

} // namespace

void checkList(const QString& path, Faults* faults)
{
    ListCheck(path, faults).run();
}

} // namespace tarnok_build
