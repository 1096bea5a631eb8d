// SPDX-License-Identifier: MIT
#include "utility_widgets.hpp"

#include "desktop_test.hpp"

using namespace TARNOK;
using namespace tests;

namespace {

using WidgetsTest = DesktopTest;

QString shownText(const EnhancedSlider& slider)
{
    return slider.findChild<QLineEdit*>()->text();
}

int handlePosition(const EnhancedSlider& slider)
{
    return slider.findChild<QSlider*>()->value();
}

} // namespace

TEST_F(WidgetsTest, aNumericBoxDropsDigitsAndShowsNothingBelowItsSmallestStep)
{
    const std::tuple<int, float, const char*> cases[] = {
        {1, 239.192f, "239.1"}, {1, 96, "96"},       {1, 0, "0.1"},   {1, 0.05f, "0.1"},
        {0, 52.999996f, "53"},  {0, 75.5f, "75"},    {0, 0.4f, "1"},  {0, 0, "1"},
        {2, -3.456f, "-3.45"},  {2, 0.001f, "0.01"}, {0, -0.5f, "1"}, {1, 1234567, "1.2"},
    };
    for (const auto& [decimals, value, text] : cases) {
        QDoubleValidator validator(0, 1, decimals, nullptr);
        NumericTextBox box({}, &validator, nullptr);
        QSignalSpy changes(&box, SIGNAL(valueChanged()));
        box.setValue(value);
        EXPECT_EQ(box.findChild<QLineEdit*>()->text(), text) << value;
        EXPECT_TRUE(changes.isEmpty());
    }

    QDoubleValidator validator;
    NumericTextBox labelled("Gain", &validator, nullptr);
    EXPECT_EQ(labelled.findChild<QLabel*>()->text(), "Gain");
    EXPECT_EQ(labelled.getValue(), 0);
    QSignalSpy changes(&labelled, SIGNAL(valueChanged()));
    QTest::keyClicks(labelled.findChild<QLineEdit*>(), "2.5");
    EXPECT_EQ(changes.size(), 3);
    EXPECT_EQ(labelled.getValue(), 2.5f);
}

TEST_F(WidgetsTest, aSliderComputesInSinglePrecisionAndTruncatesPositions)
{
    const EnhancedSlider bitrate(0, 320, 96, 99, 1);
    EXPECT_EQ(handlePosition(bitrate), 29);
    EXPECT_EQ(shownText(bitrate), "96");
    EXPECT_EQ(bitrate.findChildren<QLabel*>().first()->text(), "0");
    EXPECT_EQ(bitrate.findChildren<QLabel*>().last()->text(), "320");

    EnhancedSlider threads(1, 16, 4, 15, 0);
    for (int count = 1; count <= 16; ++count) {
        threads.setValue(float(count));
        EXPECT_EQ(handlePosition(threads), count - 1);
        EXPECT_EQ(threads.getValueFromSlider(), float(count));
    }
    threads.setValue(4);
    QTest::keyClick(threads.findChild<QLineEdit*>(), Qt::Key_Backspace);
    EXPECT_EQ(shownText(threads), "1") << "an empty text counts as 0, which is too small";
    EXPECT_EQ(handlePosition(threads), 0);

    const EnhancedSlider fixed(1, 0);
    EXPECT_EQ(fixed.findChild<QSlider*>()->maximum(), 1);
    EXPECT_EQ(fixed.getValue(), 1);
    EXPECT_EQ(EnhancedSlider().getValue(), 100);
}

TEST_F(WidgetsTest, aSliderAbortsOutsideItsRangeAndDrawsItsMarkerInside)
{
    EnhancedSlider slider(0, 100, 50, 100, 0);
    EXPECT_DEATH(slider.setValue(100.5f), "mMinValue <= value && value <= mMaxValue");
    EXPECT_DEATH(slider.setMaximum(40), "mMinValue <= value && value <= mMaxValue");
    EXPECT_DEATH(EnhancedSlider(0, 10, 11, 10, 0), "mMinValue <= value && value <= mMaxValue");
    slider.setMaximum(50);
    EXPECT_EQ(handlePosition(slider), 100);
    slider.setMinimum(40);
    EXPECT_EQ(slider.getValueFromSlider(), 50);

    slider.resize(300, 30);
    const auto isMarked = [&] {
        bool isRed = false;
        const QImage image = slider.grab().toImage();
        for (int x = 0; x < image.width(); ++x)
            isRed |= image.pixelColor(x, image.height() / 2) == QColor(Qt::red);
        return isRed;
    };
    EXPECT_FALSE(isMarked());
    slider.findChild<QSlider*>()->hide();
    slider.setMarkerValue(45);
    EXPECT_TRUE(isMarked());
    slider.setMarkerValue(40);
    EXPECT_FALSE(isMarked());
}

