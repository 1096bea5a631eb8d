// SPDX-License-Identifier: MIT
#include "file_io.hpp"

#include "atomic_file.hpp"
#include "build_system.hpp"
#include "logger.hpp"
#include "utility_classes.hpp"
#include "utility_widgets.hpp"
#include "workspace.hpp"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QMessageBox>
#include <QProgressBar>
#include <QTimer>

namespace TARNOK {

namespace {

constexpr int POLL_MS = 10;
constexpr int PROGRESS_MAXIMUM = 100;

constexpr const char* PROJECT_EXTENSION = "tnproj";
constexpr const char* PROFILE_EXTENSION = "prof";
constexpr const char* PROFILE_FILTER = "SoundProfile (*.prof)";
constexpr const char* LIST_FILTER = "List file (*.lst)";

QString projectFilter()
{
    return QString("%0 Project (*.%1)").arg(APP_NAME, PROJECT_EXTENSION);
}

// Checks of access, logged when they fail. The workspace aborts the process if it can't open a file, and unsaved
// changes would be lost: callers check the path first.

bool noAccess(const char* purpose, const QString& path, const QString& fault)
{
    logger()->println(Logger::OUTPUT_ERROR, "ERROR: Cannot %s file %s:\n%s.", purpose, path.toUtf8().constData(),
                      fault.toUtf8().constData());
    return false;
}

bool canRead(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) || noAccess("read", path, file.errorString());
}

bool canWrite(const QString& path)
{
    const AtomicFile file(path);
    return file.isOpen() || noAccess("write", path, file.errorString());
}

// Shows the wait cursor for the duration of a scope.
class WaitCursor
{
public:
    WaitCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~WaitCursor() { QApplication::restoreOverrideCursor(); }
    WaitCursor(const WaitCursor&) = delete;
    WaitCursor& operator=(const WaitCursor&) = delete;
};

// All file dialogs are made here. False if the user cancelled.
bool runFileDialog(QWidget* parent, QFileDialog::AcceptMode mode, const QString& directory, const QString& filter,
                   QString* path)
{
    QFileDialog dialog(parent, QString(), directory, filter);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setViewMode(QFileDialog::Detail);
    dialog.setAcceptMode(mode);
    if (!dialog.exec())
        return false;
    *path = dialog.selectedFiles().value(0);
    return true;
}

} // namespace

FileIO::FileIO(QWidget* parent)
    : QObject(parent)
    , mBuildTimer(new QTimer(this))
    , mProgressBar(new QProgressBar)
{
    const bool connected = connect(mBuildTimer, SIGNAL(timeout()), this, SLOT(updateBuild()));
    Q_ASSERT(connected);
    mProgressBar->setRange(0, PROGRESS_MAXIMUM);
    mProgressBar->setAccessibleName("Build progress");
    mProgressBar->hide();
}

FileIO::~FileIO()
{
    const bool disconnected = disconnect(mBuildTimer, SIGNAL(timeout()), this, SLOT(updateBuild()));
    Q_ASSERT(disconnected);
    delete mBuildTimer;
}

QWidget* FileIO::window() const
{
    return static_cast<QWidget*>(parent());
}

void FileIO::appendFileExtension(QString* path, const char* extension)
{
    if (!path->endsWith(extension))
        *path += QString(".") + extension;
}

SoundBank* FileIO::projectNew()
{
    if (!projectClose())
        return nullptr;

    SoundBank* bank = workspace()->createSoundBank();
    bank->setOutputFilePath(settings()->getOutputDir(System::BANK_NAME) + "/" + "untitled.tnb");
    mProjectFileName.clear();
    emit needRefresh();
    return bank;
}

bool FileIO::projectClose()
{
    if (!maybeSave())
        return false;

    if (SoundBank* bank = firstBank())
        workspace()->deleteItem(bank);
    emit needRefresh();
    return true;
}

