// SPDX-License-Identifier: MIT
#include "system_test.hpp"

using namespace TARNOK;

namespace {

class Settings : public tests::SystemTest
{
protected:
    void TearDown() override { store().clear(); }

    static QSettings store() { return QSettings("KESS", "KESS SoundBank Generator"); }
};

TEST_F(Settings, PreferTheTableThenTheStoreThenTheDefault)
{
    System system;
    EXPECT_EQ(system.getValue("ThreadCount"), 4);
    EXPECT_EQ(system.getValue("GenerateHeaders"), 0);
    EXPECT_DEATH((void)system.getValue("Volume"), "false");
    store().setValue("Settings/ThreadCount", "many");
    EXPECT_EQ(system.getValue("ThreadCount"), 4);
    store().setValue("Settings/ThreadCount", 6);
    EXPECT_EQ(system.getValue("ThreadCount"), 6);

    system.setValue("ThreadCount", 8);
    EXPECT_EQ(System().getValue("ThreadCount"), 6) << "nothing reaches the store before it is finalized";
    system.finalizeSettings();
    EXPECT_EQ(System().getValue("ThreadCount"), 8);
    store().setValue("Settings/ThreadCount", 3);
    EXPECT_EQ(system.getValue("ThreadCount"), 8) << "the table still takes precedence";
}

TEST_F(Settings, KeepADirectoryThatIsGoneButDontOfferIt)
{
    System system;
    EXPECT_EQ(system.getDir("Source"), "");
    system.setDir("Cache", "/gone/away");
    EXPECT_EQ(system.getDir("Cache"), "/gone/away");

    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    EXPECT_EQ(system.getOutputDir("Cache"), documents + "/KESS SoundBank Generator/Cache");
    EXPECT_TRUE(QDir(system.getOutputDir("Cache")).exists());
    EXPECT_EQ(system.getDir("Cache"), system.getOutputDir("Cache"));

    system.setDir("Cache", path("").chopped(1));
    EXPECT_EQ(system.getOutputDir("Cache"), path("").chopped(1));
    system.finalizeDirectories();
    EXPECT_EQ(store().value("Directories/Cache"), path("").chopped(1));
    EXPECT_EQ(System().getOutputDir("Cache"), path("").chopped(1));
}

} // namespace
