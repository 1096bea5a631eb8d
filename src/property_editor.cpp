// SPDX-License-Identifier: MIT
#include "property_editor.hpp"

#include "logger.hpp"
#include "utility_functions.hpp"
#include "utility_widgets.hpp"
#include "workspace.hpp"

#include <QComboBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QRegularExpression>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace TARNOK {

namespace {

constexpr int MINIMUM_WIDTH = 200;

QLabel* labelFor(QWidget* control, const QString& text)
{
    auto* label = new QLabel(text);
    label->setBuddy(control);
    return label;
}

// A page with one slider under a label.
void arrangePage(QWidget* page, const QString& text, EnhancedSlider* slider)
{
    slider->setControlName(text);
    auto* layout = new QVBoxLayout;
    layout->addWidget(labelFor(slider, text));
    layout->addWidget(slider);
    page->setLayout(layout);
}

} // namespace

struct PropertyEditor::BitrateEditor : QWidget
{
    explicit BitrateEditor(PropertyEditor* editor)
        : mSlider(new EnhancedSlider(0, 320, 96, 99, 1))
    {
        arrangePage(this, "Bitrate kbit/s", mSlider);
        const bool connected = connect(mSlider, SIGNAL(valueChanged(float)), editor, SLOT(setBitrate(float)));
        Q_ASSERT(connected);
    }

    EnhancedSlider* mSlider;
};

struct PropertyEditor::QualityEditor : QWidget
{
    explicit QualityEditor(PropertyEditor* editor)
        : mSlider(new EnhancedSlider(0, 100, 75, 100, 0))
    {
        arrangePage(this, "Quality", mSlider);
        const bool connected = connect(mSlider, SIGNAL(valueChanged(float)), editor, SLOT(setQuality(float)));
        Q_ASSERT(connected);
    }

    EnhancedSlider* mSlider;
};

struct PropertyEditor::SampleRateEditor : QWidget
{
    explicit SampleRateEditor(PropertyEditor*)
        : mSlider(new EnhancedSlider(1, 0))
    {
        arrangePage(this, "Quality N/A", mSlider);
        mSlider->setValue(1);
        mSlider->setEnabled(false);
    }

    EnhancedSlider* mSlider;
};

PropertyEditor::PropertyEditor(QWidget* parent)
    : QWidget(parent)
{
    auto* layout = new QVBoxLayout;
    createPathControls(layout);
    mProfileGroup = createProfileGroup();
    layout->addWidget(mProfileGroup);
    setLayout(layout);

    setEnabled(false);
    propertyChanged();
    setMinimumWidth(MINIMUM_WIDTH);
}

void PropertyEditor::createPathControls(QVBoxLayout* layout)
{
    mFileNameEdit = new QLineEdit;
    mFileNameEdit->setAccessibleName("Output file");
    layout->addWidget(labelFor(mFileNameEdit, "Output file"));
    layout->addWidget(mFileNameEdit);

    // No parent yet: the Tab key follows the order in which the layout adds the widgets to the panel.
    mDirectoryEdit = new EnhancedDirectoryLineEdit(nullptr);
    mDirectoryEdit->setControlName("Output directory");
    layout->addWidget(labelFor(mDirectoryEdit, "Output directory"));
    layout->addWidget(mDirectoryEdit);
}

QGroupBox* PropertyEditor::createProfileGroup()
{
    mFormatCombo = new QComboBox;
    mFormatCombo->setAccessibleName("Format");
    mFormatCombo->setEditable(false);
    for (int format = 0; format < FORMAT_COUNT; ++format)
        mFormatCombo->addItem(formatToString(static_cast<TARNOK_FORMAT>(format)));
    const bool connected = connect(mFormatCombo, SIGNAL(activated(int)), this, SLOT(propertyChanged()));
    Q_ASSERT(connected);

    mSampleRateEditor = new SampleRateEditor(this);
    mBitrateEditor = new BitrateEditor(this);
    mQualityEditor = new QualityEditor(this);
    mEditorStack = new QStackedWidget;
    mEditorStack->addWidget(mSampleRateEditor);
    mEditorStack->addWidget(mBitrateEditor);
    mEditorStack->addWidget(mQualityEditor);

    mSettingsGroup = createSettingsGroup();

    auto* formatRow = new QHBoxLayout;
    formatRow->addWidget(mFormatCombo);
    formatRow->addStretch(3);

    auto* layout = new QVBoxLayout;
    layout->addWidget(labelFor(mFormatCombo, "Format"));
    layout->addLayout(formatRow);
    layout->addWidget(mEditorStack);
    layout->addWidget(mSettingsGroup);
    layout->addStretch(1);

    auto* group = new QGroupBox("Profile");
    group->setLayout(layout);
    return group;
}