bool FileIO::maybeSave()
{
    DirectoryLineEdit::finishEditing();
    SoundBank* bank = firstBank();
    if (!bank || bank->isEmpty() || !bank->isModified())
        return true;

    const auto answer =
        QMessageBox::warning(window(), APP_NAME, "The project has been modified.\n Do you want to save your changes?",
                             QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel);
    switch (answer) {
    case QMessageBox::Save:
        projectSaveInternal(true);
        return true;
    case QMessageBox::Discard:
        return true;
    case QMessageBox::Cancel:
        return false;
    default:
        Q_ASSERT(false);
        return false;
    }
}

SoundBank* FileIO::projectOpen()
{
    QString path;
    if (!runFileDialog(window(), QFileDialog::AcceptOpen, settings()->getOutputDir(System::BANK_NAME), projectFilter(),
                       &path))
        return nullptr;
    if (path.isEmpty()) {
        projectNew();
        return nullptr;
    }

    if (!canRead(path)) {
        projectNew();
        return nullptr;
    }
    if (SoundBank* bank = projectOpenInternal(path))
        return bank;
    return projectNew();
}

SoundBank* FileIO::projectOpenInternal(const QString& path)
{
    if (!projectClose())
        return nullptr;

    emit statusMessage(QString("Opening project: %0").arg(path));
    const WaitCursor cursor;
    logger()->gag();
    SoundBank* bank = workspace()->loadSoundBank(path);
    if (bank) {
        logger()->println(Logger::OUTPUT_INFO, "Successfully loaded project %s", path.toUtf8().constData());
        emit statusMessage("Project loaded");
        mProjectFileName = path;
        appendRecentFiles(path);
        emit needRefresh();
        logger()->ungag();
    } else {
        // Only the errors of a failed load matter.
        const Logger::OUTPUTPRIORITY verbosity = logger()->verbosity();
        logger()->setVerbosity(Logger::OUTPUT_ERROR);
        logger()->ungag();
        logger()->setVerbosity(verbosity);
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: Couldn't load file: %s", path.toUtf8().constData());
    }
    return bank;
}

SoundBank* FileIO::importListFile()
{
    QString path;
    if (!runFileDialog(window(), QFileDialog::AcceptOpen, settings()->getDir(System::LISTFILE_NAME), LIST_FILTER,
                       &path))
        return nullptr;
    if (path.isEmpty())
        return nullptr;

    settings()->setDir(System::LISTFILE_NAME, path);
    projectClose();

    const WaitCursor cursor;
    SoundBank* bank = workspace()->loadSoundBank(path);
    if (bank) {
        logger()->println(Logger::OUTPUT_INFO, "Successfully imported %s", path.toUtf8().constData());
        mProjectFileName = path.chopped(3) + PROJECT_EXTENSION;
        emit needRefresh();
    } else {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: Couldn't load file: %s", path.toUtf8().constData());
        projectNew();
    }
    return bank;
}

void FileIO::projectSaveInternal(bool useProjectFileName)
{
    DirectoryLineEdit::finishEditing();
    SoundBank* bank = firstBank();
    if (!bank || bank->isEmpty()) {
        logger()->println(Logger::OUTPUT_INFO, "Nothing to save");
        return;
    }

    QString path;
    if (useProjectFileName && !mProjectFileName.isEmpty()) {
        path = mProjectFileName;
    } else {
        if (!runFileDialog(window(), QFileDialog::AcceptSave, settings()->getOutputDir(System::BANK_NAME),
                           projectFilter(), &path))
            return;
        if (path.isEmpty())
            return;
        appendFileExtension(&path, PROJECT_EXTENSION);
    }

    const WaitCursor cursor;
    if (canWrite(path) && bank->save(path)) {
        mProjectFileName = path;
        appendRecentFiles(path);
        emit needRefresh();
    }
}

void FileIO::appendRecentFiles(const QString& path)
{
    System::rememberProject(path);
    emit recentFilesChanged();
}

