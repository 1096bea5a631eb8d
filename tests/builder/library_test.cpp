// SPDX-License-Identifier: MIT
// The life cycle of the library: calls in and out of order, reports, cancelling and releasing at any moment.
#include "builder_test.hpp"

#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
#include <ctime>
#include <latch>
#include <thread>

using namespace test;
using Clock = std::chrono::steady_clock;

namespace {

struct Library : BuilderTest
{
    // Sounds that take long enough to encode that a build can be interrupted.
    BuildArguments longSounds(int count)
    {
        BuildArguments arguments = makeArguments({});
        for (int i = 0; i < count; ++i)
            arguments.sounds.push_back(
                {makeSound("long" + std::to_string(i), noise(2, 44100, 44100 * 5, uint32_t(i + 1)))});
        arguments.initFlags |= TARNOK_INIT_REBUILD;
        return arguments;
    }
};

} // namespace

TEST_F(Library, RefusesCallsOutOfOrder)
{
    const BuildArguments arguments = makeArguments(makeSounds(1));
    const char* cache = arguments.cache.c_str();
    EXPECT_EQ(Tarnok_Release(), TARNOK_ERR_UNINITIALIZED);
    EXPECT_EQ(buildOnly(arguments), TARNOK_ERR_UNINITIALIZED);
    EXPECT_EQ(Tarnok_BuildCancel(), TARNOK_ERR_UNINITIALIZED);

    for (const int version : {1, -1, INT_MIN})
        EXPECT_EQ(Tarnok_Init(TARNOK_TNBVERSION(version), 0, 1, cache), TARNOK_ERR_INVALID_PARAM);
    for (const unsigned threads : {0u, 257u}) {
        EXPECT_EQ(Tarnok_Init(TARNOK_TNBVERSION_CURRENT, 0, threads, cache), TARNOK_OK);
        EXPECT_EQ(Tarnok_Release(), TARNOK_OK);
    }
    EXPECT_EQ(Tarnok_Init(TARNOK_TNBVERSION_CURRENT, 0, 1, nullptr), TARNOK_ERR_INVALID_PARAM);
    EXPECT_EQ(Tarnok_Init(TARNOK_TNBVERSION_CURRENT, 0, 1, ""), TARNOK_ERR_INVALID_PARAM);

    EXPECT_EQ(Tarnok_Init(TARNOK_TNBVERSION_CURRENT, 0, 256, cache), TARNOK_OK);
    EXPECT_EQ(Tarnok_Init(TARNOK_TNBVERSION_CURRENT, 0, 1, cache), TARNOK_ERR_INITIALIZED);
    EXPECT_EQ(Tarnok_BuildCancel(), TARNOK_OK);
    EXPECT_EQ(Tarnok_FetchNextProgressItem(nullptr), TARNOK_ERR_INVALID_PARAM);
    EXPECT_EQ(Tarnok_ReleaseProgressItem(nullptr), TARNOK_ERR_INVALID_PARAM);
    char text[5] = "....";
    EXPECT_EQ(Tarnok_FetchNextRemark(nullptr, 5), TARNOK_ERR_INVALID_PARAM);
    EXPECT_EQ(Tarnok_FetchNextRemark(text, 4), TARNOK_ERR_INVALID_PARAM);
    EXPECT_EQ(Tarnok_FetchNextRemark(text, 5), TARNOK_OK);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(Tarnok_Release(), TARNOK_OK);
    EXPECT_EQ(Tarnok_Release(), TARNOK_ERR_UNINITIALIZED);
}

