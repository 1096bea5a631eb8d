// SPDX-License-Identifier: MIT
#include "replacement.hpp"

#include "sound_bank.hpp"
#include "utility_classes.hpp"
#include "workspace.hpp"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

#include <sys/stat.h>

namespace TARNOK {

bool isSameFile(const QString& left, const QString& right)
{
    struct stat one;
    struct stat other;
    return stat(QFile::encodeName(left).constData(), &one) == 0
        && stat(QFile::encodeName(right).constData(), &other) == 0 && one.st_dev == other.st_dev
        && one.st_ino == other.st_ino;
}

bool isAmong(const QString& path, const QStringList& files)
{
    return std::any_of(files.begin(), files.end(), [&path](const QString& file) { return isSameFile(file, path); });
}

QString replacementFault(const SoundBank* bank, const QStringList& inputs)
{
    const QString path = bank->outputFilePath();
    if (!QFileInfo(path).isFile())
        return QString();
    // The library refuses to overwrite the bank's own sources.
    for (const Subsound* subsound : *bank) {
        for (const SourceFile* file : *subsound) {
            if (isSameFile(file->wholePath(), path))
                return QString();
        }
    }
    if (isAmong(path, inputs))
        return "it is what this run is built from";
    const QString root = Workspace::rootOf(path);
    if (root == "soundbank" || root == "profile")
        return root == "profile" ? "it is a profile" : "it is a project";
    return Singleton<SoundFileValidator>::instance()->isSound(path) ? "it is a sound" : QString();
}

} // namespace TARNOK
