// SPDX-License-Identifier: MIT
#include "command_line.hpp"

#include "atomic_file.hpp"
#include "build_system.hpp"
#include "replacement.hpp"
#include "stop_signals.hpp"
#include "utility_classes.hpp"
#include "workspace.hpp"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QStringList>
#include <QThread>
#include <QXmlStreamReader>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace TARNOK {

namespace {

constexpr const char* PROJECT_EXTENSION = ".tnproj";
constexpr const char* BANK_EXTENSION = ".tnb";
constexpr int HELP_COLUMN = 20;
constexpr unsigned long POLL_MS = 20;

// Marks an unset field of an Arg. It is recognised by its address, because an argument may be empty after its prefix.
const char UNSET[] = "";

QByteArray blanks(int count)
{
    return QByteArray(count, ' ');
}

// The text in ASCII, other bytes as \xNN.
QByteArray escaped(const std::string& name)
{
    QByteArray shown;
    for (const char c : name)
        shown += c >= ' ' && c <= '~' ? QByteArray(1, c) : "\\x" + QByteArray(1, c).toHex();
    return shown;
}

SoundFileValidator* validator()
{
    return Singleton<SoundFileValidator>::instance();
}

// Names are UTF-8 in projects, lists and banks. Listings silently omit other names, dangling links and unreadable
// directories. This reports which files of a directory are omitted, and which of its directories if those are scanned
// too.
void warnOfUnlisted(const QString& directory, bool directoriesToo)
{
    std::error_code error;
    std::filesystem::directory_iterator entry(QFile::encodeName(directory).toStdString(), error);
    if (error)
        remarks()->addMissingSound(directory + "/", qt_error_string(error.value()));
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name[0] == '.')
            continue;
        std::error_code unknown;
        const bool isFolder = entry->is_directory(unknown);
        const bool isFile = entry->is_regular_file(unknown);
        const bool isUtf8 = QByteArrayView(name).isValidUtf8();
        const QString shown = directory + "/" + (isUtf8 ? QByteArray::fromStdString(name) : escaped(name));
        if (!isUtf8 && (isFile || (isFolder && directoriesToo)))
            logger()->println(Logger::OUTPUT_WARNING, "skipped: '%s' has a name that is not UTF-8",
                              shown.toUtf8().constData());
        const bool isSound = validator()->hasSoundExtension(shown) && !isFolder;
        if (!isUtf8 && ((isFile && isSound) || (isFolder && directoriesToo)))
            remarks()->addMissingSound(shown, "its name is not UTF-8");
        else if (isSound && entry->is_symlink(unknown) && !entry->exists(unknown))
            remarks()->addMissingSound(shown, "a link to nothing");
        else if (isSound && entry->is_other(unknown) && !directoriesToo)
            remarks()->addMissingSound(shown, "it is a device or pipe, not a file");
    }
}

void logArguments(const QList<QString>& sources, const QString& destination, const QList<CommandLine::Arg>& args)
{
    logger()->println(Logger::OUTPUT_DEBUG, "\nsource:");
    for (const QString& source : sources)
        logger()->println(Logger::OUTPUT_DEBUG, "  %s", source.toUtf8().constData());
    logger()->println(Logger::OUTPUT_DEBUG, "destination:\n  %s", destination.toUtf8().constData());
    logger()->println(Logger::OUTPUT_DEBUG, "args:");
    for (const CommandLine::Arg& arg : args)
        logger()->println(Logger::OUTPUT_DEBUG, "  %s %s", arg.name, arg.value);
    logger()->println(Logger::OUTPUT_DEBUG, "\n");
}

// Why a project was refused, which the log doesn't say.
QString projectFault(const QString& path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    QXmlStreamReader reader(&file);
    reader.setNamespaceProcessing(false);
    while (!reader.atEnd())
        reader.readNext();
    if (reader.hasError())
        return QString("a damaged project, line %1: %2").arg(reader.lineNumber()).arg(reader.errorString());
    return "a project that holds something unknown, or no sound that can be used";
}

// Reports where the output goes if that isn't the file that the argument names.
void remarkOnDestination(const QString& destination, const QString& path)
{
    if (QDir::cleanPath(destination) != QDir::cleanPath(path))
        remarks()->add(QString("the output goes to '%1', not to '%2'").arg(path, destination));
}

// The names of a directory's subdirectories, except for links back to a directory that is being scanned. Listings also
// count links to devices and pipes as directories.
QStringList subdirectories(const QDir& directory, const QStringList& walked)
{
    QStringList names = directory.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::NoSort);
    names.removeIf([&](const QString& name) {
        const QFileInfo entry(directory.filePath(name));
        return entry.exists() && (!entry.isDir() || walked.contains(entry.canonicalFilePath()));
    });
    return names;
}

} // namespace

