// SPDX-License-Identifier: MIT
// The window of the desktop program.
#pragma once

#include <QMainWindow>

class QAction;
class QMenu;
class QToolBar;

namespace TARNOK {

class FileIO;
class NotificationArea;
class ProjectBrowser;
class PropertyEditor;
class SettingsDialog;

// Lays out the panels, owns the actions and passes them on. It has no project logic: refresh() reads the state of the
// project and of the build and alone decides what is enabled.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    // The first project is opened from the event loop, once the window exists.
    MainWindow();

public slots:
    void about();
    void documentWasModified();
    void refresh();
    void updateRecentFileMenu();
    void loadRecentProject(QAction* action);
    void loadMostRecentProject();
    void writeToStatusBar(const QString& message);
    bool projectNew();
    bool projectOpen();
    bool projectSave();
    bool projectSaveAs();
    bool projectClose();
    bool importListFile();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void createActions();
    void createProjectActions();
    void createBuildActions();
    void connectPanels();
    void createMenus();
    void createToolBars();
    void createStatusBar();
    void createDockWidgets();
    void readSettings();
    void writeSettings();

    // An action whose triggered() is connected to slot of receiver.
    QAction* createAction(const QString& text, const QString& statusTip, const QObject* receiver, const char* slot);

    ProjectBrowser* mProjectBrowser;
    NotificationArea* mNotificationArea;
    PropertyEditor* mPropertyEditor;
    FileIO* mFileIO;
    SettingsDialog* mSettingsDialog;

    QMenu* mFileMenu;
    QMenu* mBuildMenu;
    QMenu* mHelpMenu;

    QToolBar* mFileToolBar;
    QToolBar* mBuildToolBar;
    QToolBar* mMediaToolBar;

    QAction* mNewAction;
    QAction* mOpenAction;
    QAction* mSaveAction;
    QAction* mSaveAsAction;
    QAction* mImportListAction;
    QAction* mImportProfileAction;
    QAction* mExportProfileAction;
    QMenu* mRecentMenu;
    QAction* mExitAction;
    QAction* mAddFilesAction;
    QAction* mBuildAction;
    QAction* mRebuildAction;
    QAction* mCancelAction;
    QAction* mSettingsAction;
    QAction* mAboutAction;
};

} // namespace TARNOK
