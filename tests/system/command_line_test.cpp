// The arguments' grammar, the switches, and the population of a bank; the whole tool is tested as a program.
#include "command_line.hpp"
#include "system_test.hpp"

#include <memory>

using namespace TARNOK;

namespace {

class CommandLines : public tests::SystemTest
{
protected:
    struct Parsed
    {
        bool ok;
        QStringList sources;
        QString destination;
        QStringList args; // "name=value"
    };

    // argv as a person would type it, separated by blanks.
    void setArguments(const QByteArray& line)
    {
        mWords = ("tarnokexcl " + line).simplified().split(' ');
        mArguments.clear();
        for (QByteArray& word : mWords)
            mArguments.append(word.data());
    }

    Parsed parse(const QByteArray& line)
    {
        setArguments(line);
        QList<QString> sources;
        QString destination;
        QList<CommandLine::Arg> args;
        const bool ok = commandLine().parseArgs(static_cast<int>(mArguments.size()), mArguments.data(), &sources,
                                                &destination, &args);
        QStringList shown;
        for (const CommandLine::Arg& arg : args)
            shown.append(QString("%1=%2").arg(arg.name, arg.value));
        for (QString& source : sources)
            source = QDir::current().relativeFilePath(source);
        return {ok, sources, destination, shown};
    }

    // The singleton has the switches; its flags are as the tests of this process left them.
    static CommandLine& commandLine() { return *Singleton<CommandLine>::instance(); }

    bool runSwitch(const QByteArray& line, SoundBank* bank)
    {
        setArguments(line);
        QList<QString> sources;
        QString destination;
        QList<CommandLine::Arg> args;
        commandLine().parseArgs(static_cast<int>(mArguments.size()), mArguments.data(), &sources, &destination, &args);
        const bool prepopulated = commandLine().processPrepopulateArgs(&args);
        return commandLine().processArgs(args, bank) && prepopulated;
    }