AbstractAction::AbstractAction(const char* name, const char* help, bool hidden)
    : mNames{QString::fromUtf8(name)}
    , mHelp(help)
    , mHidden(hidden)
{ }

void AbstractAction::addAlias(const char* name)
{
    mNames.append(QString::fromUtf8(name));
}

void registerCommand(AbstractAction* action, bool prepopulate)
{
    Singleton<CommandLine>::instance()->registerAction(action, prepopulate);
}

bool convertToInt(const QString& text, int minimum, int maximum, int* result)
{
    bool ok = false;
    *result = text.toInt(&ok);
    if (!ok) {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: could not convert '%s' to int", text.toUtf8().constData());
        return false;
    }
    if (*result < minimum || *result > maximum) {
        logger()->println(Logger::OUTPUT_DEBUG, "%d is outside the bounds [%d, %d]", *result, minimum, maximum);
        *result = qBound(minimum, *result, maximum);
        logger()->println(Logger::OUTPUT_WARNING, "value changed to %d", *result);
    }
    return true;
}

bool stringToVerbosity(const QString& text, Logger::OUTPUTPRIORITY* priority)
{
    struct Word
    {
        const char* text;
        Logger::OUTPUTPRIORITY priority;
    };
    static constexpr Word WORDS[] = {
        {"debug", Logger::OUTPUT_DEBUG},     {"info", Logger::OUTPUT_INFO},   {"message", Logger::OUTPUT_MESSAGE},
        {"warning", Logger::OUTPUT_WARNING}, {"error", Logger::OUTPUT_ERROR}, {"silent", Logger::OUTPUT_SILENT},
    };
    for (const Word& word : WORDS) {
        if (text.compare(QLatin1String(word.text), Qt::CaseInsensitive) == 0) {
            *priority = word.priority;
            return true;
        }
    }
    logger()->println(Logger::OUTPUT_ERROR, "ERROR: unrecognised verbosity parameter '%s'", text.toUtf8().constData());
    return false;
}

AbstractAction* CommandLine::CommandActions::find(QString name) const
{
    if (name.startsWith('-'))
        name.remove(0, 1);
    for (AbstractAction* action : *this) {
        if (action->names().contains(name, Qt::CaseInsensitive))
            return action;
    }
    return nullptr;
}

void CommandLine::registerAction(AbstractAction* action, bool prepopulate)
{
    (prepopulate ? mPrepopulateActions : mPostpopulateActions).append(action);
}

bool CommandLine::init()
{
    logger()->gag();
    Singleton<SoundFileValidator>::instance()->setAllowTnbFiles(false);
    return true;
}

bool CommandLine::isPath(const char* argument)
{
    return argument[0] != '\0' && std::strpbrk(argument + 1, "./\\") != nullptr;
}

bool CommandLine::parseArgs(int argc, char** argv, QList<QString>* sources, QString* destination, QList<Arg>* args)
{
    Arg current = {UNSET, UNSET};
    bool seenSource = false;
    bool ok = true;

    for (int i = 1; i < argc; ++i) {
        const char* argument = argv[i];
        if (isPath(argument)) {
            if (current.name[0] == 'o') {
                if (!destination->isEmpty()) {
                    logger()->println(Logger::OUTPUT_ERROR, "ERROR: Destination specified twice");
                    ok = false;
                }
                *destination = QString::fromUtf8(argument);
                current.name = UNSET;
                continue;
            }
            if (!seenSource) {
                sources->append(QFileInfo(QString::fromUtf8(argument)).absoluteFilePath());
                seenSource = true;
                continue;
            }
        }

        if (argument[0] == '-' || argument[0] == '/') {
            if (current.name != UNSET) {
                args->append(current);
                current.value = UNSET;
            }
            current.name = argument + 1;
        } else if (current.name == UNSET) {
            logger()->println(Logger::OUTPUT_ERROR, "ERROR: Couldn't parse '%s', is it missing a '-'?", argument);
            ok = false;
        } else if (current.value == UNSET) {
            current.value = argument;
        } else {
            logger()->println(Logger::OUTPUT_ERROR,
                              "ERROR: detected two consecutive args without a '-' ('%s' and '%s')", argv[i - 1],
                              argument);
            ok = false;
        }
    }
    if (current.name != UNSET)
        args->append(current);
    logArguments(*sources, *destination, *args);
    return ok;
}

