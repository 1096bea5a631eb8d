// SPDX-License-Identifier: MIT
#include "settings_dialog.hpp"

#include "build_system.hpp"
#include "utility_classes.hpp"
#include "utility_widgets.hpp"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace TARNOK {

namespace {

constexpr QSize MINIMUM_SIZE(500, 190);

} // namespace

SettingsDialog::SettingsDialog(QWidget* parent)
    : QDialog(parent)
{
    auto* layout = new QVBoxLayout;
    layout->addStretch(1);
    mBankDirectory = createDirectoryEdit("Default output directory", layout);
    mCacheDirectory = createDirectoryEdit("Cache Directory", layout);
    mProfileDirectory = createDirectoryEdit("Profile Directory", layout);

    mThreadSlider = new EnhancedSlider(System::MIN_THREADS, System::MAX_THREADS, System::DEFAULT_THREADS,
                                       System::MAX_THREADS - System::MIN_THREADS, 0);
    mThreadSlider->setParent(this); // before the check box, which the Tab key would otherwise reach first
    mThreadSlider->setControlName("Thread count");
    auto* threadLabel = new QLabel("Thread count");
    threadLabel->setBuddy(mThreadSlider);
    layout->addWidget(threadLabel);
    layout->addWidget(mThreadSlider);

    mGenerateHeader = new QCheckBox("Generate C Header", this);
    layout->addWidget(mGenerateHeader);
    updateText();
    layout->addStretch(2);
    createButtons(layout);

    setLayout(layout);
    setMinimumSize(MINIMUM_SIZE);
    setWindowTitle("Build Settings");
    setSizeGripEnabled(false);
    connectOutcome();
}

EnhancedDirectoryLineEdit* SettingsDialog::createDirectoryEdit(const QString& text, QVBoxLayout* layout)
{
    auto* edit = new EnhancedDirectoryLineEdit(this);
    edit->setControlName(text);
    auto* label = new QLabel(text);
    label->setBuddy(edit);
    layout->addWidget(label);
    layout->addWidget(edit);
    return edit;
}

void SettingsDialog::createButtons(QVBoxLayout* layout)
{
    auto* ok = new QPushButton("OK");
    ok->setDefault(true);
    auto* cancel = new QPushButton("Cancel");
    bool connected = connect(ok, SIGNAL(clicked()), this, SLOT(accept()));
    Q_ASSERT(connected);
    connected = connect(cancel, SIGNAL(clicked()), this, SLOT(reject()));
    Q_ASSERT(connected);

    auto* row = new QHBoxLayout;
    row->addStretch(0);
    row->addWidget(ok);
    row->addWidget(cancel);
    layout->addLayout(row);
}

void SettingsDialog::connectOutcome()
{
    bool connected = connect(this, SIGNAL(accepted()), this, SLOT(updateDirectories()));
    Q_ASSERT(connected);
    connected = connect(this, SIGNAL(rejected()), this, SLOT(updateText()));
    Q_ASSERT(connected);
}

void SettingsDialog::updateText()
{
    mBankDirectory->lineEdit()->setPath(settings()->getOutputDir(System::BANK_NAME), false);
    mCacheDirectory->lineEdit()->setPath(settings()->getOutputDir(System::CACHE_NAME), false);
    mProfileDirectory->lineEdit()->setPath(settings()->getOutputDir(System::PROFILE_NAME), false);
    mThreadSlider->setValue(static_cast<float>(buildSystem()->threadCount()));
    mGenerateHeader->setChecked(buildSystem()->generateCodeHeader());
}

void SettingsDialog::updateDirectories()
{
    settings()->setDir(System::BANK_NAME, mBankDirectory->lineEdit()->path());
    settings()->setDir(System::CACHE_NAME, mCacheDirectory->lineEdit()->path());
    settings()->setDir(System::PROFILE_NAME, mProfileDirectory->lineEdit()->path());
    buildSystem()->setThreadCount(static_cast<unsigned int>(mThreadSlider->getValue()));
    buildSystem()->setGenerateCodeHeader(mGenerateHeader->isChecked());
    settings()->finalizeSettings();
    updateText();
}

} // namespace TARNOK