QGroupBox* PropertyEditor::createSettingsGroup()
{
    auto* layout = new QVBoxLayout;
    mSyncPointsCheck = createCheckBox("Encode sync points", SLOT(setSyncPoints(int)), layout);
    mOptimizeCheck = createCheckBox("Optimize sample rate", SLOT(setOptimizeSampleRate(int)), layout);
    mLoopCheck = createCheckBox("Enable looping", SLOT(setLoop(int)), layout);
    mFilterCheck = createCheckBox("Filter high frequencies", SLOT(setFilterHiFreq(int)), layout);
    mSeekCheck = createCheckBox("Enable seeking", SLOT(setSeek(int)), layout);
    mEmbedNamesCheck = createCheckBox("Embed file names", SLOT(setEmbedFileNames(int)), layout);
    mPeakVolumeCheck = createCheckBox("Write peak volume", SLOT(setWritePeakVolume(int)), layout);
    layout->addStretch(1);

    auto* group = new QGroupBox("Settings");
    group->setLayout(layout);
    return group;
}

ConditionalCheckBox* PropertyEditor::createCheckBox(const char* text, const char* slot, QVBoxLayout* layout)
{
    auto* box = new ConditionalCheckBox(text, this);
    layout->addWidget(box);
    const bool connected = connect(box, SIGNAL(stateChanged(int)), this, slot);
    Q_ASSERT(connected);
    return box;
}

void PropertyEditor::setCurrentSoundBank(const SoundBank* bank)
{
    if (!bank) {
        setEnabled(false);
        return;
    }
    setEnabled(true);
    resetBankPathControls(bank);
    updateProfileControls(bank->profile());
}

void PropertyEditor::resetBankPathControls(const SoundBank* bank)
{
    disconnect(mFileNameEdit, SIGNAL(textEdited(QString)), this, SLOT(setBankOutputPath()));
    disconnect(mDirectoryEdit, SIGNAL(pathChanged(QString)), this, SLOT(setBankOutputPath()));

    QString name = bank->fileName();
    if (!bank->fileType().isEmpty())
        name += "." + bank->fileType();
    mFileNameEdit->setText(name);
    mDirectoryEdit->lineEdit()->setPath(bank->fileLocation(), false);

    bool connected = connect(mFileNameEdit, SIGNAL(textEdited(QString)), this, SLOT(setBankOutputPath()));
    Q_ASSERT(connected);
    connected = connect(mDirectoryEdit, SIGNAL(pathChanged(QString)), this, SLOT(setBankOutputPath()));
    Q_ASSERT(connected);
}

void PropertyEditor::updateProfileControls(const SoundProfile& profile)
{
    int row = 0;
    while (row < mFormatCombo->count() && mFormatCombo->itemText(row) != formatToString(profile.format()))
        ++row;
    if (row == mFormatCombo->count())
        Q_ASSERT(false);
    mFormatCombo->setCurrentIndex(row);
    propertyChanged();

    // Read once: a slider that moves to a position with a smaller value writes that value to the profile.
    const float quality = static_cast<float>(profile.quality());
    mBitrateEditor->mSlider->setValue(QUALITY_TO_BITRATE * quality);
    mQualityEditor->mSlider->setValue(quality);

    mSyncPointsCheck->setChecked(!(profile.buildFlags() & TARNOK_BUILD_DISABLESYNCPOINTS));
    mLoopCheck->setChecked(!(profile.buildFlags() & TARNOK_BUILD_DONTLOOP));
    mFilterCheck->setChecked(profile.buildFlags() & TARNOK_BUILD_FILTERHIGHFREQ);
    mSeekCheck->setChecked(!(profile.buildFlags() & TARNOK_BUILD_DISABLESEEKING));
    mOptimizeCheck->setChecked(profile.buildFlags() & TARNOK_BUILD_OPTIMIZESAMPLERATE);
    mEmbedNamesCheck->setChecked(!(profile.buildFlags() & TARNOK_BUILD_TNB5_DONTWRITENAMES));
    mPeakVolumeCheck->setChecked(profile.buildFlags() & TARNOK_BUILD_WRITEPEAKVOLUME);
}