TEST_F(WidgetsTest, aDirectoryEditAcceptsWhatExistsAndOffersToCreateTheLastPart)
{
    DirectoryLineEdit edit(nullptr);
    QSignalSpy changes(&edit, SIGNAL(pathChanged(QString)));
    EXPECT_TRUE(edit.setPath(path("Bank"), false));
    EXPECT_TRUE(edit.setPath(path("Bank"), false));
    EXPECT_EQ(changes.size(), 2);
    edit.resize(60, 20);
    edit.elideText();
    EXPECT_TRUE(edit.text().contains(QChar(0x2026)));
    EXPECT_EQ(edit.path(), path("Bank"));

    {
        MessageAnswer refusal(QMessageBox::Cancel);
        EXPECT_FALSE(edit.setPath(path("new"), false));
        EXPECT_FALSE(edit.setPath(path("no/parent"), true));
        EXPECT_EQ(refusal.count, 0);
        EXPECT_FALSE(edit.setPath(path("new"), true));
        EXPECT_EQ(refusal.title, "Tarnok Ex");
        EXPECT_EQ(refusal.text, "The directory 'new' does not exist, would you like it to be created?");
        EXPECT_FALSE(edit.setPath(path("<b>"), true));
        EXPECT_TRUE(refusal.text.contains("&lt;b&gt;")) << "a tag is part of the name";
    }
    EXPECT_EQ(edit.path(), path("Bank"));
    EXPECT_EQ(changes.size(), 2);

    MessageAnswer agreement(QMessageBox::Ok);
    EXPECT_TRUE(edit.setPath(path("new"), true));
    EXPECT_TRUE(QDir(path("new")).exists());
    EXPECT_EQ(edit.path(), path("new"));
    // Nobody can create a directory there, not even root.
    EXPECT_EQ(loggedLines([&] { EXPECT_TRUE(edit.setPath("/proc/new", true)); }),
              QStringList("ERROR: unable to create directory 'new'"));
    EXPECT_EQ(edit.path(), path("new"));
    EXPECT_EQ(agreement.count, 2);
}

// A directory edit and another field that can take the focus, in an active window.
struct DirectoryEditTest : WidgetsTest
{
    void SetUp() override
    {
        WidgetsTest::SetUp();
        auto* layout = new QVBoxLayout(&mForm);
        layout->addWidget(mLine);
        layout->addWidget(mOther);
        mForm.resize(300, 100);
        mForm.show();
        activate();
    }

    void activate()
    {
        mForm.activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&mForm));
    }

    void enter(const QString& path)
    {
        mLine->setFocus();
        mLine->clear();
        QTest::keyClicks(mLine, path);
        mOther->setFocus();
    }

    QWidget mForm;
    DirectoryLineEdit* mLine = new DirectoryLineEdit(&mForm);
    QLineEdit* mOther = new QLineEdit;
};

TEST_F(DirectoryEditTest, showsTheWholePathWhileItIsEditedAndKeepsWhatIsTypedUnlessAnotherPathIsSet)
{
    mLine->setPath(path("Bank"), false);
    mOther->setFocus();
    const QString elided = mLine->text();
    mLine->setFocus();
    EXPECT_EQ(mLine->text(), path("Bank"));
    EXPECT_EQ(mLine->cursorPosition(), path("Bank").size());
    mOther->setFocus();
    EXPECT_EQ(mLine->text(), elided);

    mLine->setFocus();
    mLine->setText("typed");
    mForm.resize(200, 100);
    mLine->elideText();
    EXPECT_TRUE(mLine->setPath(path("Bank"), false));
    EXPECT_EQ(mLine->text(), "typed") << "the path hasn't changed";
    EXPECT_TRUE(mLine->setPath(path("Cache"), false));
    EXPECT_EQ(mLine->text(), path("Cache"));
}