TEST_F(Library, RefusesInvalidArguments)
{
    const BuildArguments good = makeArguments(makeSounds(1));
    const char* noName = nullptr;
    using Fault = std::pair<const char*, std::function<void(BuildArguments&)>>;
    const auto eachSound = [](const char* name, const std::function<void(TARNOK_SUBSOUND&)>& spoil) {
        return Fault(name, [=](BuildArguments& arguments) {
            arguments.adjust = [=](size_t, auto& sound) {
                spoil(sound);
            };
        });
    };
    const Fault cases[] = {
        Fault("no sounds", [](BuildArguments& arguments) { arguments.sounds.clear(); }),
        Fault("unknown format", [](BuildArguments& arguments) { arguments.format = TARNOK_FORMAT(6); }),
        Fault("no enumerator's number", [](BuildArguments& arguments) { arguments.format = TARNOK_FORMAT(-1); }),
        Fault("quality", [](BuildArguments& arguments) { arguments.quality = 101; }),
        Fault("no output", [](BuildArguments& arguments) { arguments.output.clear(); }),
        Fault("a folder as output", [](BuildArguments& arguments) { arguments.output += "/"; }),
        Fault("empty key", [](BuildArguments& arguments) { arguments.key = ""; }),
        eachSound("no files", [](TARNOK_SUBSOUND& sound) { sound.numFiles = 0; }),
        eachSound("null files", [](TARNOK_SUBSOUND& sound) { sound.fileNames = nullptr; }),
        eachSound("null name", [&](TARNOK_SUBSOUND& sound) { sound.fileNames = &noName; }),
        eachSound("rate", [](TARNOK_SUBSOUND& sound) { sound.desiredSampleRate = -1; }),
        eachSound("no rate", [](TARNOK_SUBSOUND& sound) { sound.desiredSampleRate = NAN; }),
    };
    for (const auto& [name, spoil] : cases) {
        BuildArguments arguments = good;
        spoil(arguments);
        const Outcome outcome = build(arguments);
        EXPECT_EQ(outcome.result, TARNOK_ERR_INVALID_PARAM) << name;
        EXPECT_EQ(outcome.reportedStates(-1), std::vector{TARNOK_STATE_FAILED}) << name;
    }
    EXPECT_FALSE(fs::exists(good.output));
}

TEST_F(Library, ReportsEveryPhaseOfASoundOnOneThreadAndACachedOneOnlyAsFinished)
{
    BuildArguments arguments = makeArguments(makeSounds(12));
    // More kinds of sounds than an encoder caches data for.
    arguments.adjust = [](size_t index, TARNOK_SUBSOUND& sound) {
        sound.desiredSampleRate = index == 3 ? 32000 : 0;
        sound.overrideQuality = unsigned(20 + index % 4 * 20);
        sound.overrideFlags = index % 5 == 4 ? TARNOK_BUILD_DONTLOOP : 0;
    };
    const std::vector all = {TARNOK_STATE_DECODING, TARNOK_STATE_ANALYSING, TARNOK_STATE_PREPROCESSING,
                             TARNOK_STATE_ENCODING, TARNOK_STATE_WRITING,   TARNOK_STATE_FINISHED};
    for (const TARNOK_FORMAT format : allFormats) {
        Bytes expected;
        for (const unsigned threads : {1, 2, 3, 8}) {
            SCOPED_TRACE(testing::Message() << format << " on " << threads);
            arguments.format = format;
            arguments.threads = threads;
            arguments.initFlags = TARNOK_INIT_ALWAYS | TARNOK_INIT_REBUILD;
            const Outcome first = mustBuild(arguments);
            for (int sound = 0; sound < 12; ++sound) {
                EXPECT_EQ(first.reportedStates(sound), all);
                const int thread = std::ranges::find(first.reports, sound, &Report::sound)->thread;
                for (const Report& report : first.reports)
                    EXPECT_TRUE(report.sound != sound || report.thread == thread) << sound;
            }
            EXPECT_EQ(first.reports.back().sound, -1);
            EXPECT_EQ(first.reports.back().state, TARNOK_STATE_WRITING);
            EXPECT_TRUE(threads == 1 || first.bank == expected);
            expected = first.bank;

            arguments.initFlags = TARNOK_INIT_ALWAYS;
            const Outcome second = mustBuild(arguments);
            EXPECT_EQ(second.cachedSounds(), 12);
            EXPECT_EQ(second.reports.size(), 13u);
            EXPECT_TRUE(second.bank == expected);
        }
    }

    arguments.initFlags = 0;
    EXPECT_TRUE(build(arguments).reports.empty());
}

