// SPDX-License-Identifier: MIT
// The grammar of the arguments, the switches, and how they fill a bank. tests/programs covers the whole tool.
#include "command_line.hpp"
#include "stop_signals.hpp"
#include "system_test.hpp"

#include <csignal>
#include <cstdio>

using namespace TARNOK;

namespace {

struct CommandLines : tests::SystemTest
{
    // Splits a line at its blanks and parses the parts. Returns the result as text: "source > destination : switches",
    // with a "!" in front after an error.
    QString parse(const QByteArray& line)
    {
        mWords = ("tarnokexcl " + line).simplified().split(' ');
        QList<char*> arguments;
        for (QByteArray& word : mWords)
            arguments.append(word.data());
        QList<QString> sources;
        QString destination;
        mArgs.clear();
        const bool ok =
            commandLine().parseArgs(int(arguments.size()), arguments.data(), &sources, &destination, &mArgs);
        QStringList switches;
        for (const CommandLine::Arg& arg : mArgs)
            switches.append(QString("%1=%2").arg(arg.name, arg.value));
        for (QString& source : sources)
            source = QDir::current().relativeFilePath(source);
        return (ok ? "" : "!") + sources.join(',') + " > " + destination + " : " + switches.join(' ');
    }

    bool runSwitch(const QByteArray& line, SoundBank* bank)
    {
        parse(line);
        const bool prepopulated = commandLine().processPrepopulateArgs(&mArgs);
        return commandLine().processArgs(mArgs, bank) && prepopulated;
    }

    // The singleton has the switches; its flags are those that earlier tests of this process have left.
    static CommandLine& commandLine() { return *Singleton<CommandLine>::instance(); }

