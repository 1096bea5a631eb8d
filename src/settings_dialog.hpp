// The dialog for what belongs to the installation and not to a project.
#pragma once

#include <QDialog>

class QCheckBox;
class QVBoxLayout;

namespace TARNOK {

class EnhancedDirectoryLineEdit;
class EnhancedSlider;

// A view of the settings and of the build system: filled from there, and written back there when it is accepted. One
// dialog serves the whole run; what it shows on opening is what it showed when it last closed.
class SettingsDialog : public QDialog
{
    Q_OBJECT

public:
    explicit SettingsDialog(QWidget* parent);

public slots:
    // The controls into the settings, and those into the store on disk.
    void updateDirectories();

    // The settings into the controls.
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