TEST_F(DirectoryEditTest, appliesItsPathWhenItLosesTheFocus)
{
    enter(path("Bank/../Cache/"));
    EXPECT_EQ(mLine->path(), path("Cache"));

    enter(path("no/parent"));
    EXPECT_EQ(mLine->path(), path("Cache"));
    EXPECT_EQ(mLine->text(), path("no/parent")) << "the typed text stays visible";

    MessageAnswer refusal(QMessageBox::Cancel);
    enter(path("refused"));
    EXPECT_EQ(refusal.count, 1);
    EXPECT_EQ(mLine->text(), path("refused"));
    EXPECT_EQ(mLine->path(), path("Cache"));

    activate(); // again, after the question
    mLine->setFocus();
    mLine->setText(path("no/parent"));
    QTest::keyClick(mLine, Qt::Key_Return);
    EXPECT_FALSE(mLine->hasFocus()) << "there is nothing to complete";
}

TEST_F(WidgetsTest, browsingStartsInTheCurrentDirectory)
{
    EnhancedDirectoryLineEdit edit(nullptr);
    edit.lineEdit()->setPath(path("Bank"), false);
    QSignalSpy changes(&edit, SIGNAL(pathChanged(QString)));
    {
        FileAnswer cancel("");
        edit.findChild<QPushButton*>()->click();
        EXPECT_EQ(cancel.directory, path("Bank"));
        EXPECT_TRUE(changes.isEmpty());
    }
    FileAnswer choice(path("Cache"));
    edit.findChild<QPushButton*>()->click();
    EXPECT_EQ(edit.lineEdit()->path(), path("Cache"));
    EXPECT_EQ(changes.size(), 1);
}

TEST_F(WidgetsTest, aSearchFieldShowsItsCrossWhileItHoldsText)
{
    SearchField field(nullptr);
    field.show();
    QWidget* cross = nullptr;
    for (QWidget* child : field.findChildren<QWidget*>()) {
        if (dynamic_cast<PixmapWidget*>(child) && child->isHidden())
            cross = child;
    }
    ASSERT_TRUE(cross);
    QSignalSpy changes(&field, SIGNAL(textChanged(QString)));
    field.setText("step");
    EXPECT_TRUE(cross->isVisible());
    QTest::mouseClick(cross, Qt::LeftButton);
    EXPECT_EQ(field.getText(), "");
    EXPECT_FALSE(cross->isVisible());
    EXPECT_EQ(changes.size(), 2);
}

TEST_F(WidgetsTest, theLogGoesToTheNotificationAreaWhileItExists)
{
    auto area = std::make_unique<NotificationArea>(nullptr);
    auto* pane = area->findChild<QTextEdit*>();
    for (const char* name : {"red", "<b>a name with tags</b>"})
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: %s", name);
    EXPECT_EQ(pane->toPlainText(), "ERROR: red\nERROR: <b>a name with tags</b>");
    EXPECT_EQ(pane->toHtml().count("color:#ff0000"), 2);
    EXPECT_TRUE(pane->isReadOnly());

    // All lines of a batch appear at once, and the end stays visible.
    area->resize(200, 100);
    area->show();
    {
        const Logger::Batch batch(logger());
        for (int i = 0; i < 100; ++i)
            logger()->println(Logger::OUTPUT_INFO, "line %d", i);
        EXPECT_TRUE(pane->toPlainText().endsWith("line 99"));
    }
    EXPECT_GT(pane->verticalScrollBar()->maximum(), 0);
    EXPECT_EQ(pane->verticalScrollBar()->value(), pane->verticalScrollBar()->maximum());

    // The newest lines are kept.
    constexpr int KEPT = 100000;
    const QTextDocument* document = pane->document();
    pane->clear();
    for (int i = 0; i < KEPT + 10; i += 2)
        logger()->println(Logger::OUTPUT_INFO, "line %d\nline %d", i, i + 1);
    EXPECT_EQ(document->blockCount(), KEPT);
    EXPECT_EQ(document->firstBlock().text(), "line 10");
    EXPECT_EQ(document->lastBlock().text(), "line 100009");
    area.reset();
    logger()->println(Logger::OUTPUT_ERROR, "ERROR: to nobody");
}
