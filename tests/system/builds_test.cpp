// Build jobs, the progress monitor and the build system, over the scripted builder.
#include "system_test.hpp"

#include <QSignalSpy>
#include <QThread>

using namespace TARNOK;

namespace {

class Jobs : public tests::SystemTest
{ };

TEST_F(Jobs, FreezeTheBankInTheLibrarysLayout)
{
    SoundBank* bank = makeBank(1);
    bank->setOutputFilePath(path("Größe.tnb"));
    bank->setEncryptionKey("ключ");
    bank->profile().setFormat(TARNOK_FORMAT_VORBIS);
    bank->profile().setQuality(42);
    bank->profile().setBuildFlags(TARNOK_BUILD_DONTLOOP | TARNOK_BUILD_WRITEPEAKVOLUME);
    Subsound* merged = bank->newItem();
    for (const char* name : {"l.wav", "r.wav", "größer.wav"})
        ASSERT_TRUE(merged->addFile(makeSound(name)));
    merged->setQuality(70);
    merged->overrideBuildFlag(TARNOK_BUILD_DONTLOOP, false); // on in the bank: reversed
    merged->overrideBuildFlag(TARNOK_BUILD_WRITEPEAKVOLUME, true); // on in the bank: as wanted
    merged->overrideBuildFlag(TARNOK_BUILD_DISABLESYNCPOINTS, true); // off in the bank: reversed
    merged->overrideBuildFlag(TARNOK_BUILD_OPTIMIZESAMPLERATE, false); // off in the bank: as wanted

    BuildContext context;
    ASSERT_TRUE(context.construct(bank));
    bank->unload();
    context.run();
    EXPECT_TRUE(context.finished());
    const fakes::BuildCall call = builder().builds().at(0);
    EXPECT_EQ(call.format, TARNOK_FORMAT_VORBIS);
    EXPECT_EQ(call.quality, 42u);
    EXPECT_EQ(call.buildFlags, TARNOK_BUILD_DONTLOOP | TARNOK_BUILD_WRITEPEAKVOLUME);
    EXPECT_EQ(call.outputFile, path("Größe.tnb").toStdString());
    EXPECT_EQ(call.encryptionKey, "ключ");
    ASSERT_EQ(call.subsounds.size(), 2u);
    EXPECT_EQ(call.subsounds[0].overrideQuality, 0u);
    EXPECT_EQ(call.subsounds[0].overrideFlags, 0u);
    EXPECT_EQ(call.subsounds[1].overrideQuality, 70u);
    EXPECT_EQ(call.subsounds[1].overrideFlags, TARNOK_BUILD_DONTLOOP | TARNOK_BUILD_DISABLESYNCPOINTS);
    EXPECT_EQ(call.subsounds[1].desiredSampleRate, 0.0f);
    EXPECT_EQ(call.subsounds[1].files,
              (std::vector<std::string>{path("l.wav").toStdString(), path("r.wav").toStdString(),
                                        path("größer.wav").toStdString()}));
}

TEST_F(Jobs, HandOverNoKeyWhenThereIsNone)
{
    BuildContext context;
    ASSERT_TRUE(context.construct(makeBank(1)));
    context.run();
    EXPECT_FALSE(builder().builds().at(0).encryptionKey);
}

TEST_F(Jobs, AbortOnWhatTheModelShouldNeverHold)
{
    SoundBank* bank = makeBank(1);
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

class Monitor : public tests::SystemTest
{
protected:
    void prepare(int sounds)
    {
        mContext.construct(makeBank(sounds));
        mMonitor.prepare(sounds);
    }

    // Lines that these reports bring, at their priorities and above.
    QStringList report(const std::vector<fakes::Report>& reports,
                       Logger::OUTPUTPRIORITY threshold = Logger::OUTPUT_NOTICE)
    {
        for (const fakes::Report& item : reports)
            builder().post(item);
        return linesOf([&] { mMonitor.updateInternal(&mContext); }, threshold);
    }

    BuildContext mContext;
    ProgressMonitor mMonitor;
};

TEST_F(Monitor, LogsEachSoundOnceAtFirstSight)
{
    prepare(3);
    EXPECT_EQ(report({{0, 7, TARNOK_STATE_DECODING}, {0, 7, TARNOK_STATE_ENCODING}, {1, 8, TARNOK_STATE_FINISHED}}),
              (QStringList{"0: (sound0.wav) [processing]", "1: (sound1.wav) [cached]"}));
    EXPECT_EQ(report({{0, 7, TARNOK_STATE_FINISHED}, {1, 8, TARNOK_STATE_WRITING}, {-1, 9, TARNOK_STATE_FINISHED}}),
              QStringList());
    EXPECT_EQ(report({{2, 7, TARNOK_STATE_FAILED, "disk \xC3\xA4rger"}}, Logger::OUTPUT_ERROR),
              QStringList("ERROR: Subsound 2 (sound2.wav) failed: disk ärger"));
    EXPECT_EQ(report({{-1, 7, TARNOK_STATE_FAILED, "no space"}}, Logger::OUTPUT_ERROR),
              QStringList("ERROR: Soundbank failed: no space"));
    EXPECT_EQ(report({{-1, 7, TARNOK_STATE_WRITING}}, Logger::OUTPUT_WARNING), QStringList());
    EXPECT_EQ(report({{-1, 7, TARNOK_STATE_WRITING}}), QStringList("Writing out TNB file"));

    SoundBank* bank = makeBank(1);
    bank->first()->addFile(makeSound("sub/größer.wav"));
    mContext.construct(bank);
    mMonitor.prepare(1);
    EXPECT_EQ(report({{0, 1, TARNOK_STATE_DECODING}}), QStringList("0: (sound0.wav, größer.wav) [processing]"));
    EXPECT_EQ(report({{0, 1, TARNOK_STATE_FAILED, "x"}}),
              QStringList("ERROR: Subsound 0 (sound0.wav, größer.wav) failed: x"));
}

TEST_F(Monitor, TurnsStatesIntoOneFraction)
{
    prepare(4);
    EXPECT_EQ(mMonitor.progress(), 0.0f);
    report({{0, 1, TARNOK_STATE_FINISHED}, {1, 1, TARNOK_STATE_FINISHED}, {2, 1, TARNOK_STATE_ENCODING}});
    EXPECT_FLOAT_EQ(mMonitor.progress(), 0.65f);
    report({{3, 1, TARNOK_STATE_DECODING}}); // takes over the worker: sound 2 loses its share
    EXPECT_FLOAT_EQ(mMonitor.progress(), 0.5f);
    report({{0, 2, TARNOK_STATE_WRITING}}); // a sound that had ended reports again
    EXPECT_FLOAT_EQ(mMonitor.progress(), 0.25f + 0.25f * 0.8f);
    for (int i = 0; i < 3; ++i)
        report({{2, 1, TARNOK_STATE_FAILED, "again"}, {3, 1, TARNOK_STATE_FAILED, "again"}});
    EXPECT_EQ(mMonitor.progress(), 1.0f) << "never more than all";
    report({{-1, 1, TARNOK_STATE_WRITING}});
    EXPECT_EQ(mMonitor.progress(), -1.0f);
    mMonitor.prepare(4);
    EXPECT_EQ(mMonitor.progress(), 0.0f);

    EXPECT_STREQ(mMonitor.stateToString(TARNOK_STATE_ANALYSING), "analysing");
    EXPECT_STREQ(mMonitor.stateToString(TARNOK_STATE(7)), "");
}

TEST_F(Monitor, HandsEveryReportBackOnce)
{
    prepare(3);
    report({{0, 1, TARNOK_STATE_DECODING}, {1, 2, TARNOK_STATE_DECODING}});
    EXPECT_EQ(builder().itemsHeld(), 2u);
    report({{0, 1, TARNOK_STATE_ENCODING}, {1, 2, TARNOK_STATE_FINISHED}, {-1, 3, TARNOK_STATE_FAILED, "x"}});
    EXPECT_EQ(builder().itemsHeld(), 1u);
    mMonitor.prepare(1);
    EXPECT_EQ(builder().itemsHeld(), 0u);
    EXPECT_FALSE(builder().misused());
}

TEST_F(Monitor, AbortsOnASoundThatIsNotInTheBuild)
{
    prepare(1);
    for (const int index : {1, -2})
        EXPECT_DEATH(report({{index, 1, TARNOK_STATE_DECODING}}), "index < mNumSubsounds");
}

class Builds : public tests::SystemTest
{
protected:
    static void runToTheEnd()
    {
        while (buildSystem()->update())
            QThread::msleep(1);
    }

    void build(const SoundBank* bank)
    {
        buildSystem()->enqueueBuild(bank);
        runToTheEnd();
    }
};

TEST_F(Builds, InitialiseTheLibraryOnlyWhenSomethingChanged)
{
    SoundBank* bank = makeBank(1);
    build(bank);
    builder().reset();

    const auto initsOf = [&](const std::function<void()>& change) {
        const size_t before = builder().inits().size();
        change();
        build(bank);
        EXPECT_EQ(builder().releases(), builder().inits().size());
        return builder().inits().size() - before;
    };
    EXPECT_EQ(initsOf([] {}), 0u);
    EXPECT_EQ(initsOf([] { buildSystem()->setInitFlag(TARNOK_INIT_REBUILD, true); }), 1u);
    EXPECT_EQ(builder().inits().back().flags & TARNOK_INIT_REBUILD, TARNOK_INIT_REBUILD);
    EXPECT_EQ(builder().inits().back().flags & TARNOK_INIT_ALWAYS, TARNOK_INIT_ALWAYS);
    EXPECT_EQ(initsOf([] { buildSystem()->setInitFlag(TARNOK_INIT_REBUILD, true); }), 0u);
    EXPECT_EQ(initsOf([] { buildSystem()->setInitFlag(TARNOK_INIT_REBUILD, false); }), 1u);
    EXPECT_EQ(initsOf([] { buildSystem()->setThreadCount(buildSystem()->threadCount() + 1); }), 1u);
    EXPECT_EQ(builder().inits().back().threadCount, buildSystem()->threadCount());
    EXPECT_EQ(Singleton<System>::instance()->getValue("ThreadCount"), int(buildSystem()->threadCount()));
    EXPECT_EQ(initsOf([] { buildSystem()->setGenerateCodeHeader(!buildSystem()->generateCodeHeader()); }), 1u);
    EXPECT_EQ(initsOf([] { buildSystem()->setTNBVersion(TARNOK_TNBVERSION(1)); }), 1u);
    EXPECT_EQ(initsOf([] { buildSystem()->setTNBVersion(TARNOK_TNBVERSION_CURRENT); }), 1u);
    QDir().mkpath(path("cache"));
    EXPECT_EQ(initsOf([&] { Singleton<System>::instance()->setDir("Cache", path("cache")); }), 1u);
    EXPECT_EQ(builder().inits().back().cacheDirectory, path("cache").toStdString());
    QDir().rmdir(path("cache"));
    EXPECT_EQ(initsOf([] {}), 1u) << "a cache that vanished is replaced by the default one";
    EXPECT_FALSE(builder().misused());
}

TEST_F(Builds, ReportSuccessAndFailureInTheLog)
{
    SoundBank* bank = makeBank(1);
    builder().setReports({{0, 1, TARNOK_STATE_DECODING}, {0, 1, TARNOK_STATE_FINISHED}, {-1, 1, TARNOK_STATE_WRITING}});
    const QSignalSpy changes(buildSystem(), &BuildSystem::buildStateChanged);
    const int before = buildSystem()->succeededBuilds();
    EXPECT_EQ(linesOf([&] { build(bank); }, Logger::OUTPUT_MESSAGE),
              (QStringList{"Build started\n", "0: (sound0.wav) [processing]", "Writing out TNB file",
                           "\nSoundbank built successfully: " + path("out.tnb")}));
    EXPECT_EQ(changes.count(), 2);
    EXPECT_EQ(buildSystem()->succeededBuilds(), before + 1);
    for (const QString& line : {QString("Build started\n"), "\nSoundbank built successfully: " + path("out.tnb")})
        EXPECT_EQ(priorityOf(line, [&] { build(bank); }), Logger::OUTPUT_MESSAGE);

    for (const auto& [result, text] :
         {std::pair(1, "An expected chunk is missing from the cache, perhaps try deleting cache files."),
          {2, "The build process was cancelled during compilation by the user."},
          {16, "Source file is too short for seamless looping. Looping disabled."},
          {22, "TARNOK_BUILD_ALIGN4K flag ignored: feature only supported by Opus, Vorbis, and KADPCM formats."},
          {23, "Unknown error."}}) {
        builder().setBuildResult(TARNOK_RESULT(result));
        EXPECT_EQ(priorityOf("ERROR: \nBuild failed: " + path("out.tnb") + "\n\t" + text, [&] { build(bank); }),
                  Logger::OUTPUT_ERROR);
    }
}

TEST_F(Builds, RefuseInvalidBanksBeforeASecondBuild)
{
    QSignalSpy changes(buildSystem(), &BuildSystem::buildStateChanged);
    buildSystem()->enqueueBuild(nullptr);
    EXPECT_EQ(linesOf([&] { buildSystem()->enqueueBuild(makeBank(0)); }),
              QStringList("soundbank contains no subsounds"));
    EXPECT_FALSE(buildSystem()->isBuilding());
    EXPECT_EQ(changes.count(), 0);
    EXPECT_FALSE(buildSystem()->update());

    builder().stallBuilds();
    buildSystem()->enqueueBuild(makeBank(1));
    EXPECT_TRUE(buildSystem()->isBuilding());
    SoundBank* second = makeBank(1);
    EXPECT_EQ(linesOf([&] { buildSystem()->enqueueBuild(workspace()->first()); }),
              QStringList("soundbank contains no subsounds"));
    EXPECT_EQ(priorityOf("ERROR: Build already in progress", [&] { buildSystem()->enqueueBuild(second); }),
              Logger::OUTPUT_ERROR);
    builder().resume();
    runToTheEnd();
    EXPECT_EQ(builder().builds().size(), 1u);
}

TEST_F(Builds, CancelAtOnceAndReportWhenTheLibraryHasReturned)
{
    EXPECT_EQ(priorityOf("No build to cancel", [] { buildSystem()->cancelBuild(); }), Logger::OUTPUT_INFO);

    builder().stallBuilds();
    SoundBank* bank = makeBank(1);
    const QStringList lines = linesOf(
        [&] {
            buildSystem()->enqueueBuild(bank);
            builder().waitForStarted(1);
            buildSystem()->cancelBuild();
            EXPECT_FALSE(buildSystem()->isBuilding());
            runToTheEnd();
        },
        Logger::OUTPUT_MESSAGE);
    EXPECT_EQ(lines,
              (QStringList{"Build started\n", "Build cancelled",
                           "ERROR: \nBuild failed: " + path("out.tnb")
                               + "\n\tThe build process was cancelled during compilation by the user."}));
    EXPECT_GE(builder().cancels(), 1u);
}

TEST_F(Builds, AreCancelledEvenBeforeTheirThreadHasReachedTheLibrary)
{
    builder().stallBuilds();
    SoundBank* bank = makeBank(1);
    const int before = buildSystem()->succeededBuilds();
    for (int i = 0; i < 200; ++i) {
        buildSystem()->enqueueBuild(bank);
        buildSystem()->cancelBuild();
        runToTheEnd();
    }
    EXPECT_EQ(buildSystem()->succeededBuilds(), before);
}

TEST_F(Builds, StartTheNextJobWhenACancelledOneHasEnded)
{
    builder().stallBuilds();
    SoundBank* bank = makeBank(1);
    buildSystem()->enqueueBuild(bank);
    builder().waitForStarted(1);
    buildSystem()->cancelBuild();
    buildSystem()->enqueueBuild(bank);
    EXPECT_TRUE(buildSystem()->isBuilding());
    builder().waitForFinished(1);

    bool more = true;
    while (builder().builds().size() < 2 && more)
        more = buildSystem()->update();
    EXPECT_TRUE(more) << "the second job was started by the call that ended the first";
    builder().resume();
    runToTheEnd();
    EXPECT_EQ(builder().builds().size(), 2u);
}

TEST_F(Builds, NeverRunAJobTwice)
{
    SoundBank* bank = makeBank(1);
    buildSystem()->enqueueBuild(bank);
    builder().waitForFinished(1);
    buildSystem()->cancelBuild();
    QThread::msleep(20); // the thread is gone by now, the job is still the head of the queue
    buildSystem()->enqueueBuild(bank);
    runToTheEnd();
    EXPECT_EQ(builder().builds().size(), 2u);
}

TEST_F(Builds, EndCleanlyHoweverQuicklyTheyFollowEachOther)
{
    SoundBank* bank = makeBank(1);
    builder().setReports({{0, 1, TARNOK_STATE_DECODING}, {0, 1, TARNOK_STATE_FINISHED}});
    logger()->setVerbosity(Logger::OUTPUT_SILENT);
    constexpr int COUNT = 10000;
    const int before = buildSystem()->succeededBuilds();
    for (int i = 0; i < COUNT; ++i) {
        buildSystem()->enqueueBuild(bank);
        while (buildSystem()->update())
            QThread::yieldCurrentThread();
    }
    EXPECT_EQ(buildSystem()->succeededBuilds(), before + COUNT);
    EXPECT_FALSE(builder().misused());
    EXPECT_LE(builder().itemsHeld(), 1u);
}

TEST_F(Builds, EndTheProcessWhenTheLibraryRefusesToStart)
{
    SoundBank* bank = makeBank(1);
    buildSystem()->setInitFlag(TARNOK_INIT_REBUILD, true);
    builder().setInitResult(TARNOK_ERR_MEMORY);
    EXPECT_DEATH(buildSystem()->enqueueBuild(bank), "result == TARNOK_OK");

    builder().setInitResult(TARNOK_OK);
    builder().setReleaseResult(TARNOK_ERR_FILE_OS);
    build(bank); // the library is up now
    const QStringList lines = linesOf([&] {
        buildSystem()->setInitFlag(TARNOK_INIT_REBUILD, false);
        build(bank);
    });
    EXPECT_TRUE(lines.contains("ERROR: An error occured while releasing the lib: An operating system based file error "
                               "was encountered."));
}

} // namespace
