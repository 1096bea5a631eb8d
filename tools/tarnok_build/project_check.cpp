// SPDX-License-Identifier: MIT
#include "project_check.hpp"

#include "sound_bank.hpp"
#include "sound_check.hpp"
#include "utility_functions.hpp"
#include "xml_tree.hpp"

#include <QDir>
#include <QFileInfo>

#include <optional>

namespace tarnok_build {

namespace {

using Kind = XmlElement::Kind;

class DocumentCheck
{
public:
    DocumentCheck(const QString& path, Faults* faults)
        : mPath(path)
        , mFaults(faults)
    { }

    void run(const char* rootName)
    {
        const XmlDocument document = readXml(mPath);
        const XmlElement& root = document.root;
        if (!document.fault.isEmpty()) {
            mFaults->add({mPath, document.faultLine, Severity::Fatal, "xml", document.fault});
            return;
        }
        if (root.name != QLatin1StringView(rootName) || root.kind != Kind::Block) {
            report(root, "unexpected-element", QString("expected a block '%1'").arg(rootName));
            return;
        }
        if (root.name == QLatin1StringView("profile"))
            checkProfile(root);
        else
            checkBank(root);
    }

private:
    void report(const XmlElement& at, const char* code, const QString& text, Severity severity = Severity::Fatal)
    {
        mFaults->add({mPath, at.line, severity, code, text});
    }

    void reportUnexpected(const XmlElement& element, const XmlElement& parent)
    {
        static constexpr const char* KINDS[] = {"empty element", "text element", "block"};
        report(element, "unexpected-element",
               QString("unexpected %1 '%2' in '%3'")
                   .arg(KINDS[static_cast<int>(element.kind)], element.name, parent.name));
    }

    void reportIgnored(const XmlElement& element)
    {
        report(element, "ignored-element", QString("'%1' is unknown and is ignored").arg(element.name),
               Severity::Warning);
    }

    void checkBank(const XmlElement& bank)
    {
        bool hasName = false;
        for (const XmlElement& child : bank.children) {
            if (child.kind == Kind::Text && child.name == "file_name")
                hasName = true;
            else if (child.kind == Kind::Text && child.name != "encryption_key")
                reportIgnored(child);
            else if (child.kind == Kind::Block && child.name == "profile")
                checkProfile(child);
            else if (child.kind == Kind::Block && child.name == "content")
                checkContent(child);
            else if (child.kind != Kind::Text)
                reportUnexpected(child, bank);
        }
        if (!hasName)
            report(bank, "missing-element", "the bank has no 'file_name'");
        if (!mHasSound)
            report(bank, "no-sounds", "the bank has no sound that can be used");
    }

    void checkProfile(const XmlElement& profile)
    {
        for (const XmlElement& child : profile.children) {
            if (child.kind == Kind::Text && child.name == "format")
                checkFormat(child);
            else if (child.kind == Kind::Text && child.name == "quality")
                checkQuality(child);
            else if (child.kind == Kind::Text)
                reportIgnored(child);
            else if (child.kind == Kind::Block && child.name == "flags")
                checkFlags(child, false);
            else
                reportUnexpected(child, profile);
        }
    }

    void checkFormat(const XmlElement& element)
    {
        bool ok = false;
        TARNOK::stringToFormat(element.text, &ok);
        if (!ok)
            report(element, "unknown-word", QString("unknown format '%1'").arg(element.text));
    }

    void checkQuality(const XmlElement& element)
    {
        bool ok = false;
        const int quality = element.text.toInt(&ok);
        if (!ok)
            report(element, "quality", QString("quality '%1' is no number, and counts as 0").arg(element.text),
                   Severity::Warning);
        else if (quality < TARNOK::MIN_QUALITY || quality > TARNOK::MAX_QUALITY)
            report(element, "quality",
                   QString("quality %1 is outside %2 to %3")
                       .arg(quality)
                       .arg(TARNOK::MIN_QUALITY)
                       .arg(TARNOK::MAX_QUALITY));
    }

    // A block of words of flags. A text element counts as the word that is its text.
    void checkFlags(const XmlElement& flags, bool ofSound)
    {
        for (const XmlElement& child : flags.children) {
            const QString word = child.kind == Kind::Text ? child.text : child.name;
            const unsigned int flag = TARNOK::findBuildFlag(word);
            if (child.kind == Kind::Block || (ofSound && flags.name == "add" && child.kind == Kind::Text))
                reportUnexpected(child, flags);
            else if (flag == 0)
                report(child, "unknown-word", QString("unknown flag '%1'").arg(word));
            else if (ofSound && (flag & TARNOK_BUILD_OVERRIDE_MASK) == 0)
                report(child, "unknown-word", QString("flag '%1' can't be set for a single sound").arg(word));
        }
    }

    void checkContent(const XmlElement& content)
    {
        for (const XmlElement& child : content.children) {
            if (child.kind == Kind::Block && child.name == "subsound")
                checkSound(child);
            else
                reportUnexpected(child, content);
        }
    }

    void checkSound(const XmlElement& sound)
    {
        for (const XmlElement& child : sound.children) {
            if (child.kind == Kind::Text && child.name == "file")
                checkFile(child);
            else if (child.kind == Kind::Block && child.name == "flags")
                checkOverrides(child);
            else
                reportUnexpected(child, sound);
        }
    }

    void checkOverrides(const XmlElement& flags)
    {
        for (const XmlElement& child : flags.children) {
            if (child.kind == Kind::Block && (child.name == "add" || child.name == "remove"))
                checkFlags(child, true);
            else
                reportUnexpected(child, flags);
        }
    }

    void checkFile(const XmlElement& element)
    {
        std::optional<SoundFault> fault = soundFault(element.text, element.text);
        if (!fault) {
            mHasSound = true;
            return;
        }
        const bool isRelative = QFileInfo(element.text).isRelative();
        if (isRelative && !QFileInfo::exists(element.text)
            && QFileInfo::exists(QFileInfo(mPath).absolutePath() + "/" + element.text))
            fault->text += QString("; relative paths are relative to the folder in which the program runs (%1), "
                                   "not to the project")
                               .arg(QDir::currentPath());
        report(element, fault->code, fault->text, Severity::Error);
    }

    QString mPath;
    Faults* mFaults;
    bool mHasSound = false;
};

} // namespace

void checkProject(const QString& path, Faults* faults)
{
    DocumentCheck(path, faults).run("soundbank");
}

void checkProfile(const QString& path, Faults* faults)
{
    DocumentCheck(path, faults).run("profile");
}

} // namespace tarnok_build
