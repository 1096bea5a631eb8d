// SPDX-License-Identifier: MIT
// Build jobs, the progress monitor and the build system, with the scripted builder.
#include "system_test.hpp"

#include <QSignalSpy>

using namespace TARNOK;

namespace {

using Jobs = tests::SystemTest;

TEST_F(Jobs, FreezeTheBankInTheLibrarysLayout)
{
    SoundBank* bank = makeBank("a l+r+größer");
    bank->setOutputFilePath(path("Größe.tnb"));
    bank->setEncryptionKey("ключ");
    bank->profile().setFormat(TARNOK_FORMAT_VORBIS);
    bank->profile().setQuality(42);
    bank->profile().setBuildFlags(TARNOK_BUILD_DONTLOOP | TARNOK_BUILD_WRITEPEAKVOLUME);
    bank->at(1)->setQuality(70);
    bank->at(1)->overrideBuildFlag(TARNOK_BUILD_DONTLOOP, false); // on in the bank, reversed by the override
    bank->at(1)->overrideBuildFlag(TARNOK_BUILD_WRITEPEAKVOLUME, true); // on in the bank, as in the override
    bank->at(1)->overrideBuildFlag(TARNOK_BUILD_DISABLESYNCPOINTS, true); // off in the bank, reversed by the override
    bank->at(1)->overrideBuildFlag(TARNOK_BUILD_OPTIMIZESAMPLERATE, false); // off in the bank, as in the override

    BuildContext context;
    ASSERT_TRUE(context.construct(bank));
    bank->unload();
    context.run();
    EXPECT_TRUE(context.finished());
    EXPECT_EQ(QString::fromStdString(builder()->builds.back()),
              QString("format 3 flags 514 quality 42 key ключ to %1Größe.tnb\nflags 0 quality 0 hertz 0 %1a.wav\n"
                      "flags 3 quality 70 hertz 0 %1l.wav %1r.wav %1größer.wav")
                  .arg(path("")));

    BuildContext open;
    ASSERT_TRUE(open.construct(makeBank()));
    open.run();
    EXPECT_NE(builder()->builds.back().find(" key - to "), std::string::npos);
}

TEST_F(Jobs, AbortOnWhatTheModelShouldNeverHold)
{
    SoundBank* bank = makeBank();
    BuildContext context;
    context.construct(bank);
    EXPECT_DEATH((void)context.subsound(1), "index < mNumSubsounds");
    bank->first()->overrideBuildFlag(0x40, true);
    EXPECT_DEATH(context.construct(bank), "\\(~TARNOK_BUILD_OVERRIDE_MASK\\)\\) == 0");
    bank->newItem();
    EXPECT_DEATH(context.construct(bank), "ASSERT");
    const char* copy = nullptr;
    EXPECT_DEATH(createCopy(&copy, ""), "len > 0");
}

struct Monitor : tests::SystemTest
{
    void prepare(const QString& sounds)
    {
        const SoundBank* bank = makeBank(sounds);
        mContext.construct(bank);
        mMonitor.prepare(int(bank->size()));
    }

    // The log lines of these reports, at the threshold and above.
    QStringList report(const std::vector<fakes::Report>& reports,
                       Logger::OUTPUTPRIORITY threshold = Logger::OUTPUT_NOTICE)
    {
        builder()->posted.insert(builder()->posted.end(), reports.begin(), reports.end());
        return loggedLines([&] { mMonitor.updateInternal(&mContext); }, threshold);
    }

