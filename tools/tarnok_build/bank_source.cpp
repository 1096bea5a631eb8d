// SPDX-License-Identifier: MIT
#include "bank_source.hpp"

#include "../key_file.hpp"
#include "list_check.hpp"
#include "project_check.hpp"
#include "sound_check.hpp"

#include "command_line.hpp"
#include "console_remarks.hpp"
#include "list_line.hpp"
#include "utility_classes.hpp"
#include "workspace.hpp"

#include <QByteArrayView>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <algorithm>
#include <utility>

namespace tarnok_build {

namespace {

using namespace TARNOK;

constexpr const char* NO_SOUNDS = "the inputs have no sound that can be built";

SoundFileValidator* validator()
{
    return Singleton<SoundFileValidator>::instance();
}

QString absolute(const QString& path)
{
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}

InputKind kindOf(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (QFileInfo(path).isDir())
        return InputKind::Folder;
    if (suffix == "lst" || suffix == "txt")
        return InputKind::List;
    if (suffix == "tnproj" || suffix == "prof")
        return suffix == "prof" ? InputKind::Profile : InputKind::Project;
    const QString root = Workspace::rootOf(path);
    if (root == "soundbank" || root == "profile")
        return root == "profile" ? InputKind::Profile : InputKind::Project;
    return InputKind::Sound;
}

// Collects remarks during its lifetime instead of passing them on.
class RemarkCollector
{
public:
    RemarkCollector()
    {
        remarks()->sendTo([this](const QString& text) { mTexts += text; });
    }
    ~RemarkCollector()
    {
        remarks()->sendTo([](const QString&) {});
    }
    RemarkCollector(const RemarkCollector&) = delete;
    RemarkCollector& operator=(const RemarkCollector&) = delete;