void FileIO::profileSave()
{
    QString path;
    if (!runFileDialog(window(), QFileDialog::AcceptSave, settings()->getOutputDir(System::PROFILE_NAME),
                       PROFILE_FILTER, &path)
        || path.isEmpty())
        return;

    appendFileExtension(&path, PROFILE_EXTENSION);
    if (!canWrite(path) || !workspace()->saveProfile(workspace()->first()->profile(), path))
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: Couldn't save profile to %s", path.toUtf8().constData());
    emit needRefresh();
}

void FileIO::profileLoad()
{
    QString path;
    if (!runFileDialog(window(), QFileDialog::AcceptOpen, settings()->getOutputDir(System::PROFILE_NAME),
                       PROFILE_FILTER, &path)
        || path.isEmpty())
        return;

    if (canRead(path))
        workspace()->loadProfile(&workspace()->first()->profile(), path);
    emit needRefresh();
}

void FileIO::addSourceFiles()
{
    const QStringList paths =
        QFileDialog::getOpenFileNames(window(), "Add source files", settings()->getDir(System::SOURCE_NAME), "");
    if (paths.isEmpty())
        return;

    settings()->setDir(System::SOURCE_NAME, QDir::fromNativeSeparators(paths.first()));
    QList<QUrl> urls;
    for (const QString& path : paths)
        urls.append(QUrl::fromLocalFile(path));
    emit requestAddFiles(urls);
}

bool FileIO::soundBankBuild()
{
    return soundBankBuildInternal(false);
}

bool FileIO::soundBankRebuild()
{
    return soundBankBuildInternal(true);
}

bool FileIO::soundBankBuildInternal(bool rebuild)
{
    DirectoryLineEdit::finishEditing();
    const SoundBank* bank = firstBank();
    if (!bank) {
        logger()->println(Logger::OUTPUT_INFO, "Nothing to build: no project loaded");
        return false;
    }
    if (bank->isEmpty()) {
        logger()->println(Logger::OUTPUT_INFO, "Nothing to build: project empty");
        return false;
    }
    if (bank->profile().quality() == 0) {
        logger()->println(Logger::OUTPUT_INFO, "Cannot build: quality is 0");
        return false;
    }
    if (!ensureOutputDirectory(bank->fileLocation()))
        return false;

    mProgressBar->show();
    emit statusMessage("Processing subsounds");
    buildSystem()->setInitFlag(TARNOK_INIT_REBUILD, rebuild);
    buildSystem()->enqueueBuild(bank);
    mBuildTimer->start(POLL_MS);
    return true;
}

bool FileIO::ensureOutputDirectory(const QString& location)
{
    const QDir directory(location);
    if (directory.exists())
        return true;

    const auto answer = QMessageBox::warning(
        window(), APP_NAME,
        asItStands(QString("The output directory %0 doesn't exist, would you like it to be created?").arg(location)),
        QMessageBox::Yes | QMessageBox::Cancel);
    switch (answer) {
    case QMessageBox::Yes:
        if (directory.mkpath("."))
            return true;
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: Unable to create path '%s'", location.toUtf8().constData());
        return false;
    case QMessageBox::Cancel:
    case QMessageBox::Discard:
        logger()->println(Logger::OUTPUT_MESSAGE, "Build aborted");
        return false;
    default:
        Q_ASSERT(false);
        return false;
    }
}

bool FileIO::soundBankCancelBuild()
{
    buildSystem()->cancelBuild();
    return true;
}

void FileIO::updateBuild()
{
    if (!buildSystem()->update()) {
        mBuildTimer->stop();
        mProgressBar->reset();
        mProgressBar->setRange(0, PROGRESS_MAXIMUM);
        mProgressBar->hide();
        emit statusMessage("Done");
        return;
    }

    const float progress = buildSystem()->progressMonitor().progress() * PROGRESS_MAXIMUM;
    if (progress >= 0) {
        mProgressBar->setValue(static_cast<int>(progress));
    } else {
        // An empty range is shown as a busy indicator.
        mProgressBar->setRange(0, 0);
        emit statusMessage("Writing to file");
    }
}

} // namespace TARNOK
