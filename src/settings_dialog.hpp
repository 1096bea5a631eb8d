// SPDX-License-Identifier: MIT
// The dialog for settings of the installation, as opposed to those of a project.
#pragma once

#include <QDialog>

class QCheckBox;
class QVBoxLayout;

namespace TARNOK {

class EnhancedDirectoryLineEdit;
class EnhancedSlider;

// A view of the settings and of the build system: it is filled from them and written back when it is accepted. The
// program uses one dialog, which opens with what it showed when it was last closed.
class SettingsDialog : public QDialog
{
    Q_OBJECT

public:
    explicit SettingsDialog(QWidget* parent);

public slots:
    // Copies the controls to the settings, and the settings to the store on disk.
    void updateDirectories();

    // Copies the settings to the controls.
    void updateText();

private:
    EnhancedDirectoryLineEdit* createDirectoryEdit(const QString& text, QVBoxLayout* layout);
    void createButtons(QVBoxLayout* layout);
    void connectOutcome();

    EnhancedDirectoryLineEdit* mBankDirectory;
    EnhancedDirectoryLineEdit* mCacheDirectory;
    EnhancedDirectoryLineEdit* mProfileDirectory;
    EnhancedSlider* mThreadSlider;
    QCheckBox* mGenerateHeader;
};

} // namespace TARNOK
