// SPDX-License-Identifier: MIT
#include "system_test.hpp"
#include "utility_functions.hpp"

using namespace TARNOK;

namespace {

using ItemTree = tests::SystemTest;

TEST_F(ItemTree, TracksDirtinessOfEachObjectAlone)
{
    SoundBank* bank = makeBank("a b");
    EXPECT_FALSE(bank->isDirty());
    EXPECT_FALSE(bank->isModified());

    bank->at(1)->first()->setFile(QFile(path("a.wav")), 1, 1, 1, KESS_SOUND_FORMAT_PCM8);
    EXPECT_TRUE(bank->isDirty());
    EXPECT_FALSE(bank->at(0)->isDirty());
    EXPECT_TRUE(bank->at(1)->first()->isDirty());

    bank->at(1)->release();
    EXPECT_FALSE(bank->isDirty()) << "removing a row isn't a change";

    bank->profile().setQuality(5);
    EXPECT_FALSE(bank->isDirty());
    EXPECT_TRUE(bank->isModified());
    bank->makeClean();
    EXPECT_TRUE(bank->isModified()) << "the profile has its own state";

    EXPECT_TRUE(bank->newItem()->isDirty());
    EXPECT_TRUE(bank->isDirty());
}

TEST_F(ItemTree, MovesRowsCountingAfterTheRemoval)
{
    SoundBank* bank = makeBank("a b c");
    const QList<Subsound*> before = *bank;

    ASSERT_TRUE(before[2]->reparent(bank, 0));
    EXPECT_EQ(*bank, (QList<Subsound*>{before[2], before[0], before[1]}));
    EXPECT_TRUE(before[2]->isDirty());
    EXPECT_FALSE(before[0]->isDirty());

    SoundBank* other = workspace()->createSoundBank();
    other->makeClean();
    ASSERT_TRUE(before[0]->reparent(other, 0));
    EXPECT_EQ(before[0]->parent(), other);
    EXPECT_EQ(bank->rowOf(before[0]), -1);
    EXPECT_EQ(other->rowOf(before[0]), 0);
}

TEST_F(ItemTree, AbortsOnBrokenPreconditions)
{
    SoundBank* bank = makeBank("a b");
    Subsound* subsound = bank->first();
    EXPECT_DEATH((void)bank->data(8), "ASSERT");
    EXPECT_DEATH((void)bank->data(-1), "ASSERT");
    EXPECT_DEATH(subsound->first()->reparent(bank, 0), "ASSERT");
    EXPECT_DEATH(subsound->reparent(nullptr, 0), "ASSERT");
    EXPECT_DEATH(subsound->reparent(bank, -1), "ASSERT");
    EXPECT_DEATH(subsound->reparent(bank, 2), "ASSERT");
    EXPECT_DEATH(workspace()->release(), "ASSERT");
    EXPECT_DEATH(subsound->first()->adopt(subsound, 0), "ASSERT");
    EXPECT_DEATH(subsound->first()->appendChild(subsound), "ASSERT");
    EXPECT_DEATH(bank->child(-1), "ASSERT");
    Subsound stranger(nullptr);
    EXPECT_DEATH(bank->deleteItem(&stranger), "num == 1");
}

TEST(Vocabulary, AbortsOutsideItsTables)
{
    EXPECT_DEATH(stringToFormat("flac", nullptr), "ASSERT");
    EXPECT_DEATH(formatToString(TARNOK_FORMAT(6)), "ASSERT");
    EXPECT_DEATH(getFormatType(TARNOK_FORMAT(6)), "ASSERT");
    EXPECT_DEATH(fileFormatToString(KESS_SOUND_FORMAT(7)), "ASSERT");
    EXPECT_DEATH(stringToBuildFlag("DONT_LOOP"), "ASSERT");
    EXPECT_DEATH(buildFlagToString(TARNOK_BUILD_NOGUID), "ASSERT");
    EXPECT_DEATH(buildFlagToString(3), "ASSERT");
    EXPECT_DEATH(buildFlagToString(0), "ASSERT");
}

} // namespace
