// SPDX-License-Identifier: MIT
// Encoded sounds that get lost or change before they are in the bank.
#include "build/bank_contents.hpp"
#include "build/recovery.hpp"
#include "support/sound_files.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <list>

using namespace builder;

namespace {

namespace fs = std::filesystem;

// The state of a build after all sounds are encoded: of four PCM sounds, the first stays in its source file, and the
// others are in the cache.
class LostSounds : public testing::Test
{
public:
    LostSounds()
    {
        workers.encode(std::vector<size_t>{0, 1, 2, 3});
        EXPECT_TRUE(mPrepared && results.verdict(false));
        EXPECT_TRUE(results.find(0)->inSource);
        for (size_t index = 1; index < kCount; ++index)
            EXPECT_TRUE(results.find(index)->inCache()) << index;
        EXPECT_FALSE(write());
    }
    ~LostSounds() override { fs::remove_all("lost"); }

    [[nodiscard]] std::optional<ContentsError> write() const
    {
        base::Result<AtomicOutput> output = AtomicOutput::create(request.outputFile);
        return writeContents(*output, request, results, cache, {});
    }

    // The sounds that are in this build's own files.
    [[nodiscard]] std::vector<bool> spilled() const
    {
        std::vector<bool> answers;
        for (size_t index = 0; index < kCount; ++index)
            answers.push_back(results.find(index) && results.find(index)->spilled);
        return answers;
    }

    static void makeSound(const std::string& path, uint32_t seed)
    {
        test::writeSound(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, test::noise(1, 44'100, 2000, seed));
    }

private:
    static constexpr size_t kCount = 4;

    std::list<std::string> mPaths;
    std::list<const char*> mNames;
    std::vector<TARNOK_SUBSOUND> mSubsounds = makeSubsounds();
    Remarks mRemarks;
    ProgressQueue mQueue;
    BuildReports mReports{mQueue, false};
    CacheFolder mFolder{"lost/cache", mRemarks};
    RawRecords mRawRecords{mFolder, true};
    SourceIndex mIndex{mFolder.indexPath()};
    SourceIdentifier mSources{mIndex, true};
    KessSystem mEngine = std::move(*startEngine());

    std::vector<TARNOK_SUBSOUND> makeSubsounds()
    {
        fs::create_directories("lost/cache");
        std::vector<TARNOK_SUBSOUND> subsounds(kCount);
        for (size_t index = 0; index < kCount; ++index) {
            mPaths.push_back("lost/" + std::to_string(index) + ".wav");
            makeSound(mPaths.back(), uint32_t(index));
            mNames.push_back(mPaths.back().c_str());
            subsounds[index].fileNames = &mNames.back();
            subsounds[index].numFiles = 1;
            subsounds[index].desiredSampleRate = index == 0 ? 0 : 22'050;
        }
        return subsounds;
    }

public:
    BuildRequest request{mSubsounds, {}, std::nullopt, "lost/bank.tnb"};
    Cache cache{mFolder, true};
    BuildServices services{
        mEngine, cache, mRawRecords, mIndex, mSources, mRemarks, TemporaryFolders::startingWith("lost"), {}};
    SoundResults results{kCount};
    SoundWorkers workers{request, services, mReports, results};

private:
    bool mPrepared = bool(workers.start(2));
};

} // namespace

TEST_F(LostSounds, AreMissingForTheWriterAndEncodedAgainWithAllOthersThatAreLostOrChanged)
{
    builder::Recovery recovery(request, services, workers, results);
    const ContentHash former = results.find(0)->key;
    fs::remove_all("lost/cache/sounds");
    makeSound("lost/0.wav", 100);
    const std::optional<ContentsError> failed = write();
    ASSERT_TRUE(failed && failed->staleSound);

    ASSERT_TRUE(recovery.encodeStale(*failed->staleSound));
    EXPECT_EQ(spilled(), (std::vector{true, true, true, true}));
    EXPECT_NE(results.find(0)->key, former) << "the bank is restarted, so it may contain the new content";
    EXPECT_TRUE(results.verdict(false));
    EXPECT_FALSE(write());
}

TEST_F(LostSounds, AreAllStoredInFilesOfTheBuildWhenTheyGetLostOneByOne)
{
    builder::Recovery recovery(request, services, workers, results);
    ASSERT_TRUE(recovery.encodeStale(1));
    EXPECT_EQ(spilled(), (std::vector{false, true, false, false})) << "nothing else is lost";
    ASSERT_TRUE(recovery.encodeStale(3));
    EXPECT_EQ(spilled(), (std::vector{false, true, false, true}));
    ASSERT_TRUE(recovery.encodeStale(2));
    EXPECT_EQ(spilled(), (std::vector{true, true, true, true}));
    EXPECT_FALSE(write());
}

TEST_F(LostSounds, FailLikeOthersWhenTheirSourceIsGoneToo)
{
    builder::Recovery recovery(request, services, workers, results);
    fs::remove_all("lost/cache/sounds");
    fs::remove("lost/2.wav");
    const std::optional<ContentsError> failed = write();
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->staleSound, 1u);
    ASSERT_TRUE(recovery.encodeStale(1));
    EXPECT_EQ(spilled(), (std::vector{false, true, false, true}));
    const base::Result<> verdict = results.verdict(false);
    ASSERT_FALSE(verdict);
    EXPECT_EQ(verdict.error().code, base::ErrorCode::NotFound);
    EXPECT_NE(verdict.error().text.find("\n  2: 2.wav: the file does not exist"), std::string::npos);
    EXPECT_TRUE(results.verdict(true));
    EXPECT_FALSE(write());
}