    const QStringList& texts() const { return mTexts; }

private:
    QStringList mTexts;
};

QStringList foldersBelow(const QString& path, bool recursive)
{
    QStringList folders(path);
    QDirIterator below(path, QDir::Dirs | QDir::NoDotAndDotDot,
                       QDirIterator::Subdirectories | QDirIterator::FollowSymlinks);
    while (recursive && below.hasNext())
        folders += below.next();
    folders.sort();
    return folders;
}

} // namespace

const char* wordOf(InputKind kind)
{
    static constexpr const char* WORDS[] = {"project", "profile", "list", "folder", "sound"};
    return WORDS[static_cast<int>(kind)];
}

BankSource::BankSource(SourceRequest request)
    : mRequest(std::move(request))
{
    validator()->setAllowTnbFiles(mRequest.allowTnb);
    if (mRequest.recursive)
        Singleton<CommandLine>::instance()->setRecursive();
}

void BankSource::check(Faults* faults)
{
    for (const QString& path : std::as_const(mRequest.inputs))
        addInput(path, faults);
    if (!mRequest.inputList.isEmpty())
        readInputList(faults);
    checkCombination(faults);
}

void BankSource::readInputList(Faults* faults)
{
    QFile file(mRequest.inputList);
    if (!file.open(QIODevice::ReadOnly)) {
        faults->add({mRequest.inputList, 0, Severity::Fatal, "not-readable", file.errorString()});
        return;
    }
    for (qint64 line = 1; !file.atEnd(); ++line) {
        const QByteArray name = file.readLine();
        const QString path = QString::fromUtf8(name.endsWith('\n') ? name.chopped(1) : name);
        if (!name.isValidUtf8())
            faults->add(
                {mRequest.inputList, line, Severity::Fatal, "not-utf8", QString("'%1' is not UTF-8").arg(path)});
        else if (!path.isEmpty())
            addInput(path, faults);
    }
}

void BankSource::addInput(const QString& path, Faults* faults)
{
    const QFileInfo info(path);
    Input input{absolute(path), kindOf(path), {}, {}};
    if (!path.isEmpty() && (info.isFile() || info.isDir()))
        checkInput(&input, faults);
    else if (const std::optional<SoundFault> fault = soundFault(path, path))
        faults->add({path, 0, Severity::Fatal, fault->code, fault->text});
    mInputs.append(input);
}

void BankSource::checkInput(Input* input, Faults* faults)
{
    switch (input->kind) {
    case InputKind::Project:
        checkProject(input->path, faults);
        break;
    case InputKind::Profile:
        checkProfile(input->path, faults);
        break;
    case InputKind::List:
        checkList(input->path, faults);
        break;
    case InputKind::Folder:
        listFolder(input, faults);
        break;
    case InputKind::Sound:
        if (const std::optional<SoundFault> fault = soundFault(input->path, QFileInfo(input->path).fileName()))
            faults->add({input->path, 0, Severity::Error, fault->code, fault->text});
        break;
    }
}

// Other files in a folder are no faults unless their names say that they are sounds.
void BankSource::listFolder(Input* folder, Faults* faults)
{
    folder->folders = foldersBelow(folder->path, mRequest.recursive);
    QStringList files;
    {
        const RemarkCollector unlisted;
        Singleton<CommandLine>::instance()->getFileListFromPath({folder->path}, &files, QString());
        for (const QString& text : unlisted.texts())
            faults->add({folder->path, 0, Severity::Error, "not-listed", text});
    }
    if (mRequest.sorted)
        files.sort();
    for (const QString& file : std::as_const(files)) {
        const std::optional<SoundFault> fault = soundFault(file, QFileInfo(file).fileName());
        if (!fault)
            folder->sounds += file;
        else if (qstrcmp(fault->code, "not-a-sound") != 0 || validator()->hasSoundExtension(file))
            faults->add({file, 0, Severity::Error, fault->code, fault->text});
    }
}

void BankSource::checkCombination(Faults* faults) const
{
    const auto count = [this](InputKind kind) {
        return std::count_if(mInputs.begin(), mInputs.end(), [kind](const Input& input) { return input.kind == kind; });
    };
    if (count(InputKind::Project) > 1)
        faults->add({mInputs.last().path, 0, Severity::Fatal, "several-projects",
                     "a bank is made from one project; others can't be added to it"});
    if (mRequest.interleaved && count(InputKind::Project) + count(InputKind::List) > 0)
        faults->add({mInputs.last().path, 0, Severity::Fatal, "interleaved",
                     "only folders and sound files can be interleaved"});
    const bool isWithoutSound = std::all_of(mInputs.begin(), mInputs.end(), [](const Input& input) {
        return input.kind == InputKind::Profile || (input.kind == InputKind::Folder && input.sounds.isEmpty());
    });
    if (isWithoutSound && !mInputs.isEmpty() && faults->isEmpty())
        faults->add({mInputs.first().path, 0, Severity::Fatal, "no-sounds", NO_SOUNDS});
}

bool BankSource::isUsable(const Faults& faults) const
{
    return !faults.has(mRequest.ignoreErrors ? Severity::Fatal : Severity::Error);
}

SoundBank* BankSource::load(Faults* faults)
{
    const RemarkCollector known; // the check has found everything
    SoundBank* bank = workspace()->createSoundBank();
    if (mRequest.interleaved)
        bank->newItem();
    for (const Input& input : std::as_const(mInputs)) {
        if (input.kind == InputKind::Project)
            loadProject(input, bank);
        else if (input.kind == InputKind::List)
            loadList(input, bank);
        else if (input.kind != InputKind::Profile)
            loadSounds(input.kind == InputKind::Sound ? QStringList(input.path) : input.sounds, bank);
    }
    if (!applySettings(bank, faults))
        return nullptr;
    if (!mLost.isEmpty() && !mRequest.ignoreErrors) {
        faults->add({mLost.first(), 0, Severity::Fatal, "changed", "it was changed after it had been checked"});
        return nullptr;
    }
    if (!bank->isEmpty() && !bank->first()->isEmpty())
        return bank;
    faults->add({mInputs.isEmpty() ? QString() : mInputs.first().path, 0, Severity::Fatal, "no-sounds", NO_SOUNDS});
    return nullptr;
}

void BankSource::loadProject(const Input& input, SoundBank* bank)
{
    const int missing = remarks()->missingSounds();
    SoundBank* project = workspace()->loadSoundBank(input.path);
    if (!project || remarks()->missingSounds() > missing)
        mLost += input.path;
    if (!project)
        return;
    while (!project->isEmpty())
        project->first()->reparent(bank, static_cast<int>(bank->size()));
    bank->profile().clone(project->profile());
    bank->setEncryptionKey(project->encryptionKey());
    mProjectOutput = project->outputFilePath();
    project->unload();
}

// Unlike the import of the authoring system, this doesn't wait for a sound that is missing.
void BankSource::loadList(const Input& input, SoundBank* bank)
{
    QFile file(input.path);
    file.open(QIODevice::ReadOnly | QIODevice::Text);
    QTextStream stream(&file);
    const QString folder = QFileInfo(input.path).absolutePath();
    for (QString text = stream.readLine(); !text.isEmpty(); text = stream.readLine()) {
        if (ListLine::split(text).isEmpty())
            continue;
        const ListLine line(text, folder);
        if (Subsound* subsound = bank->addSubsound(line.path))
            line.applyTo(subsound);
        else
            mLost += input.path;
    }
}

void BankSource::loadSounds(const QStringList& files, SoundBank* bank)
{
    for (const QString& file : files) {
        const bool isLoaded = mRequest.interleaved ? bank->first()->addFile(file) : bank->addSubsound(file) != nullptr;
        if (!isLoaded)
            mLost += file;
    }
}

bool BankSource::applySettings(SoundBank* bank, Faults* faults) const
{
    for (const Input& input : mInputs) {
        if (input.kind == InputKind::Profile)
            workspace()->loadProfile(&bank->profile(), input.path);
    }
    if (mRequest.format)
        bank->profile().setFormat(*mRequest.format);
    if (mRequest.quality)
        bank->profile().setQuality(*mRequest.quality);
    bank->profile().setBuildFlags(bank->profile().buildFlags() | mRequest.flags);
    if (mRequest.keyFile.isEmpty())
        return true;

    std::string key;
    std::string fault = readKeyFile(mRequest.keyFile.toStdString(), &key);
    if (fault.empty() && !QByteArrayView(key).isValidUtf8())
        fault = "the key is not UTF-8";
    if (!fault.empty())
        faults->add({mRequest.keyFile, 0, Severity::Fatal, "key", QString::fromStdString(fault)});
    bank->setEncryptionKey(QString::fromStdString(key));
    return fault.empty();
}

QStringList BankSource::documents() const
{
    QStringList documents;
    for (const Input& input : mInputs) {
        if (input.kind != InputKind::Folder && input.kind != InputKind::Sound)
            documents += input.path;
    }
    for (const QString& file : {mRequest.inputList, mRequest.keyFile}) {
        if (!file.isEmpty() && file != "-")
            documents += absolute(file);
    }
    return documents;
}

QStringList BankSource::folders() const
{
    QStringList folders;
    for (const Input& input : mInputs)
        folders += input.folders;
    return folders;
}

} // namespace tarnok_build
