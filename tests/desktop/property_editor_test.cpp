// SPDX-License-Identifier: MIT
#include "property_editor.hpp"

#include "desktop_test.hpp"
#include "utility_widgets.hpp"

using namespace TARNOK;
using namespace tests;

namespace {

struct PropertyEditorTest : DesktopTest
{
    void SetUp() override
    {
        DesktopTest::SetUp();
        mEditor = std::make_unique<PropertyEditor>(nullptr);
        mEditor->show();
    }

    void TearDown() override { mEditor.reset(); }

    void show(const QString& project = "a")
    {
        mBank = makeBank(project);
        mEditor->setCurrentSoundBank(mBank);
    }

    SoundProfile& profile() { return mBank->profile(); }

    QCheckBox* box(const QString& text) { return childWith<QCheckBox>(mEditor.get(), &QCheckBox::text, text); }

    QLineEdit* lineEdit(const QString& name)
    {
        return childWith<QLineEdit>(mEditor.get(), &QLineEdit::accessibleName, name);
    }

    // Chooses a format with the keyboard, as a user does.
    void choose(const QString& format)
    {
        auto* combo = mEditor->findChild<QComboBox*>();
        QTest::keyClick(combo, Qt::Key_Home);
        for (int row = combo->findText(format); row > 0; --row)
            QTest::keyClick(combo, Qt::Key_Down);
        ASSERT_EQ(combo->currentText(), format);
    }

    QWidget* page() { return mEditor->findChild<QStackedWidget*>()->currentWidget(); }
    QString pageLabel() { return page()->findChild<QLabel*>()->text(); }
    QSlider* slider() { return page()->findChild<QSlider*>(); }

    std::unique_ptr<PropertyEditor> mEditor;
    SoundBank* mBank = nullptr;
};

} // namespace

TEST_F(PropertyEditorTest, withoutABankThePanelIsDisabled)
{
    EXPECT_FALSE(mEditor->isEnabled());
    EXPECT_EQ(pageLabel(), "Quality N/A");
    mEditor->setQuality(5);
    mEditor->setSyncPoints(0);
    mEditor->setBankOutputPath();
    show();
    EXPECT_TRUE(mEditor->isEnabled());
    EXPECT_FALSE(mBank->isModified());
    mEditor->setCurrentSoundBank(nullptr);
    EXPECT_FALSE(mEditor->isEnabled());
    EXPECT_EQ(lineEdit("Output file")->text(), "out.tnb");
}

TEST_F(PropertyEditorTest, theFormatDecidesThePageAndWhatMayBeChecked)
{
    show();
    const std::tuple<const char*, const char*, bool, bool> cases[] = {
        {"PCM", "Quality N/A", true, false}, {"XMA", "Quality", false, true},        {"AT9", "Quality", false, false},
        {"Vorbis", "Quality", false, false}, {"KADPCM", "Quality N/A", true, false}, {"Opus", "Quality", false, false},
    };
    for (const auto& [format, label, optimize, xma] : cases) {
        choose(format);
        EXPECT_EQ(pageLabel(), label) << format;
        EXPECT_EQ(box("Optimize sample rate")->isEnabled(), optimize) << format;
        EXPECT_EQ(box("Filter high frequencies")->isEnabled(), xma) << format;
        EXPECT_EQ(box("Enable seeking")->isEnabled(), xma) << format;
        EXPECT_EQ(box("Enable seeking")->isChecked(), !xma)
            << format << ": when enabled, it returns to the saved state";
    }
    EXPECT_EQ(profile().format(), TARNOK_FORMAT_OPUS);

    choose("PCM");
    EXPECT_FALSE(slider()->isEnabled());
    EXPECT_EQ(slider()->value(), slider()->maximum());
    profile().makeClean();
    choose("PCM");
    mEditor->propertyChanged();
    EXPECT_FALSE(profile().isDirty());
}

TEST_F(PropertyEditorTest, aProfileIsShownUnchangedAndABoxWritesItsFlagWhileItIsEnabled)
{
    show();
    profile().setFormat(TARNOK_FORMAT_XMA);
    profile().setQuality(40);
    for (const auto& [text, flag, setWhenChecked] :
         {std::tuple("Encode sync points", TARNOK_BUILD_DISABLESYNCPOINTS, false),
          {"Enable looping", TARNOK_BUILD_DONTLOOP, false},
          {"Filter high frequencies", TARNOK_BUILD_FILTERHIGHFREQ, true},
          {"Enable seeking", TARNOK_BUILD_DISABLESEEKING, false},
          {"Embed file names", TARNOK_BUILD_TNB5_DONTWRITENAMES, false},
          {"Write peak volume", TARNOK_BUILD_WRITEPEAKVOLUME, true}}) {
        for (const bool set : {true, false}) {
            profile().setBuildFlags(set ? flag : 0);
            profile().makeClean();
            mEditor->updateProfileControls(profile());
            EXPECT_EQ(box(text)->isChecked(), set == setWhenChecked) << text;
            EXPECT_FALSE(profile().isDirty()) << text;
            box(text)->click();
            EXPECT_EQ(profile().buildFlags(), set ? 0 : flag) << text;
            EXPECT_TRUE(profile().isDirty()) << text;
        }
    }
    EXPECT_EQ(mEditor->findChild<QComboBox*>()->currentText(), "XMA");
    EXPECT_EQ(slider()->value(), 40);

    profile().setBuildFlags(0);
    mEditor->updateProfileControls(profile());
    choose("PCM");
    EXPECT_EQ(profile().buildFlags(), static_cast<unsigned int>(TARNOK_BUILD_DISABLESEEKING))
        << "leaving the format unchecks the box, which writes the flag";
    EXPECT_TRUE(box("Enable seeking")->isChecked()) << "then it appears checked, without an effect";
    box("Optimize sample rate")->click();
    choose("Vorbis");
    EXPECT_FALSE(profile().buildFlags() & TARNOK_BUILD_OPTIMIZESAMPLERATE);
    choose("KADPCM");
    EXPECT_TRUE(box("Optimize sample rate")->isChecked());
    EXPECT_FALSE(profile().buildFlags() & TARNOK_BUILD_OPTIMIZESAMPLERATE) << "shown, but not written";

    profile().setFormat(TARNOK_FORMAT(6));
    EXPECT_DEATH(mEditor->updateProfileControls(profile()), "ASSERT");
}

