// SPDX-License-Identifier: MIT
#include "mainwindow.hpp"

#include "build_system.hpp"
#include "file_io.hpp"
#include "logger.hpp"
#include "project_browser.hpp"
#include "property_editor.hpp"
#include "settings_dialog.hpp"
#include "utility_classes.hpp"
#include "utility_widgets.hpp"
#include "workspace.hpp"

#include <QAction>
#include <QCloseEvent>
#include <QDockWidget>
#include <QIcon>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QSettings>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>

#include <algorithm>

namespace TARNOK {

namespace {

constexpr int STATUS_MS = 1500;
constexpr QPoint DEFAULT_POSITION(200, 200);
constexpr QSize DEFAULT_SIZE(400, 400);

constexpr const char* POSITION_KEY = "pos";
constexpr const char* SIZE_KEY = "size";

// Replaces %1 to %3 of a text, or the next three that are left, by the version.
QString withVersion(const QString& text)
{
    return text.arg(VERSION_MAJOR).arg(VERSION_MINOR, 2, 16, QChar('0')).arg(VERSION_PATCH, 2, 16, QChar('0'));
}

} // namespace

MainWindow::MainWindow()
    : mProjectBrowser(new ProjectBrowser(this))
    , mFileIO(new FileIO(this))
    , mSettingsDialog(new SettingsDialog(this))
{
    setCentralWidget(mProjectBrowser);
    createActions();
    createMenus();
    createToolBars();
    createStatusBar();
    createDockWidgets();
    readSettings();
    setUnifiedTitleAndToolBarOnMac(true);
    QTimer::singleShot(0, this, SLOT(loadMostRecentProject()));
}

QAction* MainWindow::createAction(const QString& text, const QString& statusTip, const QObject* receiver,
                                  const char* slot)
{
    auto* action = new QAction(text, this);
    action->setStatusTip(statusTip);
    const bool connected = connect(action, SIGNAL(triggered()), receiver, slot);
    Q_ASSERT(connected);
    return action;
}

void MainWindow::createActions()
{
    createProjectActions();
    createBuildActions();
    connectPanels();
    updateRecentFileMenu();
}

void MainWindow::createProjectActions()
{
    mNewAction = createAction(tr("&New"), tr("Create a new project"), this, SLOT(projectNew()));
    mNewAction->setIcon(QIcon(":/icon_new.png"));
    mNewAction->setShortcut(QKeySequence::New);

    mOpenAction = createAction(tr("&Open..."), tr("Open an existing project file"), this, SLOT(projectOpen()));
    mOpenAction->setIcon(QIcon(":/icon_open.png"));
    mOpenAction->setShortcut(QKeySequence::Open);

    mSaveAction = createAction(tr("&Save"), tr("Save the project to disk"), this, SLOT(projectSave()));
    mSaveAction->setIcon(QIcon(":/icon_save.png"));
    mSaveAction->setShortcut(QKeySequence::Save);

    mSaveAsAction =
        createAction(tr("Save &As..."), tr("Save the project under a new name"), this, SLOT(projectSaveAs()));
    mImportListAction =
        createAction(tr("&Import from .lst..."), tr("Import from a .lst file"), this, SLOT(importListFile()));
    mImportProfileAction =
        createAction(tr("&Import profile..."), tr("Import a profile from disk"), mFileIO, SLOT(profileLoad()));
    mExportProfileAction =
        createAction(tr("Export profile..."), tr("Export the profile to disk"), mFileIO, SLOT(profileSave()));
    mRecentMenu = new QMenu(tr("Recent projects"), this);

    mExitAction = createAction(tr("E&xit"), tr("Exit the application"), this, SLOT(close()));
    mExitAction->setShortcut(tr("Ctrl+Q"));
}

void MainWindow::createBuildActions()
{
    mAddFilesAction = createAction(tr("Add audio files..."), tr("Add new audio source files to soundbank"), mFileIO,
                                   SLOT(addSourceFiles()));
    mAddFilesAction->setIcon(QIcon(":/icon_addfiles.png"));

    mBuildAction = createAction(tr("&Build"), tr("Build soundbank (Ctrl+B)"), mFileIO, SLOT(soundBankBuild()));
    mBuildAction->setIcon(QIcon(":/icon_build.png"));
    mBuildAction->setShortcut(tr("Ctrl+B"));

    mRebuildAction = createAction(tr("&Rebuild"), tr("Rebuild soundbank (Ctrl+R)"), mFileIO, SLOT(soundBankRebuild()));
    mRebuildAction->setIcon(QIcon(":/icon_rebuild.png"));
    mRebuildAction->setShortcut(tr("Ctrl+R"));

    mCancelAction = createAction(tr("C&ancel"), tr("Cancel Build (Ctrl+N)"), mFileIO, SLOT(soundBankCancelBuild()));
    mCancelAction->setIcon(QIcon(":/icon_cancel.png"));
    mCancelAction->setShortcut(tr("Ctrl+N"));

    mSettingsAction =
        createAction(tr("&Settings..."), tr("Open the build settings dialog"), mSettingsDialog, SLOT(exec()));
    mAboutAction = createAction(tr("&About"), tr("Show the application's About box"), this, SLOT(about()));
}

void MainWindow::connectPanels()
{
    bool connected = connect(mFileIO, SIGNAL(needRefresh()), this, SLOT(refresh()));
    Q_ASSERT(connected);
    connected = connect(mFileIO, SIGNAL(statusMessage(QString)), this, SLOT(writeToStatusBar(QString)));
    Q_ASSERT(connected);
    connected = connect(mFileIO, SIGNAL(requestAddFiles(QList<QUrl>)), mProjectBrowser, SLOT(addFiles(QList<QUrl>)));
    Q_ASSERT(connected);
    connected = connect(mFileIO, SIGNAL(recentFilesChanged()), this, SLOT(updateRecentFileMenu()));
    Q_ASSERT(connected);
    connected = connect(mRecentMenu, SIGNAL(triggered(QAction*)), this, SLOT(loadRecentProject(QAction*)));
    Q_ASSERT(connected);
    connected = connect(buildSystem(), SIGNAL(buildStateChanged()), this, SLOT(refresh()));
    Q_ASSERT(connected);
}

void MainWindow::createMenus()
{
    mFileMenu = menuBar()->addMenu(tr("&File"));
    mFileMenu->addAction(mNewAction);
    mFileMenu->addAction(mOpenAction);
    mFileMenu->addAction(mSaveAction);
    mFileMenu->addAction(mSaveAsAction);
    mFileMenu->addSeparator();
    mFileMenu->addAction(mAddFilesAction);
    mFileMenu->addSeparator();
    mFileMenu->addAction(mImportListAction);
    mFileMenu->addSeparator();
    mFileMenu->addAction(mImportProfileAction);
    mFileMenu->addAction(mExportProfileAction);
    mFileMenu->addSeparator();
    mFileMenu->addMenu(mRecentMenu);
    mFileMenu->addSeparator();
    mFileMenu->addAction(mExitAction);

    mBuildMenu = menuBar()->addMenu(tr("&Build"));
    mBuildMenu->addAction(mBuildAction);
    mBuildMenu->addAction(mRebuildAction);
    mBuildMenu->addAction(mCancelAction);
    mBuildMenu->addSeparator();
    mBuildMenu->addAction(mSettingsAction);

    menuBar()->addSeparator();

    mHelpMenu = menuBar()->addMenu(tr("&Help"));
    mHelpMenu->addAction(mAboutAction);
}

void MainWindow::createToolBars()
{
    mFileToolBar = addToolBar(tr("File"));
    mFileToolBar->addAction(mNewAction);
    mFileToolBar->addAction(mOpenAction);
    mFileToolBar->addAction(mSaveAction);

    mMediaToolBar = addToolBar(tr("Media"));
    mMediaToolBar->addAction(mAddFilesAction);

    mBuildToolBar = addToolBar(tr("Build"));
    mBuildToolBar->addAction(mBuildAction);
    mBuildToolBar->addAction(mRebuildAction);
    mBuildToolBar->addAction(mCancelAction);
}

void MainWindow::createStatusBar()
{
    statusBar()->showMessage(tr("Ready"));
    statusBar()->addPermanentWidget(mFileIO->progressBar());
}

void MainWindow::createDockWidgets()
{
    setCorner(Qt::BottomRightCorner, Qt::RightDockWidgetArea);

    auto* properties = new QDockWidget(tr("Sound Bank Properties"), this);
    mPropertyEditor = new PropertyEditor(properties);
    mPropertyEditor->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    properties->setWidget(mPropertyEditor);
    // The editor can be squeezed to a width at which its longer texts are cut.
    properties->setMinimumWidth(std::max(mPropertyEditor->minimumWidth(), mPropertyEditor->minimumSizeHint().width()));
    properties->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
    properties->setAllowedAreas(Qt::AllDockWidgetAreas);
    addDockWidget(Qt::RightDockWidgetArea, properties);

    auto* notifications = new QDockWidget(tr("Notification Area"), this);
    mNotificationArea = new NotificationArea(notifications);
    notifications->setWidget(mNotificationArea);
    notifications->setFeatures(QDockWidget::NoDockWidgetFeatures);
    notifications->setAllowedAreas(Qt::AllDockWidgetAreas);
    addDockWidget(Qt::BottomDockWidgetArea, notifications);
}

void MainWindow::refresh()
{
    setWindowModified(false);
    const QString version = withVersion(QString("%0 %1.%2.%3").arg(APP_NAME));
    setWindowTitle(tr("%1[*] - %2").arg(mFileIO->projectFileName(), version));

    const bool hasBank = !workspace()->isEmpty();
    mPropertyEditor->setEnabled(hasBank);
    mPropertyEditor->setCurrentSoundBank(hasBank ? workspace()->first() : nullptr);
    mProjectBrowser->update();

    const bool building = buildSystem()->isBuilding();
    mBuildAction->setEnabled(hasBank && !building);
    mRebuildAction->setEnabled(hasBank && !building);
    mCancelAction->setEnabled(hasBank && building);
    mImportProfileAction->setEnabled(hasBank);
    mExportProfileAction->setEnabled(hasBank);
}

void MainWindow::documentWasModified() { }

void MainWindow::about()
{
    QMessageBox::about(this, APP_NAME,
                       withVersion(QString("%0 %1.%2.%3 %4 (%5)\n\n").arg(APP_NAME)).arg(APP_VERSION_LABEL, __DATE__)
                           + COPYRIGHT_LINE);
}

void MainWindow::updateRecentFileMenu()
{
    // One of them may be the action that led here: it must outlive its signal.
    for (QAction* action : mRecentMenu->actions()) {
        mRecentMenu->removeAction(action);
        action->deleteLater();
    }

    const QStringList paths = System::recentProjects();
    mRecentMenu->setEnabled(!paths.isEmpty());
    for (const QString& path : paths)
        mRecentMenu->addAction(new QAction(path, this));
}

void MainWindow::loadRecentProject(QAction* action)
{
    mFileIO->projectOpenInternal(action->text());
}

void MainWindow::loadMostRecentProject()
{
    const QList<QAction*> recent = mRecentMenu->actions();
    if (recent.isEmpty()) {
        mFileIO->projectNew();
        return;
    }

    const QString path = recent.first()->text();
    logger()->println(Logger::OUTPUT_MESSAGE, "Loading most recent project: %s", path.toUtf8().constData());
    if (SoundBank* bank = mFileIO->projectOpenInternal(path)) {
        mProjectBrowser->expandItem(bank);
        return;
    }

    // The entry stays in the menu and in the store and is tried again at the next start: its disk may be available
    // then.
    mFileIO->projectNew();
}

void MainWindow::writeToStatusBar(const QString& message)
{
    statusBar()->showMessage(message, STATUS_MS);
}

bool MainWindow::projectNew()
{
    SoundBank* bank = mFileIO->projectNew();
    if (bank)
        mProjectBrowser->expandItem(bank);
    return bank != nullptr;
}

bool MainWindow::projectOpen()
{
    SoundBank* bank = mFileIO->projectOpen();
    if (bank)
        mProjectBrowser->expandItem(bank);
    return bank != nullptr;
}

bool MainWindow::importListFile()
{
    SoundBank* bank = mFileIO->importListFile();
    if (bank)
        mProjectBrowser->expandItem(bank);
    return bank != nullptr;
}

bool MainWindow::projectSave()
{
    mFileIO->projectSaveInternal(true);
    return false;
}

bool MainWindow::projectSaveAs()
{
    mFileIO->projectSaveInternal(false);
    return false;
}

bool MainWindow::projectClose()
{
    return mFileIO->projectClose();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (!mFileIO->projectClose()) {
        event->ignore();
        return;
    }
    writeSettings();
    event->accept();
}

void MainWindow::readSettings()
{
    const QSettings settings(COMPANY_NAME, APP_NAME);
    const QPoint position = settings.value(POSITION_KEY, DEFAULT_POSITION).toPoint();
    const QSize size = settings.value(SIZE_KEY, DEFAULT_SIZE).toSize();
    resize(size);
    move(position);
}

void MainWindow::writeSettings()
{
    QSettings settings(COMPANY_NAME, APP_NAME);
    settings.setValue(POSITION_KEY, pos());
    settings.setValue(SIZE_KEY, rect().size());
}

} // namespace TARNOK
