// SPDX-License-Identifier: MIT
#include "sound_check.hpp"

#include "sound_bank.hpp"
#include "utility_classes.hpp"
#include "workspace.hpp"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace tarnok_build {

namespace {

using TARNOK::Singleton;
using TARNOK::SoundFileValidator;

// The path from which the build reads a file: its suffix is in lowercase, and there is always a dot before it.
QString builtPath(const QString& path)
{
    TARNOK::SourceFile file(TARNOK::workspace());
    file.setFile(QFile(path), 0, 0, 0, KESS_SOUND_FORMAT_NONE);
    return file.wholePath();
}

// A file that doesn't exist, and what was probably meant.
SoundFault missing(const QString& path, const QString& shown)
{
    const QString text = QString("'%1': no such file").arg(shown);
    if (const QString other = inOtherCase(path); !other.isEmpty()) {
        const QFileInfo there(other);
        if (there.suffix() != there.suffix().toLower() && there.suffix().toLower() == QFileInfo(path).suffix())
            return {"other-case", text + QString("; %1 is there: suffixes must be lowercase").arg(there.fileName())};
        const bool isBeside = QFileInfo(path).dir().exists();
        return {"other-case", text + QString("; %1 is there").arg(isBeside ? there.fileName() : other)};
    }
    if (shown.trimmed() != shown && QFileInfo::exists(path.trimmed()))
        return {"blanks", text + "; without the blanks at its ends, it is there"};
    return {"not-found", text};
}

bool isBank(const QString& path)
{
    auto* validator = Singleton<SoundFileValidator>::instance();
    if (validator->allowTnbFiles())
        return false;
    validator->setAllowTnbFiles(true);
    const bool isValid = validator->isValid(path, nullptr, nullptr, nullptr, nullptr);
    validator->setAllowTnbFiles(false);
    return isValid;
}

} // namespace

QString inOtherCase(const QString& path)
{
    QString found = path.startsWith('/') ? "/" : "";
    bool differs = false;
    for (const QString& part : path.split('/', Qt::SkipEmptyParts)) {
        const QDir folder(found.isEmpty() ? "." : found);
        QString name = part;
        if (part != "." && part != ".." && !QFileInfo::exists(folder.filePath(part))) {
            const QStringList names =
                folder.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
            const auto other = std::find_if(names.begin(), names.end(), [&part](const QString& candidate) {
                return candidate.compare(part, Qt::CaseInsensitive) == 0;
            });
            if (other == names.end())
                return QString();
            name = *other;
            differs = true;
        }
        found += (found.isEmpty() || found.endsWith('/') ? "" : "/") + name;
    }
    return differs ? found : QString();
}

std::optional<SoundFault> soundFault(const QString& path, const QString& shown)
{
    if (path.contains(QChar::Null)) // no file's name; asked about it, Qt prints a warning
        return SoundFault{"not-found", QString("'%1': no such file").arg(shown)};
    if (!QFileInfo::exists(path))
        return missing(path, shown);
    auto* validator = Singleton<SoundFileValidator>::instance();
    if (!validator->isValid(path, nullptr, nullptr, nullptr, nullptr)) {
        const QString reason = validator->fault();
        return SoundFault{
            "not-a-sound",
            QString("'%1': %2").arg(shown, isBank(path) ? "a bank, which only --allow-tnb takes" : reason)};
    }
    const QString built = builtPath(path);
    if (QFileInfo::exists(built))
        return std::nullopt;
    if (QFileInfo(path).suffix().isEmpty())
        return SoundFault{"no-suffix", QString("'%1': the name of a sound needs a suffix, such as .wav").arg(shown)};
    return SoundFault{
        "other-case",
        QString("'%1': suffixes must be lowercase; rename it to %2").arg(shown, QFileInfo(built).fileName())};
}

} // namespace tarnok_build
