// SPDX-License-Identifier: MIT
#include "dependencies.hpp"

#include "replacement.hpp"
#include "utility_functions.hpp"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

namespace tarnok_build {

namespace {

using namespace TARNOK;
using nlohmann::ordered_json;

constexpr int FLAG_BITS = 32;

ordered_json asJson(const QStringList& texts)
{
    ordered_json array = ordered_json::array();
    for (const QString& text : texts)
        array.push_back(text.toStdString());
    return array;
}

QString absolute(const QString& path)
{
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}

// The words of the set flags that have one.
ordered_json flagWords(unsigned int flags)
{
    ordered_json words = ordered_json::array();
    for (int bit = 0; bit < FLAG_BITS; ++bit) {
        const unsigned int flag = flags & (1u << bit);
        if (flag == TARNOK_BUILD_NOGUID)
            words.push_back("no_guid");
        else if (flag != 0)
            words.push_back(buildFlagToString(flag));
    }
    return words;
}

QStringList filesOf(const Subsound* subsound)
{
    QStringList files;
    for (const SourceFile* file : *subsound)
        files += absolute(file->wholePath());
    return files;
}

ordered_json asJson(const Subsound* subsound, qsizetype index)
{
    ordered_json json = {{"index", index}, {"name", subsound->fileName().toStdString()}};
    json["files"] = asJson(filesOf(subsound));
    if (subsound->quality() > 0)
        json["quality"] = subsound->quality();
    if (const unsigned int mask = subsound->buildFlagOverridesMask(); mask != 0) {
        json["flagsOn"] = flagWords(mask & subsound->buildFlags());
        json["flagsOff"] = flagWords(mask & ~subsound->buildFlags());
    }
    return json;
}

// Make has no way to write a line feed.
QString escaped(const QString& path)
{
    QString text;
    for (const QChar c : path) {
        if (c == ' ' || c == '#') {
            // A backslash before an escaped character is doubled.
            for (auto at = text.size(); at > 0 && text.at(at - 1) == '\\'; --at)
                text += '\\';
            text += '\\';
        } else if (c == '$') {
            text += '$';
        }
        text += c;
    }
    return text;
}

} // namespace

QStringList dependencies(const BankSource& source, const SoundBank* bank)
{
    QStringList all = source.documents();
    for (const Subsound* subsound : *bank)
        all += filesOf(subsound);
    all += source.folders();
    all.removeIf([](const QString& path) { return path.contains('\n') || !QFileInfo::exists(path); });
    all.removeDuplicates();
    return all;
}

ordered_json dependenciesAsJson(const BankSource& source, const SoundBank* bank)
{
    const SoundProfile& profile = bank->profile();
    ordered_json inputs = ordered_json::array();
    for (const Input& input : source.inputs())
        inputs.push_back({{"path", input.path.toStdString()}, {"kind", wordOf(input.kind)}});
    ordered_json sounds = ordered_json::array();
    for (qsizetype index = 0; index < bank->size(); ++index)
        sounds.push_back(asJson(bank->at(index), index));

    ordered_json json = {{"tool", "tarnok-build"}, {"version", TARNOK_BUILD_VERSION}};
    if (!bank->outputFilePath().isEmpty())
        json["bank"] = absolute(bank->outputFilePath()).toStdString();
    json["format"] = formatToString(profile.format());
    if (getFormatType(profile.format()) == FORMAT_TYPE_QUALITY)
        json["quality"] = profile.quality();
    json["flags"] = flagWords(profile.buildFlags());
    json["encrypted"] = !bank->encryptionKey().isEmpty();
    json["inputs"] = inputs;
    json["dependencies"] = asJson(dependencies(source, bank));
    json["sounds"] = sounds;
    return json;
}

QString dependencyRule(const QString& target, const QStringList& dependencies)
{
    QString rule = escaped(target) + ":";
    for (const QString& path : dependencies)
        rule += " \\\n  " + escaped(path);
    rule += "\n";
    for (const QString& path : dependencies)
        rule += "\n" + escaped(path) + ":\n";
    return rule;
}

QString writeDependencyFile(const QString& path, const QString& target, const QStringList& dependencies)
{
    if (isAmong(path, dependencies) || isAmong(path, {target}))
        return QString("'%1' is not replaced by a dependency file: it belongs to the build of the bank").arg(path);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(dependencyRule(target, dependencies).toUtf8()) >= 0
        && file.commit())
        return QString();
    return QString("'%1' can't be written: %2").arg(path, file.errorString());
}

} // namespace tarnok_build