    QList<QByteArray> mWords;
    QList<char*> mArguments;
};

using CommandLinesDeath = CommandLines;

TEST_F(CommandLines, AreCutByTheFormOfTheArguments)
{
    struct Case
    {
        const char* line;
        bool ok;
        QStringList sources;
        QString destination;
        QStringList args;
    };
    for (const Case& c : {Case{"", true, {}, "", {}},
                          {"-o out.tnb src.wav", true, {"src.wav"}, "out.tnb", {}},
                          {"src.wav -o out.tnb", true, {"src.wav"}, "out.tnb", {}},
                          {"a.wav -o out", true, {"a.wav"}, "", {"o=out"}},
                          {"-o out a.wav", true, {}, "a.wav", {}},
                          {"a.wav -o", true, {"a.wav"}, "", {"o="}},
                          {"-optimize_samplerate x.wav", true, {}, "x.wav", {}},
                          {"-O x.wav", true, {"x.wav"}, "", {"O="}},
                          {"-o a.tnb -o b.tnb", false, {}, "b.tnb", {}},
                          {"a.wav b.wav", false, {"a.wav"}, "", {}},
                          {"-cache_dir ./cache a.wav", true, {"cache"}, "", {"cache_dir=a.wav"}},
                          {"a.wav -cache_dir ./cache", true, {"a.wav"}, "", {"cache_dir=./cache"}},
                          {"a.wav -cache_dir /tmp/c", true, {"a.wav"}, "", {"cache_dir=", "tmp/c="}},
                          {"/help", true, {}, "", {"help="}},
                          {"-q -5", true, {}, "", {"q=", "5="}},
                          {"-q -1.5", true, {"-1.5"}, "", {"q="}},
                          {"-o foo x.tnb -rebuild", true, {}, "x.tnb", {"rebuild=foo"}},
                          {"- x", true, {}, "", {"=x"}},
                          {"-q 5 6", false, {}, "", {"q=5"}},
                          {"sounds -q 5", false, {}, "", {"q=5"}},
                          {"--help .wav", true, {}, "", {"-help=.wav"}}}) {
        const Parsed parsed = parse(c.line);
        EXPECT_EQ(parsed.ok, c.ok) << c.line;
        EXPECT_EQ(parsed.sources, c.sources) << c.line;
        EXPECT_EQ(parsed.destination, c.destination) << c.line;
        EXPECT_EQ(parsed.args, c.args) << c.line;
    }

    EXPECT_EQ(priorityOf("ERROR: Destination specified twice", [&] { parse("-o a.tnb -o b.tnb"); }),
              Logger::OUTPUT_ERROR);
    EXPECT_EQ(priorityOf("ERROR: Couldn't parse 'b.wav', is it missing a '-'?", [&] { parse("a.wav b.wav"); }),
              Logger::OUTPUT_ERROR);
    EXPECT_EQ(priorityOf("ERROR: detected two consecutive args without a '-' ('5' and '6')", [&] { parse("-q 5 6"); }),
              Logger::OUTPUT_ERROR);
    EXPECT_EQ(linesOf([&] { parse("a.wav -o b.tnb -q 5"); }, Logger::OUTPUT_INFO), QStringList());
    EXPECT_EQ(linesOf([&] { parse("a.wav -o b.tnb -q 5"); }),
              (QStringList{"\nsource:", "  " + QDir::currentPath() + "/a.wav", "destination:\n  b.tnb",
                           "args:", "  q 5", "\n"}));
}

TEST_F(CommandLines, CorrectNumbersAndKnowPriorities)
{
    int value = 0;
    EXPECT_EQ(linesOf([&] { EXPECT_TRUE(convertToInt("150", 0, 100, &value)); }),
              (QStringList{"150 is outside the bounds [0, 100]", "value changed to 100"}));
    EXPECT_EQ(value, 100);
    EXPECT_EQ(linesOf([&] { EXPECT_TRUE(convertToInt("-3", 1, 16, &value)); }, Logger::OUTPUT_WARNING),
              QStringList("value changed to 1"));
    EXPECT_EQ(linesOf([&] { EXPECT_TRUE(convertToInt("-3", 1, 16, &value)); }, Logger::OUTPUT_ERROR), QStringList());
    for (const char* text : {"many", "", "99999999999", "1.5"}) {
        value = 7;
        EXPECT_EQ(linesOf([&] { EXPECT_FALSE(convertToInt(text, 0, 100, &value)); }, Logger::OUTPUT_ERROR),
                  QStringList(QString("ERROR: could not convert '%1' to int").arg(text)));
        EXPECT_EQ(value, 0);
    }

    Logger::OUTPUTPRIORITY priority = Logger::OUTPUT_DEBUG;
    EXPECT_TRUE(stringToVerbosity("WARNING", &priority));
    EXPECT_EQ(priority, Logger::OUTPUT_WARNING);
    EXPECT_EQ(linesOf([&] { EXPECT_FALSE(stringToVerbosity("notice", &priority)); }, Logger::OUTPUT_ERROR),
              QStringList("ERROR: unrecognised verbosity parameter 'notice'"));
    EXPECT_EQ(priority, Logger::OUTPUT_WARNING);
}

TEST_F(CommandLines, ChangeTheBankBySwitches)
{
    struct Case
    {
        const char* line;
        const char* said;
        unsigned int flags;
    };
    for (const Case& c : {Case{"-no_loop", "Looping disabled", 2},
                          {"-L", "Looping disabled", 2},
                          {"-no_seek", "XMA seeking disabled", 8},
                          {"-s", "XMA seeking disabled", 8},
                          {"-Optimize_Samplerate", "Samplerate optimization enabled", 16},
                          {"-write_peak_volume", "Output the peak volume for each subsound", 512},
                          {"-no_guid", "GUID generation disabled", 256},
                          {"-g", "GUID generation disabled", 256},
                          {"-no_hf_filter", "XMA high frequency filtering disabled", 0}}) {
        SoundBank* bank = makeBank(0);
        EXPECT_EQ(priorityOf(c.said, [&] { EXPECT_TRUE(runSwitch(c.line, bank)); }), Logger::OUTPUT_INFO) << c.line;
        EXPECT_EQ(bank->profile().buildFlags(), c.flags) << c.line;
        EXPECT_EQ(bank->profile().isDirty(), c.flags != 0) << c.line;
    }

    SoundBank* bank = makeBank(0);
    bank->profile().setBuildFlag(TARNOK_BUILD_FILTERHIGHFREQ, true);
    EXPECT_EQ(linesOf([&] { EXPECT_TRUE(runSwitch("-x -f VORBIS -q 30 -quality 150 -e secret", bank)); },
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
    SoundBank* bank = makeBank(0);
    EXPECT_EQ(linesOf([&] { EXPECT_FALSE(runSwitch("-nonsense x -no_seek y -f flac", bank)); }, Logger::OUTPUT_INFO),
              (QStringList{"\nProcessing args...", "ERROR: Unknown arg '-nonsense'", "ERROR: unexpected value 'y'",
                           "ERROR: Unable to process arg '-no_seek' with value 'y'", "no_seek ", "s ",
                           "XMA disable seeking to save memory (Xbox360 only)",
                           "ERROR: Unable to process arg '-f' with value 'flac'", "format ", "f ",
                           "<format> Target format (default = pcm)\n                     Available formats :\n"
                           "                     pcm|xma|at9|vorbis|kadpcm|opus"}));
    EXPECT_EQ(bank->profile().buildFlags(), 0u);
    EXPECT_EQ(linesOf([&] { EXPECT_FALSE(runSwitch("-build_mode I", bank)); }, Logger::OUTPUT_INFO),
              (QStringList{"ERROR: Unable to process arg '-build_mode' with value 'I'",
                           "build_mode s|i|m Build mode\n                     s = Single TNB (default)\n"
                           "                     i = Single Interleaved TNB\n                     m = Multiple TNBs",
                           "\nProcessing args..."}));

    struct Deprecated
    {
        const char* line;
        const char* said;
        int priority;
        bool accepted;
    };
    for (const Deprecated& c :
         {Deprecated{"-O 5", "ERROR: O is deprecated, use 'optimize_samplerate' instead", 5, false},
          {"-R", "ERROR: r is deprecated", 5, false},
          {"-d", "ERROR: d is deprecated", 5, false},
          {"-d 1", "ERROR: unexpected value '1'", 5, false},
          {"-h", "h is deprecated", 4, true},
          {"-p 1", "p is deprecated", 4, false},
          {"-z", "z is deprecated, use '-verbosity 0' instead", 6, true}}) {
        EXPECT_EQ(priorityOf(c.said, [&] { EXPECT_EQ(runSwitch(c.line, bank), c.accepted); }), c.priority) << c.line;
    }
    EXPECT_EQ(
        linesOf([&] { runSwitch("-p", bank); }, Logger::OUTPUT_INFO),
        (QStringList{"p is deprecated", "ERROR: Unable to process arg '-p' with value ''", "\nProcessing args..."}))
        << "a hidden switch shows no help";
}

TEST_F(CommandLines, SteerTheServicesBySwitches)
{
    SoundBank* bank = makeBank(0);
    auto* system = Singleton<System>::instance();
    EXPECT_TRUE(runSwitch("-thread_count 99", bank));
    EXPECT_EQ(system->getValue("ThreadCount"), 16);

    EXPECT_TRUE(runSwitch("x.wav -cache_dir ./fresh", bank));
    EXPECT_EQ(system->getDir("Cache"), QDir::currentPath() + "/fresh");
    for (const char* refused : {"-cache_dir", "x.wav -cache_dir ./no/such"})
        EXPECT_FALSE(runSwitch(refused, bank)) << refused;
    EXPECT_EQ(system->getDir("Cache"), QDir::currentPath() + "/fresh");

    for (int level = 0; level <= 6; ++level) {
        linesOf([&] {
            EXPECT_TRUE(runSwitch("-verbosity " + QByteArray::number(level), bank));
            EXPECT_EQ(static_cast<int>(logger()->verbosity()), 6 - level);
        });
    }
    EXPECT_EQ(linesOf([&] { runSwitch("-verbosity 7", bank); }, Logger::OUTPUT_NOTICE).mid(0, 2),
              (QStringList{"value changed to 6", "* * * debug verbosity * * *"}));

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

TEST_F(CommandLines, GatherFilesInTheOrderOfTheFileSystem)
{
    makeSound("in/a.wav");
    makeSound("in/.hidden.wav");
    makeSound("in/sub/b.wav");
    writeFile("in/notes.md", "no sound");
    QList<QString> files;
    EXPECT_TRUE(commandLine().getFileListFromPath({path("in")}, &files, QString()));
    EXPECT_EQ(QSet<QString>(files.begin(), files.end()), (QSet<QString>{path("in/a.wav"), path("in/notes.md")}));

    SoundBank* bank = nullptr;
    QStringList lines =
        linesOf([&] { EXPECT_TRUE(commandLine().populateTNB({path("in")}, &bank)); }, Logger::OUTPUT_INFO);
    EXPECT_EQ(lines,
              (QStringList{"\nGathering files...", "\nAnalysing files...", "ERROR: invalid file: 'notes.md'",
                           "skipped: '" + path("in/notes.md") + "' not a valid sound file"}));
    ASSERT_TRUE(bank);
    EXPECT_EQ(bank->size(), 1);

    commandLine().setRecursive();
    files.clear();
    commandLine().getFileListFromPath({path("in")}, &files, QString());
    EXPECT_EQ(files.last(), path("in/sub/b.wav"));

    commandLine().setInterleaved(true);
    lines = linesOf([&] { EXPECT_TRUE(commandLine().populateTNB({path("in")}, &bank)); }, Logger::OUTPUT_INFO);
    EXPECT_EQ(bank->size(), 1);
    EXPECT_EQ(bank->first()->size(), 2);
    EXPECT_EQ(lines.last(), "skipped: '" + path("in/notes.md") + "' not a valid sound file");
    QDir().mkpath(path("empty"));
    EXPECT_FALSE(commandLine().populateTNB({path("empty")}, &bank));
    EXPECT_EQ(bank->size(), 1) << "the empty subsound stays";
    commandLine().setInterleaved(false);
}

TEST_F(CommandLines, TakeASingleSourceAsAProjectFirst)
{
    ASSERT_TRUE(makeBank(2)->save(path("p.tnproj")));
    SoundBank* bank = nullptr;
    EXPECT_EQ(linesOf([&] { EXPECT_TRUE(commandLine().populateTNB({path("p.tnproj")}, &bank)); }, Logger::OUTPUT_INFO),
              (QStringList{"\nGathering files...", "Successfully loaded project " + path("p.tnproj")}));
    EXPECT_EQ(bank->size(), 2);
    EXPECT_EQ(
        linesOf([&] { EXPECT_TRUE(commandLine().populateTNB({path("sound0.wav")}, &bank)); }, Logger::OUTPUT_INFO),
        (QStringList{"\nGathering files...", "\nAnalysing files..."}))
        << "that a sound is no project is no error";
    EXPECT_EQ(bank->size(), 1);
}

TEST_F(CommandLinesDeath, AbortOnASourceThatIsMissing)
{
    QList<QString> files;
    EXPECT_DEATH(commandLine().getFileListFromPath({path("gone")}, &files, QString()),
                 "ASSERT: \"false\" in file .*src/command_line");
    SoundBank* bank = makeBank(0);
    EXPECT_DEATH(runSwitch("x.wav -profile ./gone.prof", bank), "ASSERT");
}

TEST_F(CommandLines, ShowHelpPastTheGagAndTheThreshold)
{
    logger()->setPrintToStdout();
    testing::internal::CaptureStdout();
    logger()->gag();
    logger()->setVerbosity(Logger::OUTPUT_SILENT);
    commandLine().printHelp();
    const QString help = QString::fromStdString(testing::internal::GetCapturedStdout());
    EXPECT_TRUE(help.startsWith("\nKESS SoundBank Generator version 2.03.08 (")) << help.toStdString();
    EXPECT_TRUE(help.contains("\n\nCommand line switches :\n\n-build_mode          s|i|m Build mode\n"));
    EXPECT_TRUE(help.endsWith("-no_guid             Disable GUID generation in TNB header.\n\nExamples :\n\n"
                              "tarnokexcl -o MyBank.tnb <source>\n\n"
                              "Note: A .tnproj or .lst file can be used as the source.\n"));
    QStringList shown;
    for (const QString& line : help.split('\n')) {
        if (line.startsWith('-'))
            shown.append(line.mid(1, 20).trimmed());
    }
    EXPECT_EQ(shown.join(' '),
              "build_mode ignore_errors cache_dir verbosity allow_tnb help recursive format quality encryption_key "
              "no_hf_filter no_seek no_loop generate_c_header profile thread_count optimize_samplerate "
              "write_peak_volume write_proj rebuild no_guid");
}

} // namespace