TEST_F(Library, KeepsAReportReadableUntilItIsReturnedEvenAcrossARelease)
{
    BuildArguments arguments = makeArguments({fullPath("missing.wav")});
    ASSERT_EQ(initialise(arguments), TARNOK_OK);
    EXPECT_EQ(buildOnly(arguments), TARNOK_ERR_FILE_NOT_FOUND);
    const TARNOK_PROGRESSITEM* held = nullptr;
    ASSERT_EQ(Tarnok_FetchNextProgressItem(&held), TARNOK_OK);
    ASSERT_NE(held, nullptr);
    ASSERT_EQ(Tarnok_Release(), TARNOK_OK);

    arguments = makeArguments(makeSounds(2));
    ASSERT_EQ(initialise(arguments), TARNOK_OK);
    EXPECT_EQ(buildOnly(arguments), TARNOK_OK);
    EXPECT_EQ(held->state, TARNOK_STATE_FAILED);
    const std::string text = static_cast<const TARNOK_STATE_DATA_FAILED*>(held->stateData)->errorString;
    EXPECT_NE(text.find("missing.wav"), std::string::npos);
    EXPECT_EQ(Tarnok_ReleaseProgressItem(held), TARNOK_OK);
    EXPECT_EQ(Tarnok_ReleaseProgressItem(held), TARNOK_ERR_INVALID_PARAM);
    for (const Report& report : drainReports())
        EXPECT_NE(report.state, TARNOK_STATE_FAILED) << "a report of the previous build";
    EXPECT_EQ(Tarnok_Release(), TARNOK_OK);
}

TEST_F(Library, EndsThousandsOfTinyBuildsInARowCleanly)
{
    BuildArguments arguments = makeArguments(makeSounds(2, 50));
    const int threads = threadCount();
    ASSERT_EQ(initialise(arguments), TARNOK_OK);
    for (int i = 0; i < 2500; ++i) {
        // Some sounds are in the cache, some aren't.
        arguments.format = i % 50 == 0 ? TARNOK_FORMAT_KADPCM : TARNOK_FORMAT_PCM;
        ASSERT_EQ(buildOnly(arguments), TARNOK_OK) << i;
        if (i % 10 == 0)
            drainReports();
    }
    drainReports();
    EXPECT_EQ(Tarnok_Release(), TARNOK_OK);
    EXPECT_EQ(threadCount(), threads);
}

// Long builds that are cancelled, and how long that takes.
struct Cancelling : Library
{
    Cancelling()
    {
        arguments.adjust = [](size_t index, TARNOK_SUBSOUND& sound) {
            sound.desiredSampleRate = index % 2 ? 32000 : 0;
        };
        arguments.flags = TARNOK_BUILD_WRITEPEAKVOLUME;
    }

    // On a busy machine a few waits are long. They don't take more processor time though, so each of them must keep
    // that limit.
    ~Cancelling() override
    {
        EXPECT_EQ(threadCount(), threads);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        std::ranges::sort(waits);
        EXPECT_LE(waits[waits.size() * 9 / 10], 200);
        EXPECT_LE(mostWork, 200);
#endif
    }

    // A build during which cancel() is called. False: the build was complete before.
    bool isBuildCancelled()
    {
        isAsked = false;
        writeFile(arguments.output, "the bank before");
        const TARNOK_RESULT result = build(arguments).result;
        EXPECT_EQ(leftovers(), std::vector<std::string>());
        EXPECT_TRUE(result == TARNOK_OK || result == TARNOK_ERR_CANCELLED) << result;
        if (result != TARNOK_ERR_CANCELLED)
            return false;
        waits.push_back(std::chrono::duration<double, std::milli>(Clock::now() - asked).count());
        mostWork = std::max(mostWork, double(std::clock() - workBefore) * 1000 / CLOCKS_PER_SEC);
        EXPECT_EQ(readFile(arguments.output).size(), 15u);
        return true;
    }