void PropertyEditor::propertyChanged()
{
    const TARNOK_FORMAT format = stringToFormat(mFormatCombo->currentText(), nullptr);
    const int type = getFormatType(format);
    switch (type) {
    case FORMAT_TYPE_BITRATE:
        mEditorStack->setCurrentWidget(mBitrateEditor);
        break;
    case FORMAT_TYPE_NONE:
        mEditorStack->setCurrentWidget(mSampleRateEditor);
        break;
    case FORMAT_TYPE_QUALITY:
        mEditorStack->setCurrentWidget(mQualityEditor);
        break;
    default:
        break;
    }

    mOptimizeCheck->setEnabled(type == FORMAT_TYPE_NONE);
    mFilterCheck->setEnabled(format == TARNOK_FORMAT_XMA);
    mSeekCheck->setEnabled(format == TARNOK_FORMAT_XMA);

    SoundBank* bank = firstBank();
    if (!bank)
        return;
    if (format != TARNOK_FORMAT_XMA)
        mSeekCheck->setChecked(true);
    bank->profile().setFormat(format);
}

void PropertyEditor::applyCheckBox(const ConditionalCheckBox* box, unsigned int flag, bool enabled)
{
    // A disabled box changes its look, not the user's choice.
    if (!box->isEnabled())
        return;
    if (SoundBank* bank = firstBank())
        bank->profile().setBuildFlag(flag, enabled);
}

void PropertyEditor::setSyncPoints(int state)
{
    applyCheckBox(mSyncPointsCheck, TARNOK_BUILD_DISABLESYNCPOINTS, state == 0);
}

void PropertyEditor::setLoop(int state)
{
    applyCheckBox(mLoopCheck, TARNOK_BUILD_DONTLOOP, state == 0);
}

void PropertyEditor::setFilterHiFreq(int state)
{
    applyCheckBox(mFilterCheck, TARNOK_BUILD_FILTERHIGHFREQ, state != 0);
}

void PropertyEditor::setSeek(int state)
{
    applyCheckBox(mSeekCheck, TARNOK_BUILD_DISABLESEEKING, state == 0);
}

void PropertyEditor::setOptimizeSampleRate(int state)
{
    applyCheckBox(mOptimizeCheck, TARNOK_BUILD_OPTIMIZESAMPLERATE, state != 0);
}

void PropertyEditor::setEmbedFileNames(int state)
{
    applyCheckBox(mEmbedNamesCheck, TARNOK_BUILD_TNB5_DONTWRITENAMES, state == 0);
}

void PropertyEditor::setWritePeakVolume(int state)
{
    applyCheckBox(mPeakVolumeCheck, TARNOK_BUILD_WRITEPEAKVOLUME, state != 0);
}

void PropertyEditor::setQuality(float value)
{
    SoundBank* bank = firstBank();
    if (bank && mEditorStack->currentWidget() == mQualityEditor)
        bank->profile().setQuality(static_cast<int>(value));
}

void PropertyEditor::setBitrate(float value)
{
    SoundBank* bank = firstBank();
    if (bank && mEditorStack->currentWidget() == mBitrateEditor)
        bank->profile().setQuality(
            static_cast<int>(value / QUALITY_TO_BITRATE + 0.5f)); // NOLINT(bugprone-incorrect-roundings)
}

void PropertyEditor::setBankOutputPath()
{
    static const QRegularExpression illegalInName(R"([\/\\:*?"<>])");
    static const QRegularExpression illegalInPath(R"([*?"<>])");

    SoundBank* bank = firstBank();
    if (!bank)
        return;
    const QString name = mFileNameEdit->text();
    const QString fullPath = mDirectoryEdit->lineEdit()->path() + "/" + name;
    if (illegalInName.match(name).hasMatch()) {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: File name '%s' contains illegal characters",
                          name.toUtf8().constData());
        resetBankPathControls(bank);
    } else if (illegalInPath.match(fullPath).hasMatch()) {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: Path '%s' contains illegal characters",
                          fullPath.toUtf8().constData());
        resetBankPathControls(bank);
    } else {
        bank->setOutputFilePath(fullPath);
    }
}

} // namespace TARNOK