    QList<QByteArray> mWords;
    QList<CommandLine::Arg> mArgs; // point into mWords
};

TEST_F(CommandLines, AreSplitByTheFormOfTheArguments)
{
    for (const auto& [line, parsed] : {std::pair("", " >  : "),
                                       {"-o out.tnb src.wav", "src.wav > out.tnb : "},
                                       {"src.wav -o out.tnb", "src.wav > out.tnb : "},
                                       {"a.wav -o out", "a.wav >  : o=out"},
                                       {"-o out a.wav", " > a.wav : "},
                                       {"a.wav -o", "a.wav >  : o="},
                                       {"-optimize_samplerate x.wav", " > x.wav : "},
                                       {"-O x.wav", "x.wav >  : O="},
                                       {"-o a.tnb -o b.tnb", "! > b.tnb : "},
                                       {"a.wav b.wav", "!a.wav >  : "},
                                       {"-cache_dir ./cache a.wav", "cache >  : cache_dir=a.wav"},
                                       {"a.wav -cache_dir ./cache", "a.wav >  : cache_dir=./cache"},
                                       {"a.wav -cache_dir /tmp/c", "a.wav >  : cache_dir= tmp/c="},
                                       {"/help", " >  : help="},
                                       {"-q -5", " >  : q= 5="},
                                       {"-q -1.5", "-1.5 >  : q="},
                                       {"-o foo x.tnb -rebuild", " > x.tnb : rebuild=foo"},
                                       {"- x", " >  : =x"},
                                       {"-q 5 6", "! >  : q=5"},
                                       {"sounds -q 5", "! >  : q=5"},
                                       {"--help .wav", " >  : -help=.wav"}})
        EXPECT_EQ(parse(line), parsed) << line;

    for (const auto& [line, said] : {std::pair("-o a.tnb -o b.tnb", "ERROR: Destination specified twice"),
                                     {"a.wav b.wav", "ERROR: Couldn't parse 'b.wav', is it missing a '-'?"},
                                     {"-q 5 6", "ERROR: detected two consecutive args without a '-' ('5' and '6')"}})
        EXPECT_LOG(ERROR, said, parse(line));
    EXPECT_EQ(loggedLines([&] { parse("a.wav -o b.tnb -q 5"); }, Logger::OUTPUT_INFO), QStringList());
    EXPECT_EQ(loggedLines([&] { parse("a.wav -o b.tnb -q 5"); }),
              (QStringList{"\nsource:", "  " + QDir::currentPath() + "/a.wav", "destination:\n  b.tnb",
                           "args:", "  q 5", "\n"}));
}

TEST_F(CommandLines, CorrectNumbersAndKnowPriorities)
{
    int value = 0;
    EXPECT_EQ(loggedLines([&] { EXPECT_TRUE(convertToInt("150", 0, 100, &value)); }),
              (QStringList{"150 is outside the bounds [0, 100]", "value changed to 100"}));
    EXPECT_EQ(value, 100);
    EXPECT_LOG(DEBUG, "-3 is outside the bounds [1, 16]", EXPECT_TRUE(convertToInt("-3", 1, 16, &value)));
    EXPECT_LOG(WARNING, "value changed to 1", EXPECT_TRUE(convertToInt("-3", 1, 16, &value)));
    for (const char* text : {"many", "", "99999999999", "1.5"}) {
        value = 7;
        EXPECT_LOG(ERROR, QString("ERROR: could not convert '%1' to int").arg(text),
                   EXPECT_FALSE(convertToInt(text, 0, 100, &value)));
        EXPECT_EQ(value, 0);
    }

    Logger::OUTPUTPRIORITY priority = Logger::OUTPUT_DEBUG;
    EXPECT_TRUE(stringToVerbosity("WARNING", &priority));
    EXPECT_EQ(priority, Logger::OUTPUT_WARNING);
    EXPECT_LOG(ERROR, "ERROR: unrecognised verbosity parameter 'notice'",
               EXPECT_FALSE(stringToVerbosity("notice", &priority)));
    EXPECT_EQ(priority, Logger::OUTPUT_WARNING);
}

TEST_F(CommandLines, ChangeTheBankBySwitches)
{
    for (const auto& [line, said, flags] : {std::tuple("-no_loop", "Looping disabled", 2u),
                                            {"-L", "Looping disabled", 2},
                                            {"-no_seek", "XMA seeking disabled", 8},
                                            {"-s", "XMA seeking disabled", 8},
                                            {"-Optimize_Samplerate", "Samplerate optimization enabled", 16},
                                            {"-write_peak_volume", "Output the peak volume for each subsound", 512},
                                            {"-no_guid", "GUID generation disabled", 256},
                                            {"-g", "GUID generation disabled", 256},
                                            {"-no_hf_filter", "XMA high frequency filtering disabled", 0}}) {
        SoundBank* bank = makeBank("");
        EXPECT_LOG(INFO, said, EXPECT_TRUE(runSwitch(line, bank))) << line;
        EXPECT_EQ(bank->profile().buildFlags(), flags) << line;
        EXPECT_EQ(bank->profile().isDirty(), flags != 0) << line;
    }

    SoundBank* bank = makeBank("");
    bank->profile().setBuildFlag(TARNOK_BUILD_FILTERHIGHFREQ, true);
    EXPECT_EQ(loggedLines([&] { EXPECT_TRUE(runSwitch("-x -f VORBIS -q 30 -quality 150 -e secret", bank)); },
                          Logger::OUTPUT_INFO),
              (QStringList{"\nProcessing args...", "XMA high frequency filtering disabled", "Format: Vorbis",
                           "Quality: 30", "value changed to 100", "Quality: 100", "Encryption key set to: secret"}));
    EXPECT_EQ(bank->profile().buildFlags(), 0u);
    EXPECT_EQ(bank->profile().format(), TARNOK_FORMAT_VORBIS);
    EXPECT_EQ(bank->profile().quality(), 100u);
    EXPECT_EQ(bank->encryptionKey(), "secret");
    EXPECT_TRUE(runSwitch("-encryption_key", bank));
    EXPECT_EQ(bank->encryptionKey(), "");
}

TEST_F(CommandLines, ReportWhatASwitchRefused)
{
    SoundBank* bank = makeBank("");
    EXPECT_FALSE(runSwitch("-no_seek y", bank));
    EXPECT_EQ(bank->profile().buildFlags(), 0u);
    for (const auto& [line, said, priority, accepted] :
         {std::tuple("-O 5", "ERROR: O is deprecated, use 'optimize_samplerate' instead", 5, false),
          {"-R", "ERROR: r is deprecated", 5, false},
          {"-d", "ERROR: d is deprecated", 5, false},
          {"-d 1", "ERROR: unexpected value '1'", 5, false},
          {"-h", "h is deprecated", 4, true},
          {"-p 1", "p is deprecated", 4, false},
          {"-z", "z is deprecated, use '-verbosity 0' instead", 6, true}}) {
        EXPECT_EQ(loggedPriority(said, [&] { EXPECT_EQ(runSwitch(line, bank), accepted); }), priority) << line;
    }
}

TEST_F(CommandLines, SteerTheServicesBySwitches)
{
    SoundBank* bank = makeBank("");
    EXPECT_TRUE(runSwitch("-thread_count 99", bank));
    EXPECT_EQ(settings()->getValue("ThreadCount"), 16);

    EXPECT_TRUE(runSwitch("x.wav -cache_dir ./fresh", bank));
    EXPECT_EQ(settings()->getDir("Cache"), QDir::currentPath() + "/fresh");
    for (const char* refused : {"-cache_dir", "x.wav -cache_dir ./no/such"})
        EXPECT_FALSE(runSwitch(refused, bank)) << refused;
    EXPECT_EQ(settings()->getDir("Cache"), QDir::currentPath() + "/fresh");

    for (int level = 0; level <= 6; ++level) {
        loggedLines([&] {
            EXPECT_TRUE(runSwitch("-verbosity " + QByteArray::number(level), bank));
            EXPECT_EQ(int(logger()->verbosity()), 6 - level);
        });
    }
    EXPECT_TRUE(runSwitch("-allow_tnb", bank));
    EXPECT_TRUE(Singleton<SoundFileValidator>::instance()->allowTnbFiles());
    commandLine().init();
    EXPECT_FALSE(Singleton<SoundFileValidator>::instance()->allowTnbFiles());
    logger()->ungag();

    writeFile("p.prof", "<profile><format>Opus</format><quality>9</quality></profile>");
    EXPECT_TRUE(runSwitch("x.wav -q 3 -profile ./p.prof -no_loop", bank));
    EXPECT_EQ(bank->profile().quality(), 9u);
    EXPECT_EQ(bank->profile().buildFlags(), TARNOK_BUILD_DONTLOOP);
    writeFile("bad.prof", "<profile><quality>200</quality></profile>");
    EXPECT_FALSE(runSwitch("x.wav -profile ./bad.prof", bank));
}

TEST(SignalsDeath, AreHeldBackOnceUnlessTheyWereIgnored)
{
    const auto raiseThree = [] {
        std::signal(SIGHUP, SIG_IGN);
        const StopSignals held;
        for (const int signal : {SIGHUP, SIGTERM, SIGINT}) {
            std::raise(signal);
            std::fprintf(stderr, "%d ", StopSignals::noted());
        }
    };
    EXPECT_EXIT(raiseThree(), testing::KilledBySignal(SIGINT), "^0 15 $");

    // The signal has its former effect when there is no more work to finish.
    const auto raiseUnheld = [] {
        StopSignals();
        std::raise(SIGTERM);
    };
    EXPECT_EXIT(raiseUnheld(), testing::KilledBySignal(SIGTERM), "");
}

} // namespace