    void cancel()
    {
        if (isAsked.exchange(true))
            return;
        asked = Clock::now();
        workBefore = std::clock();
        Tarnok_BuildCancel();
    }

    BuildArguments arguments = longSounds(3);
    const int threads = threadCount();
    std::vector<double> waits; // milliseconds
    double mostWork = 0;
    std::atomic<bool> isAsked = false;
    Clock::time_point asked;
    std::clock_t workBefore = 0;
};

constexpr TARNOK_STATE phases[] = {TARNOK_STATE_DECODING, TARNOK_STATE_ANALYSING, TARNOK_STATE_PREPROCESSING,
                                   TARNOK_STATE_ENCODING, TARNOK_STATE_WRITING};

// The cancel comes at the start of each phase, before its work.
TEST_F(Cancelling, TakesAFifthOfASecondAtTheStartOfEveryPhaseAndLeavesNoFiles)
{
    for (const TARNOK_FORMAT format : allFormats) {
        arguments.format = format;
        for (const TARNOK_STATE phase : phases) {
            for (int index = phase == TARNOK_STATE_WRITING ? -1 : 0; index < 3; ++index) {
                SCOPED_TRACE(testing::Message() << "sound " << index << ", state " << phase << ", format " << format);
                arguments.key = index == 1 ? "key" : nullptr;
                const AtMoment canceller(builder::onReport, [&](int sound, TARNOK_STATE state) {
                    if (sound == index && state == phase)
                        cancel();
                });
                EXPECT_TRUE(isBuildCancelled());
            }
        }
        for (size_t index = 0; index < 3; ++index) {
            const AtMoment canceller(builder::onCopy, [&](size_t sound) {
                if (sound == index)
                    cancel();
            });
            EXPECT_TRUE(isBuildCancelled());
        }
    }
    arguments.initFlags = TARNOK_INIT_ALWAYS;
    mustBuild(arguments);
}

// A build that ends before it is cancelled tests nothing, but isn't a failure.
TEST_F(Cancelling, TakesAFifthOfASecondWithinEveryPhase)
{
    arguments.threads = 1;
    for (const TARNOK_FORMAT format : allFormats) {
        arguments.format = format;
        for (const TARNOK_STATE phase : phases) {
            for (const int milliseconds : {1, 4, 10, 25, 60}) {
                std::jthread canceller;
                const AtMoment watcher(builder::onReport, [&](int, TARNOK_STATE state) {
                    if (state == phase && !canceller.joinable())
                        canceller = std::jthread([&] {
                            std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
                            cancel();
                        });
                });
                isBuildCancelled();
            }
        }
    }
}

TEST_F(Library, MayBeReleasedAndInitialisedAgainWhileABuildRuns)
{
    BuildArguments arguments = longSounds(4);
    arguments.format = TARNOK_FORMAT_VORBIS;
    BuildArguments next = makeArguments(makeSounds(3));
    next.output = fullPath("next.tnb");
    const int threads = threadCount();
    for (int round = 0; round < 15; ++round) {
        ASSERT_EQ(initialise(arguments), TARNOK_OK);
        std::latch reached(1);
        std::atomic<bool> isFirst = true;
        const AtMoment watcher(builder::onReport, [&](int, TARNOK_STATE state) {
            if (state == TARNOK_STATE(round % 4) && isFirst.exchange(false))
                reached.count_down();
        });
        std::jthread running([&] { EXPECT_EQ(buildOnly(arguments), TARNOK_ERR_CANCELLED); });
        reached.wait();
        EXPECT_EQ(buildOnly(next), TARNOK_ERR_INITIALIZED) << "a second build at the same time";
        EXPECT_EQ(Tarnok_Release(), TARNOK_OK);
        EXPECT_LE(threadCount(), threads + 1) << "only the caller's thread may remain";
        mustBuild(next);
        running.join();
        EXPECT_EQ(leftovers(), std::vector<std::string>());
    }
    EXPECT_FALSE(fs::exists(arguments.output));
}
