// SPDX-License-Identifier: MIT
#include "dependencies.hpp"

#include "atomic_file.hpp"
#include "replacement.hpp"
#include "utility_functions.hpp"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <utility>

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

// Make has no way to write a line feed, and none to write '%' that Ninja reads too. Ninja doesn't read ';' and '|' in
// any form; make would take what follows them for a command or for dependencies of another kind.
QString escaped(const QString& path)
{
    static constexpr QLatin1StringView WITH_BACKSLASH(" #:|");
    QString text;
    for (const QChar c : path) {
        if (WITH_BACKSLASH.contains(c)) {
            // A backslash before an escaped character is doubled.
            for (auto at = text.size(); at > 0 && text.at(at - 1) == '\\'; --at)
                text += '\\';
            text += '\\';
        } else if (c == '$') {
            text += '$';
        } else if (c == ';') {
            text += R"(\\\)"; // make looks for it twice, and removes backslashes each time
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
    // Make takes a rule for the assignment of a variable if its first dependency contains '='.
    QStringList ordered = dependencies;
    std::stable_partition(ordered.begin(), ordered.end(), [](const QString& path) { return !path.contains('='); });
    QString rule = escaped(target) + ":";
    for (const QString& path : std::as_const(ordered))
        rule += " \\\n  " + escaped(path);
    rule += "\n";
    for (const QString& path : dependencies)
        rule += "\n" + escaped(path) + ":\n";
    return rule;
}

QString writeDependencyFile(const QString& path, const QString& target, const QStringList& dependencies,
                            const QStringList& outputs)
{
    if (isAmong(path, dependencies) || isAmong(path, outputs) || isAmong(path, {target}))
        return QString("'%1' is not replaced by a dependency file: it belongs to the build of the bank").arg(path);
    if (target.contains('\n'))
        return QString("the target '%1' can't be written to a dependency file: it contains a line feed").arg(target);
    QDir().mkpath(QFileInfo(path).absolutePath());
    AtomicFile file(path);
    if (file.isOpen() && file.write(dependencyRule(target, dependencies).toUtf8(), false))
        return QString();
    return QString("'%1' can't be written: %2").arg(path, file.errorString());
}

} // namespace tarnok_build
