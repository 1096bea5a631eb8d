// SPDX-License-Identifier: MIT
#include "settings_dialog.hpp"

#include "desktop_test.hpp"
#include "utility_widgets.hpp"

using namespace TARNOK;
using namespace tests;

namespace {

struct SettingsDialogTest : DesktopTest
{
    void TearDown() override
    {
        buildSystem()->setThreadCount(4);
        buildSystem()->setGenerateCodeHeader(false);
    }

    // Runs the dialog, lets edit change its controls, and presses the button.
    void run(SettingsDialog& dialog, const char* button, const std::function<void()>& edit)
    {
        QTimer::singleShot(0, &dialog, [&] {
            EXPECT_TRUE(QTest::qWaitForWindowActive(&dialog));
            edit();
            childWith<QPushButton>(&dialog, &QPushButton::text, button)->click();
        });
        dialog.exec();
    }

    static QString stored(const char* key) { return QSettings(COMPANY_NAME, APP_NAME).value(key).toString(); }
};

} // namespace

TEST_F(SettingsDialogTest, okWritesTheControlsToTheSettingsAndToTheStore)
{
    SettingsDialog dialog(nullptr);
    EXPECT_EQ(dialog.windowTitle(), "Build Settings");
    const QList<DirectoryLineEdit*> directories = dialog.findChildren<DirectoryLineEdit*>();
    QLineEdit* threads = dialog.findChild<EnhancedSlider*>()->findChild<QLineEdit*>();
    QDir().mkpath(path("other"));
    run(dialog, "OK", [&] {
        directories.at(1)->setFocus();
        directories.at(1)->clear();
        QTest::keyClicks(directories.at(1), path("other"));
        threads->setFocus();
        threads->clear();
        QTest::keyClicks(threads, "99");
        dialog.findChild<QCheckBox*>()->click();
        EXPECT_TRUE(childWith<QPushButton>(&dialog, &QPushButton::text, "OK")->isDefault())
            << "the button that Return presses";
    });
    EXPECT_EQ(stored("Directories/Cache"), path("other"));
    EXPECT_EQ(stored("Directories/Bank"), path("Bank"));
    EXPECT_EQ(stored("Settings/ThreadCount"), "16");
    EXPECT_EQ(stored("Settings/GenerateHeaders"), "1");
    EXPECT_EQ(buildSystem()->threadCount(), 16u);
    EXPECT_TRUE(buildSystem()->generateCodeHeader());
}

TEST_F(SettingsDialogTest, cancelWritesNothingAndRefillsTheControls)
{
    SettingsDialog dialog(nullptr);
    DirectoryLineEdit* bank = dialog.findChildren<DirectoryLineEdit*>().first();
    EnhancedSlider* threads = dialog.findChild<EnhancedSlider*>();
    run(dialog, "Cancel", [&] {
        bank->setPath(path("Cache"), false);
        threads->setValue(9);
        dialog.findChild<QCheckBox*>()->click();
    });
    EXPECT_EQ(bank->path(), path("Bank"));
    EXPECT_EQ(threads->getValue(), 4);
    EXPECT_FALSE(dialog.findChild<QCheckBox*>()->isChecked());
    EXPECT_EQ(settings()->getDir("Bank"), path("Bank"));
    EXPECT_EQ(stored("Directories/Bank"), "");

    // Settings that changed in the meantime appear after the next closing, not at the next opening.
    settings()->setDir("Bank", path("Profile"));
    run(dialog, "Cancel", [&] { EXPECT_EQ(bank->path(), path("Bank")); });
    EXPECT_EQ(bank->path(), path("Profile"));
}