    BuildContext mContext;
    ProgressMonitor mMonitor;
};

TEST_F(Monitor, LogsEachSoundOnceAtFirstSightAndAbortsOnOneThatIsNotInTheBuild)
{
    prepare("a b c");
    EXPECT_EQ(report({{0, 7, TARNOK_STATE_DECODING}, {0, 7, TARNOK_STATE_ENCODING}, {1, 8, TARNOK_STATE_FINISHED}}),
              (QStringList{"0: (a.wav) [processing]", "1: (b.wav) [cached]"}));
    EXPECT_EQ(report({{0, 7, TARNOK_STATE_FINISHED}, {1, 8, TARNOK_STATE_WRITING}, {-1, 9, TARNOK_STATE_FINISHED}}),
              QStringList());
    EXPECT_EQ(report({{2, 7, TARNOK_STATE_FAILED, "disk \xC3\xA4rger"}, {-1, 7, TARNOK_STATE_FAILED, "no space"}},
                     Logger::OUTPUT_ERROR),
              (QStringList{"ERROR: Subsound 2 (c.wav) failed: disk ärger", "ERROR: Soundbank failed: no space"}));
    EXPECT_EQ(report({{-1, 7, TARNOK_STATE_WRITING}}, Logger::OUTPUT_WARNING), QStringList());
    EXPECT_EQ(report({{-1, 7, TARNOK_STATE_WRITING}}), QStringList("Writing out TNB file"));

    prepare("a+größer");
    EXPECT_EQ(report({{0, 1, TARNOK_STATE_DECODING}, {0, 1, TARNOK_STATE_FAILED, "x"}}),
              (QStringList{"0: (a.wav, größer.wav) [processing]", "ERROR: Subsound 0 (a.wav, größer.wav) failed: x"}));
    for (const int index : {1, -2})
        EXPECT_DEATH(report({{index, 1, TARNOK_STATE_DECODING}}), "index < mNumSubsounds");
}

TEST_F(Monitor, TurnsStatesIntoOneFraction)
{
    prepare("a b c d");
    EXPECT_EQ(mMonitor.progress(), 0.0f);
    report({{0, 1, TARNOK_STATE_FINISHED}, {1, 1, TARNOK_STATE_FINISHED}, {2, 1, TARNOK_STATE_ENCODING}});
    EXPECT_FLOAT_EQ(mMonitor.progress(), 0.65f);
    report({{3, 1, TARNOK_STATE_DECODING}}); // sound 3 takes over the worker, and the share of sound 2 is gone
    EXPECT_FLOAT_EQ(mMonitor.progress(), 0.5f);
    report({{0, 2, TARNOK_STATE_WRITING}}); // a finished sound reports again
    EXPECT_FLOAT_EQ(mMonitor.progress(), 0.25f + 0.25f * 0.8f);
    for (int i = 0; i < 3; ++i)
        report({{2, 1, TARNOK_STATE_FAILED, "again"}, {3, 1, TARNOK_STATE_FAILED, "again"}});
    EXPECT_EQ(mMonitor.progress(), 1.0f) << "never above 1";
    report({{-1, 1, TARNOK_STATE_WRITING}});
    EXPECT_EQ(mMonitor.progress(), -1.0f);
    mMonitor.prepare(4);
    EXPECT_EQ(mMonitor.progress(), 0.0f);

    EXPECT_STREQ(mMonitor.stateToString(TARNOK_STATE_ANALYSING), "analysing");
    EXPECT_STREQ(mMonitor.stateToString(TARNOK_STATE(7)), "");
}

TEST_F(Monitor, ReturnsEveryReportOnce)
{
    prepare("a b c");
    report({{0, 1, TARNOK_STATE_DECODING}, {1, 2, TARNOK_STATE_DECODING}});
    EXPECT_EQ(builder()->held.size(), 2u);
    report({{0, 1, TARNOK_STATE_ENCODING}, {1, 2, TARNOK_STATE_FINISHED}, {-1, 3, TARNOK_STATE_FAILED, "x"}});
    EXPECT_EQ(builder()->held.size(), 1u);
    mMonitor.prepare(1);
    EXPECT_EQ(builder()->held.size(), 0u);
    EXPECT_FALSE(builder()->misused);
}

using Builds = tests::SystemTest;

TEST_F(Builds, InitialiseTheLibraryOnlyWhenSomethingChanged)
{
    SoundBank* bank = makeBank();
    build(bank);
    builder().reset();

    const auto countInitialisations = [&](const std::function<void()>& change) {
        const size_t before = builder()->inits.size();
        change();
        build(bank);
        EXPECT_EQ(builder()->releases, builder()->inits.size());
        return builder()->inits.size() - before;
    };
    EXPECT_EQ(countInitialisations([] {}), 0u);
    EXPECT_EQ(countInitialisations([] { buildSystem()->setThreadCount(buildSystem()->threadCount() + 1); }), 1u);
    EXPECT_EQ(builder()->inits.back().threadCount, buildSystem()->threadCount());
    EXPECT_EQ(builder()->inits.back().flags & TARNOK_INIT_ALWAYS, TARNOK_INIT_ALWAYS);
    EXPECT_EQ(settings()->getValue("ThreadCount"), int(buildSystem()->threadCount()));
    EXPECT_EQ(countInitialisations([] { buildSystem()->setGenerateCodeHeader(!buildSystem()->generateCodeHeader()); }),
              1u);
    EXPECT_EQ(countInitialisations([] { buildSystem()->setTNBVersion(TARNOK_TNBVERSION(1)); }), 1u);
    EXPECT_EQ(countInitialisations([] { buildSystem()->setTNBVersion(TARNOK_TNBVERSION_CURRENT); }), 1u);
    QDir().mkpath(path("cache"));
    EXPECT_EQ(countInitialisations([&] { settings()->setDir("Cache", path("cache")); }), 1u);
    EXPECT_EQ(builder()->inits.back().cacheDirectory, path("cache").toStdString());
    QDir().rmdir(path("cache"));
    EXPECT_EQ(countInitialisations([] {}), 1u) << "a cache that vanished is replaced by the default one";
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    EXPECT_EQ(settings()->getDir("Cache"), documents + "/KESS SoundBank Generator/Cache");
    EXPECT_TRUE(QDir(settings()->getDir("Cache")).exists());
    EXPECT_FALSE(builder()->misused);
}

TEST_F(Builds, ReportSuccessAndFailureInTheLog)
{
    SoundBank* bank = makeBank();
    builder()->reports = {{0, 1, TARNOK_STATE_DECODING}, {0, 1, TARNOK_STATE_FINISHED}, {-1, 1, TARNOK_STATE_WRITING}};
    const QStringList first = loggedLines([&] { build(bank); }, Logger::OUTPUT_MESSAGE);
    EXPECT_EQ(first,
              (QStringList{"Build started\n", "0: (a.wav) [processing]", "Writing out TNB file",
                           "\nSoundbank built successfully: " + path("Bank/out.tnb")}));
    for (const QString& line : {first.first(), first.last()})
        EXPECT_LOG(MESSAGE, line, build(bank));

    for (const auto& [result, text] :
         {std::pair(1, "An expected chunk is missing from the cache, perhaps try deleting cache files."),
          {2, "The build process was cancelled during compilation by the user."},
          {16, "Source file is too short for seamless looping. Looping disabled."},
          {22, "TARNOK_BUILD_ALIGN4K flag ignored: feature only supported by Opus, Vorbis, and KADPCM formats."},
          {23, "Unknown error."}}) {
        builder()->buildResult = TARNOK_RESULT(result);
        EXPECT_LOG(ERROR, "ERROR: \nBuild failed: " + path("Bank/out.tnb") + "\n\t" + text, build(bank));
    }
}

TEST_F(Builds, RefuseInvalidBanksBeforeASecondBuild)
{
    QSignalSpy changes(buildSystem(), &BuildSystem::buildStateChanged);
    buildSystem()->enqueueBuild(nullptr);
    EXPECT_LOG(WARNING, "soundbank contains no subsounds", buildSystem()->enqueueBuild(makeBank("")));
    EXPECT_FALSE(buildSystem()->isBuilding());
    EXPECT_EQ(changes.count(), 0);
    EXPECT_FALSE(buildSystem()->update());

    builder()->stall = true;
    buildSystem()->enqueueBuild(makeBank());
    EXPECT_TRUE(buildSystem()->isBuilding());
    SoundBank* second = makeBank();
    EXPECT_EQ(loggedLines([&] { buildSystem()->enqueueBuild(workspace()->first()); }),
              QStringList("soundbank contains no subsounds"));
    EXPECT_LOG(ERROR, "ERROR: Build already in progress", buildSystem()->enqueueBuild(second));
    builder()->stall = false;
    runToTheEnd();
    EXPECT_EQ(builder()->builds.size(), 1u);
}

TEST_F(Builds, CancelAtOnceAndReportWhenTheLibraryHasReturned)
{
    EXPECT_LOG(INFO, "No build to cancel", buildSystem()->cancelBuild());

    builder()->stall = true;
    SoundBank* bank = makeBank();
    const auto buildAndCancel = [&] {
        buildSystem()->enqueueBuild(bank);
        builder().waitUntil([] { return !builder()->builds.empty(); });
        buildSystem()->cancelBuild();
        EXPECT_FALSE(buildSystem()->isBuilding());
        runToTheEnd();
    };
    EXPECT_EQ(loggedLines(buildAndCancel, Logger::OUTPUT_MESSAGE),
              (QStringList{"Build started\n", "Build cancelled",
                           "ERROR: \nBuild failed: " + path("Bank/out.tnb")
                               + "\n\tThe build process was cancelled during compilation by the user."}));
    // Even before their threads have reached the library.
    for (int i = 0; i < 200; ++i) {
        buildSystem()->enqueueBuild(bank);
        buildSystem()->cancelBuild();
        runToTheEnd();
        ASSERT_FALSE(buildSystem()->lastBuildSucceeded());
    }
}

TEST_F(Builds, StartTheNextJobWhenACancelledOneHasEnded)
{
    builder()->stall = true;
    SoundBank* bank = makeBank();
    buildSystem()->enqueueBuild(bank);
    builder().waitUntil([] { return !builder()->builds.empty(); });
    buildSystem()->cancelBuild();
    buildSystem()->enqueueBuild(bank);
    EXPECT_TRUE(buildSystem()->isBuilding());
    builder().waitUntil([] { return builder()->finished == 1; });

    bool more = true;
    while (builder()->builds.size() < 2 && more)
        more = buildSystem()->update();
    EXPECT_TRUE(more) << "the second job was started by the call that ended the first";
    builder()->stall = false;
    runToTheEnd();
    EXPECT_EQ(builder()->builds.size(), 2u);
}

TEST_F(Builds, NeverRunAJobTwice)
{
    const auto threads = [] {
        return QDir("/proc/self/task").entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
    };
    const auto before = threads();
    SoundBank* bank = makeBank();
    buildSystem()->enqueueBuild(bank);
    builder().waitUntil([] { return builder()->finished == 1; });
    buildSystem()->cancelBuild();
    while (threads() > before) // until the thread of the job is gone, which is still the first in the queue
        QThread::msleep(1);
    buildSystem()->enqueueBuild(bank);
    runToTheEnd();
    EXPECT_EQ(builder()->builds.size(), 2u);
}

TEST_F(Builds, EndCleanlyHoweverQuicklyTheyFollowEachOther)
{
    SoundBank* bank = makeBank();
    builder()->reports = {{0, 1, TARNOK_STATE_DECODING}, {0, 1, TARNOK_STATE_FINISHED}};
    logger()->setVerbosity(Logger::OUTPUT_SILENT);
    constexpr int COUNT = 10000;
    for (int i = 0; i < COUNT; ++i) {
        buildSystem()->enqueueBuild(bank);
        while (buildSystem()->update())
            QThread::yieldCurrentThread();
        ASSERT_TRUE(buildSystem()->lastBuildSucceeded());
    }
    EXPECT_FALSE(builder()->misused);
    EXPECT_LE(builder()->held.size(), 1u);
}

TEST_F(Builds, EndTheProcessWhenTheLibraryRefusesToStart)
{
    SoundBank* bank = makeBank();
    buildSystem()->setInitFlag(TARNOK_INIT_REBUILD, true);
    builder()->initResult = TARNOK_ERR_MEMORY;
    EXPECT_DEATH(buildSystem()->enqueueBuild(bank), "result == TARNOK_OK");

    builder()->initResult = TARNOK_OK;
    builder()->releaseResult = TARNOK_ERR_FILE_OS;
    build(bank); // the library is initialised now
    const QStringList lines = loggedLines([&] {
        buildSystem()->setInitFlag(TARNOK_INIT_REBUILD, false);
        build(bank);
    });
    EXPECT_TRUE(lines.contains("ERROR: An error occured while releasing the lib: An operating system based file error "
                               "was encountered."));
}

} // namespace
