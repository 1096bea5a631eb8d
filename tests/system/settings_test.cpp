// SPDX-License-Identifier: MIT
#include "system_test.hpp"

using namespace TARNOK;

namespace {

using Settings = tests::SystemTest;

TEST_F(Settings, PreferTheTableThenTheStoreThenTheDefault)
{
    QSettings store("KESS", "KESS SoundBank Generator");
    System system;
    EXPECT_EQ(system.getValue("ThreadCount"), 4);
    EXPECT_EQ(system.getValue("GenerateHeaders"), 0);
    EXPECT_DEATH((void)system.getValue("Volume"), "false");
    store.setValue("Settings/ThreadCount", "many");
    EXPECT_EQ(system.getValue("ThreadCount"), 4);
    store.setValue("Settings/ThreadCount", 6);
    EXPECT_EQ(system.getValue("ThreadCount"), 6);

    system.setValue("ThreadCount", 8);
    EXPECT_EQ(System().getValue("ThreadCount"), 6) << "nothing reaches the store before it is finalized";
    system.finalizeSettings();
    EXPECT_EQ(System().getValue("ThreadCount"), 8);
    store.setValue("Settings/ThreadCount", 3);
    EXPECT_EQ(system.getValue("ThreadCount"), 8) << "the table still takes precedence";
    store.clear();
}

} // namespace
