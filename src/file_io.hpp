// SPDX-License-Identifier: MIT
// Operations on whole projects in the desktop program.
#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>

class QProgressBar;
class QTimer;

namespace TARNOK {

class SoundBank;

// New, open, save, close, list import, profile files, the choice of source files, and builds. The project is the first
// bank of the workspace. Knows the window only as the parent of its dialogs; the window listens to its signals.
class FileIO : public QObject
{
    Q_OBJECT

public:
    explicit FileIO(QWidget* parent);
    ~FileIO() override;

    // The new bank, or null.
    SoundBank* projectNew();
    SoundBank* projectOpen();
    SoundBank* projectOpenInternal(const QString& path);
    SoundBank* importListFile();

    // False if the user wants to keep the project open.
    bool projectClose();

    // Asks for a path if the project has none yet, or if another one is wanted.
    void projectSaveInternal(bool useProjectFileName);

    // Empty for a project that was never saved.
    QString projectFileName() const { return mProjectFileName; }

    // Has no parent until somebody shows it, and is hidden until a build runs.
    QProgressBar* progressBar() const { return mProgressBar; }

    // Offers to save unsaved changes; false if the user cancelled.
    bool maybeSave();

    // Moves path to the front of the recent list and emits a signal.
    void appendRecentFiles(const QString& path);

    bool soundBankBuildInternal(bool rebuild);

    // Appends "." and extension unless the path already ends with extension, with or without a dot.
    static void appendFileExtension(QString* path, const char* extension);

signals:
    void needRefresh();
    void statusMessage(const QString& message);
    void requestAddFiles(const QList<QUrl>& urls);
    void recentFilesChanged();

public slots:
    void profileLoad();
    void profileSave();
    bool soundBankBuild();
    bool soundBankRebuild();
    bool soundBankCancelBuild();
    void addSourceFiles();
    void updateBuild();

private:
    QWidget* window() const;
    bool ensureOutputDirectory(const QString& location);

    QString mProjectFileName;
    QTimer* mBuildTimer;
    QProgressBar* mProgressBar;
};

} // namespace TARNOK