TEST_F(PropertyEditorTest, qualityIsTruncatedFromTheSliderAndFromTheText)
{
    show();
    choose("Vorbis");
    slider()->setValue(53);
    EXPECT_EQ(profile().quality(), 52u);
    EXPECT_EQ(lineEdit("Quality")->text(), "53");

    for (const auto& [typed, quality, position] :
         {std::tuple("60", 60u, 60), {"59", 59, 58}, {"7", 7, 7}, {"500", 100, 100}, {"0", 0, 0}}) {
        lineEdit("Quality")->clear();
        QTest::keyClicks(lineEdit("Quality"), typed);
        EXPECT_EQ(profile().quality(), quality) << typed;
        EXPECT_EQ(slider()->value(), position) << typed;
        EXPECT_EQ(lineEdit("Quality")->text().toUInt(), quality) << typed;
    }

    // Showing 59 moves the slider to 58, which stores 58, while the text shows 59.
    profile().setQuality(59);
    profile().makeClean();
    mEditor->updateProfileControls(profile());
    EXPECT_EQ(slider()->value(), 58);
    EXPECT_EQ(lineEdit("Quality")->text(), "59");
    EXPECT_EQ(profile().quality(), 58u);
    EXPECT_TRUE(profile().isDirty());

    profile().setQuality(0);
    mEditor->updateProfileControls(profile());
    EXPECT_EQ(lineEdit("Quality")->text(), "1");
    EXPECT_EQ(profile().quality(), 0u);
}

TEST_F(PropertyEditorTest, theDormantBitratePageFollowsTheQualityAndWritesWhenItIsShown)
{
    show();
    choose("Vorbis");
    QSlider* bitrate = childWith<QSlider>(mEditor.get(), &QSlider::accessibleName, "Bitrate kbit/s");
    for (const auto& [quality, position] : {std::pair(30, 29), std::pair(75, 74), std::pair(100, 99)}) {
        profile().setQuality(quality);
        mEditor->updateProfileControls(profile());
        EXPECT_EQ(bitrate->value(), position);
    }
    mEditor->setBitrate(160);
    EXPECT_EQ(profile().quality(), 100u) << "the page isn't shown";
    mEditor->findChild<QStackedWidget*>()->setCurrentIndex(1);
    bitrate->setValue(74);
    EXPECT_EQ(profile().quality(), 75u);
    // Truncation loses one step of the lower half.
    for (int quality = 1; quality <= 50; ++quality) {
        bitrate->setValue(99);
        bitrate->setValue(int(3.2f * float(quality) / 320.0f * 99.0f));
        EXPECT_EQ(profile().quality(), unsigned(quality - 1));
    }
}

TEST_F(PropertyEditorTest, theOutputPathIsWrittenPerKeystrokeUnlessACharacterIsIllegal)
{
    show();
    QLineEdit* name = lineEdit("Output file");
    name->clear();
    QTest::keyClicks(name, "music.tnb");
    EXPECT_EQ(mBank->outputFilePath(), path("Bank/music.tnb"));
    EXPECT_TRUE(mBank->isModified());

    for (const QChar illegal : QString("/\\:*?\"<>")) {
        mBank->setOutputFilePath(path("Bank/ok.tnb"));
        mEditor->setCurrentSoundBank(mBank);
        EXPECT_EQ(loggedLines([&] { QTest::keyClicks(name, illegal); }, Logger::OUTPUT_ERROR),
                  QStringList(QString("ERROR: File name 'ok.tnb%1' contains illegal characters").arg(illegal)));
        EXPECT_EQ(name->text(), "ok.tnb");
        EXPECT_EQ(mBank->outputFilePath(), path("Bank/ok.tnb"));
    }
    name->setText("a|");
    QTest::keyClicks(name, "b");
    EXPECT_EQ(mBank->fileName(), "a|b");

    auto* directory = mEditor->findChild<DirectoryLineEdit*>();
    directory->setPath(path("Cache"), false);
    EXPECT_EQ(mBank->fileLocation(), path("Cache"));

    QDir().mkpath(path("with:colon"));
    directory->setPath(path("with:colon"), false);
    EXPECT_EQ(mBank->fileLocation(), path("with:colon"));
    QDir().mkpath(path("with<angle"));
    EXPECT_EQ(loggedLines([&] { directory->setPath(path("with<angle"), false); }, Logger::OUTPUT_ERROR),
              QStringList("ERROR: Path '" + path("with<angle/a|b") + "' contains illegal characters"));
    EXPECT_EQ(mBank->fileLocation(), path("with:colon"));
}