bool CommandLine::processPrepopulateArgs(QList<Arg>* args)
{
    bool ok = true;
    for (auto arg = args->begin(); arg != args->end();) {
        const AbstractAction* action = mPrepopulateActions.find(QString::fromUtf8(arg->name));
        if (!action) {
            ++arg;
            continue;
        }
        logger()->println(Logger::OUTPUT_DEBUG, "processing: -%s %s", arg->name, arg->value);
        if (!action->execute(nullptr, QString::fromUtf8(arg->value))) {
            logger()->println(Logger::OUTPUT_ERROR, "ERROR: Unable to process arg '-%s' with value '%s'", arg->name,
                              arg->value);
            ok = false;
            if (!action->hidden())
                logger()->println(Logger::OUTPUT_INFO, "%s %s", action->name().toUtf8().constData(), action->help());
        }
        arg = args->erase(arg);
    }
    return ok;
}

bool CommandLine::validateArgs(const QList<QString>& sources, const QString& destination, const QList<Arg>&)
{
    bool ok = true;
    if (sources.isEmpty()) {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: source not specified");
        ok = false;
    }
    if (destination.isEmpty() && !mMultiple) {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: destination not specified");
        ok = false;
    }
    return ok;
}

bool CommandLine::populateTNB(const QList<QString>& sources, SoundBank** bank)
{
    logger()->println(Logger::OUTPUT_INFO, "\nGathering files...");
    QList<QString> files;
    getFileListFromPath(sources, &files, QString());

    // A pipe can be read only once, and may never end.
    const auto isPipe = [](const QFileInfo& source) {
        return !source.isFile() && !source.isDir();
    };
    if (sources.size() == 1 && !isPipe(QFileInfo(sources.first()))) {
        // Any single source is first tried as a project, even a sound file: failing to load it as one is no error and
        // isn't logged.
        const Logger::OUTPUTPRIORITY verbosity = logger()->verbosity();
        logger()->setVerbosity(Logger::OUTPUT_SILENT);
        SoundBank* loaded = workspace()->loadSoundBank(sources.first());
        logger()->setVerbosity(verbosity);
        if (loaded) {
            *bank = loaded;
            logger()->println(Logger::OUTPUT_MESSAGE, "Successfully loaded project %s",
                              sources.first().toUtf8().constData());
            return true;
        }
    }

    *bank = workspace()->createSoundBank();
    logger()->println(Logger::OUTPUT_INFO, "\nAnalysing files...");
    Subsound* interleaved = mInterleaved ? (*bank)->newItem() : nullptr;
    for (const QString& file : std::as_const(files)) {
        const bool added = interleaved ? interleaved->addFile(file) : (*bank)->addSubsound(file) != nullptr;
        if (added)
            continue;
        logger()->println(Logger::OUTPUT_INFO, "skipped: '%s' not a valid sound file", file.toUtf8().constData());
        if (validator()->hasSoundExtension(file) || sources.contains(file))
            remarks()->addMissingSound(
                file, Workspace::rootOf(file) == "soundbank" ? projectFault(file) : validator()->fault());
    }
    return interleaved ? !interleaved->isEmpty() : !(*bank)->isEmpty();
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is given
bool CommandLine::getFileListFromPath(const QList<QString>& paths, QList<QString>* files, QString relativePath)
{
    static int indentation = 0;
    static QStringList walked; // the path from the source to here, with links resolved
    ++indentation;
    for (const QString& entry : paths) {
        const QString fullPath = relativePath.isEmpty() ? entry : relativePath + "/" + entry;
        const QDir directory(fullPath);
        if (directory.exists()) {
            logger()->println(Logger::OUTPUT_DEBUG, "%s[%s]", blanks(indentation * 2).constData(),
                              entry.toUtf8().constData());
            for (const QString& name : directory.entryList(QDir::Files, QDir::NoSort)) {
                logger()->println(Logger::OUTPUT_DEBUG, "%s%s", blanks(indentation * 2 + 2).constData(),
                                  name.toUtf8().constData());
                files->append(fullPath + "/" + name);
            }
            warnOfUnlisted(fullPath, mRecursive);
            if (mRecursive) {
                walked.append(directory.canonicalPath());
                getFileListFromPath(subdirectories(directory, walked), files, fullPath);
                walked.removeLast();
            }
        } else if (directory.exists(entry)) {
            logger()->println(Logger::OUTPUT_DEBUG, "%s%s", blanks(indentation * 2).constData(),
                              entry.toUtf8().constData());
            files->append(entry);
        } else {
            logger()->println(Logger::OUTPUT_ERROR, "ERROR: Couldn't locate '%s'", fullPath.toUtf8().constData());
            if (directory.isRelative())
                logger()->println(Logger::OUTPUT_INFO, "[relative to '%s']",
                                  QDir::current().path().toUtf8().constData());
            --indentation;
            remarks()->add(QString("the source '%1' does not exist").arg(fullPath));
            Q_ASSERT(false);
        }
    }
    --indentation;
    return true;
}

bool CommandLine::processArgs(const QList<Arg>& args, SoundBank* bank)
{
    logger()->println(Logger::OUTPUT_INFO, "\nProcessing args...");
    if (!bank)
        return false;

    bool ok = true;
    for (const Arg& arg : args) {
        const AbstractAction* action = mPostpopulateActions.find(QString::fromUtf8(arg.name));
        if (!action) {
            logger()->println(Logger::OUTPUT_ERROR, "ERROR: Unknown arg '-%s'", arg.name);
            ok = false;
            continue;
        }
        logger()->println(Logger::OUTPUT_DEBUG, "processing: -%s %s", arg.name, arg.value);
        if (!action->execute(bank, QString::fromUtf8(arg.value))) {
            logger()->println(Logger::OUTPUT_ERROR, "ERROR: Unable to process arg '-%s' with value '%s'", arg.name,
                              arg.value);
            for (const QString& name : action->names())
                logger()->println(Logger::OUTPUT_INFO, "%s ", name.toUtf8().constData());
            logger()->println(Logger::OUTPUT_INFO, "%s", action->help());
            ok = false;
        }
    }
    return ok;
}

bool CommandLine::buildBank(int argc, char** argv)
{
    init();

    QList<QString> sources;
    QString destination;
    QList<Arg> args;
    if (!parseArgs(argc, argv, &sources, &destination, &args))
        return fail("An error occurred while parsing args");
    const bool isPrepared = processPrepopulateArgs(&args);
    remarks()->release();
    if (!isPrepared && !mIgnoreErrors)
        return fail("An error occurred while processing args");
    if (!validateArgs(sources, destination, args) && !mIgnoreErrors)
        return fail("An error occured while validating input", "\ntype -help for a full list of options");

    mProtected.append(sources);
    SoundBank* bank = nullptr;
    if (!populateTNB(sources, &bank)) {
        remarks()->add(sources.isEmpty()
                           ? "no source was given"
                           : QString("the source '%1' has no sound that can be built").arg(sources.first()));
        if (!mIgnoreErrors)
            return fail("An error occurred while populating soundbank");
    }
    if (!processArgs(args, bank) && !mIgnoreErrors)
        return fail("An error occurred while processing args");
    logger()->ungag();

    if (bank->fileName().isEmpty() && !mMultiple)
        setDefaultOutputPath(bank, destination);
    if (mWriteProject) {
        writeProject(bank, destination);
        return true;
    }

    const bool isFolder = QDir(QDir::cleanPath(destination)).exists();
    bank->setOutputFilePath(destination);
    if (!mMultiple && !isFolder)
        remarkOnDestination(destination, bank->outputFilePath());
    logger()->println(Logger::OUTPUT_MESSAGE, "Compiling soundbank %s", destination.toUtf8().constData());
    if (mMultiple)
        return buildMultiple(bank, destination);
    mBanksWanted = 1;
    mBanksWritten = buildToTheEnd(bank) ? 1 : 0;
    return true;
}

QString CommandLine::projectReplacementFault(const QString& path) const
{
    if (!QFileInfo(path).isFile())
        return QString();
    const QString root = Workspace::rootOf(path);
    if (root == "soundbank")
        return QString();
    if (isAmong(path, mProtected))
        return "it is what this run is built from";
    if (root == "profile")
        return "it is a profile";
    return validator()->isSound(path) ? "it is a sound" : QString();
}

// Ends a run that was stopped: prints what was held back, with the reason last.
bool CommandLine::fail(const char* line, const char* hint)
{
    logger()->println(Logger::OUTPUT_MESSAGE, "%s", line);
    if (hint)
        logger()->println(Logger::OUTPUT_INFO, "%s", hint);
    logger()->ungag();
    return false;
}

// Names the bank after its first source, in the destination directory. An empty bank aborts.
void CommandLine::setDefaultOutputPath(SoundBank* bank, const QString& destination)
{
    QString path = destination;
    if (!path.endsWith('/') && !path.endsWith('\\'))
        path += '/';
    path += bank->at(0)->at(0)->fileName();
    bank->setOutputFilePath(path + BANK_EXTENSION);
}

void CommandLine::writeProject(const SoundBank* bank, const QString& destination)
{
    QString path = destination;
    if (!path.endsWith(PROJECT_EXTENSION))
        path += PROJECT_EXTENSION;
    logger()->println(Logger::OUTPUT_MESSAGE, "Writing out xml data to %s", path.toUtf8().constData());
    remarkOnDestination(destination, path);
    ++mBanksWanted;
    if (const QString fault = projectReplacementFault(path); !fault.isEmpty()) {
        remarks()->add(QString("'%1' is not replaced by a project: %2").arg(path, fault));
        return;
    }
    if (const AtomicFile file(path); !file.isOpen())
        remarks()->add(QString("the project '%1' can't be written: %2").arg(path, file.errorString()));
    const StopSignals held;
    if (workspace()->saveSoundBank(bank, path))
        ++mBanksWritten;
}

bool CommandLine::buildToTheEnd(const SoundBank* bank)
{
    if (const QString fault = replacementFault(bank, mProtected); !fault.isEmpty()) {
        remarks()->add(QString("'%1' is not replaced by a bank: %2").arg(bank->outputFilePath(), fault));
        return false;
    }
    const StopSignals held;
    bool cancelled = false;
    buildSystem()->enqueueBuild(bank);
    if (bank->isEmpty())
        remarks()->add(QString("'%1' was not written: it would have no sounds").arg(bank->outputFilePath()));
    while (buildSystem()->update()) {
        if (StopSignals::noted() && !cancelled) {
            buildSystem()->cancelBuild();
            cancelled = true;
        }
        QThread::msleep(POLL_MS);
    }
    return buildSystem()->lastBuildSucceeded();
}

// Builds one bank per subsound, the last one first.
bool CommandLine::buildMultiple(SoundBank* bank, const QString& destination)
{
    SoundBank* carrier = workspace()->createSoundBank();
    carrier->setEncryptionKey(bank->encryptionKey());
    carrier->profile().clone(bank->profile());

    // A missing directory is created, and the banks are written next to it.
    QDir directory(bank->outputFilePath());
    if (!directory.exists()) {
        const QString name = directory.dirName();
        if (!directory.cdUp() || !directory.exists()) {
            logger()->println(Logger::OUTPUT_ERROR, "ERROR: directory not found %s",
                              directory.path().toUtf8().constData());
            return false;
        }
        directory.mkdir(name);
    }
    const QString outputDirectory = directory.absolutePath();
    if (!destination.isEmpty())
        remarkOnDestination(QFileInfo(destination).absoluteFilePath(), outputDirectory);

    // The library knows the sources of the bank that it builds, but not those of the others.
    for (const Subsound* subsound : std::as_const(*bank)) {
        for (const SourceFile* file : *subsound)
            protect(file->wholePath());
    }

    // Only the pointer to each subsound is put into the carrier; all are returned to their owner after the last build.
    QList<Subsound*> built;
    QSet<QString> paths;
    while (!bank->isEmpty() && !StopSignals::noted()) {
        Subsound* subsound = bank->last();
        carrier->append(subsound);
        carrier->setOutputFilePath(outputDirectory + "/" + carrier->first()->fileName() + BANK_EXTENSION);
        bank->removeLast();
        ++mBanksWanted;
        const QString path = carrier->outputFilePath();
        if (buildToTheEnd(carrier)) {
            if (paths.contains(path))
                logger()->println(Logger::OUTPUT_ERROR, "ERROR: %s replaced the bank of another sound of that name",
                                  path.toUtf8().constData());
            else
                ++mBanksWritten;
            paths.insert(path);
        }
        carrier->clear();
        built.prepend(subsound);
    }
    bank->append(built);
    return true;
}

void CommandLine::printHelp()
{
    const auto write = [](const QByteArray& text) {
        logger()->write(Logger::OUTPUT_SILENT, text.constData());
    };

    write(QString::asprintf("\n%s version %x.%02x.%02x (%s)\n%s\n\n", APP_NAME, VERSION_MAJOR, VERSION_MINOR,
                            VERSION_PATCH, __DATE__, COPYRIGHT_LINE)
              .toUtf8());
    write("Command line switches :\n\n");
    for (const CommandActions* actions : {&mPrepopulateActions, &mPostpopulateActions}) {
        for (const AbstractAction* action : *actions) {
            if (!action->hidden())
                write("-" + action->name().toUtf8().leftJustified(HELP_COLUMN) + action->help() + "\n");
        }
    }
    write("\n");
    write("Examples :\n\n");
    write("tarnokexcl -o MyBank.tnb <source>\n");
    write("\n");
    write("Note: A .tnproj or .lst file can be used as the source.\n");
}

} // namespace TARNOK
