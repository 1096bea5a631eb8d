// SPDX-License-Identifier: MIT
// The panel that edits a bank's output path and encoding settings.
#pragma once

#include <QWidget>

class QComboBox;
class QGroupBox;
class QLineEdit;
class QStackedWidget;
class QVBoxLayout;

namespace TARNOK {

class ConditionalCheckBox;
class EnhancedDirectoryLineEdit;
class EnhancedSlider;
class SoundBank;
class SoundProfile;

// Shows the bank that it is given and immediately writes every edit to the first bank of the workspace. It keeps no
// copies.
class PropertyEditor : public QWidget
{
    Q_OBJECT

public:
    explicit PropertyEditor(QWidget* parent);

    // Null disables the panel.
    void setCurrentSoundBank(const SoundBank* bank);

    void resetBankPathControls(const SoundBank* bank);
    void updateProfileControls(const SoundProfile& profile);

    // Kilobits per second of one quality step.
    static constexpr float QUALITY_TO_BITRATE = 3.2f;

public slots:
    void propertyChanged();
    void setBankOutputPath();
    void setBitrate(float value);
    void setQuality(float value);
    void setSyncPoints(int state);
    void setLoop(int state);
    void setFilterHiFreq(int state);
    void setSeek(int state);
    void setOptimizeSampleRate(int state);
    void setEmbedFileNames(int state);
    void setWritePeakVolume(int state);

private:
    // The pages below the format. Each connects to the editor that it is given, which isn't its parent.
    struct BitrateEditor;
    struct QualityEditor;
    struct SampleRateEditor;

    void createPathControls(QVBoxLayout* layout);
    QGroupBox* createProfileGroup();
    QGroupBox* createSettingsGroup();
    ConditionalCheckBox* createCheckBox(const char* text, const char* slot, QVBoxLayout* layout);
    void applyCheckBox(const ConditionalCheckBox* box, unsigned int flag, bool enabled);

    QLineEdit* mFileNameEdit;
    EnhancedDirectoryLineEdit* mDirectoryEdit;
    QGroupBox* mProfileGroup;
    QComboBox* mFormatCombo;
    QStackedWidget* mEditorStack;
    BitrateEditor* mBitrateEditor;
    QualityEditor* mQualityEditor;
    SampleRateEditor* mSampleRateEditor;
    QGroupBox* mSettingsGroup;
    ConditionalCheckBox* mSyncPointsCheck;
    ConditionalCheckBox* mLoopCheck;
    ConditionalCheckBox* mFilterCheck;
    ConditionalCheckBox* mSeekCheck;
    ConditionalCheckBox* mOptimizeCheck;
    ConditionalCheckBox* mEmbedNamesCheck;
    ConditionalCheckBox* mPeakVolumeCheck;
};

} // namespace TARNOK
