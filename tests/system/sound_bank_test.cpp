#include "system_test.hpp"

using namespace TARNOK;

namespace {

class SourceFiles : public tests::SystemTest
{ };

class SoundBanks : public tests::SystemTest
{ };

class Validator : public tests::SystemTest
{
protected:
    static bool isValid(const QString& file)
    {
        return Singleton<SoundFileValidator>::instance()->isValid(file, nullptr, nullptr, nullptr, nullptr);
    }
};

TEST_F(SourceFiles, RoundTheirSizeToKilobytes)
{
    SourceFile file(nullptr);
    for (const auto& [bytes, kilobytes] :
         {std::pair(0, 0.0f), {511, 0}, {512, 1}, {1535, 1}, {1536, 2}, {1048576, 1024}}) {
        file.setFile(QFile(writeFile("size.wav", QByteArray(bytes, 'x'))), 0, 0, 0, KESS_SOUND_FORMAT_NONE);
        EXPECT_EQ(file.fileSizeCurrent(), kilobytes) << bytes;
    }
}

TEST_F(SourceFiles, JoinTheirPathAsTheyTookItApart)
{
    SourceFile file(nullptr);
    for (const auto& [given, location, name, type, whole] :
         {std::tuple("/x/y/FOO.WAV", "/x/y", "FOO", "wav", "/x/y/FOO.wav"),
          {"/x/y/noext", "/x/y", "noext", "", "/x/y/noext."},
          {"a.wav", ".", "a", "wav", "./a.wav"},
          {"d/a.b.Ogg", "d", "a.b", "ogg", "d/a.b.ogg"}}) {
        file.setFile(QFile(given), 0, 0, 0, KESS_SOUND_FORMAT_NONE);
        EXPECT_EQ(file.fileLocation(), location);
        EXPECT_EQ(file.fileName(), name);
        EXPECT_EQ(file.fileType(), type);
        EXPECT_EQ(file.wholePath(), whole);
    }
}

TEST_F(SourceFiles, AddUpInAnInterleavedSubsound)
{
    Subsound subsound(nullptr);
    EXPECT_FALSE(subsound.addFile(""));
    EXPECT_FALSE(subsound.addFile("missing.wav"));
    EXPECT_TRUE(subsound.isEmpty());
    EXPECT_EQ(subsound.fileName(), "");
    EXPECT_EQ(subsound.length_ms(), 0);

    ASSERT_TRUE(subsound.addFile(makeSound("left.wav", {.channels = 2, .hertz = 48000, .milliseconds = 1000})));
    EXPECT_EQ(subsound.fileType(), "wav");
    ASSERT_TRUE(subsound.addFile(makeSound("right.wav", {.channels = 1, .milliseconds = 3000, .format = 5})));
    EXPECT_EQ(subsound.fileName(), "left");
    EXPECT_EQ(subsound.fileType(), "");
    EXPECT_EQ(subsound.fileLocation(), "");
    EXPECT_EQ(subsound.channelCount(), 3);
    EXPECT_EQ(subsound.length_ms(), 3000);
    EXPECT_EQ(subsound.sampleRate(), 48000);
    EXPECT_EQ(subsound.format(), KESS_SOUND_FORMAT_PCM16);
}

TEST_F(SoundBanks, SplitAndJoinTheOutputPath)
{
    QDir().mkpath(path("there"));
    using Text = QString;
    for (const Text former : {"", "old"}) {
        const Text ending = former.isEmpty() ? "" : "." + former;
        // A type of "*": the former one stays.
        for (const auto& [given, location, name, type, joined] :
             {std::tuple<Text, Text, Text, Text, Text>("/a/b/c.tnb", "/a/b", "c", "tnb", "/a/b/c.tnb"),
              {"/a/b/c.d.e", "/a/b", "c", "d.e", "/a/b/c.d.e"},
              {"/a/b/c", "/a/b", "c", "*", "/a/b/c" + ending},
              {"bank.tnb", "", "bank.tnb", "*", "bank.tnb" + ending},
              {"bank.", "", "bank", "", "bank"},
              {"d/bank.tnb", "d", "bank", "tnb", "d/bank.tnb"},
              {"/c.tnb", "", "c", "tnb", "c.tnb"},
              {path("there"), path("there"), "first", "*", path("there") + "/first" + ending},
              {path("there") + "/", path("there") + "/", "first", "*", path("there") + "//first" + ending},
              {"", "", "first", "*", "first" + ending}}) {
            SoundBank bank(nullptr);
            bank.setOutputFilePath("/first/first" + ending);
            bank.makeClean();
            bank.setOutputFilePath(given);
            EXPECT_EQ(bank.fileLocation(), location) << given.toStdString();
            EXPECT_EQ(bank.fileName(), name) << given.toStdString();
            EXPECT_EQ(bank.fileType(), type == "*" ? former : type) << given.toStdString();
            EXPECT_EQ(bank.outputFilePath(), joined) << given.toStdString();
        }
    }

    SoundBank bank(nullptr);
    bank.setOutputFilePath("/a/b.tnb");
    bank.makeClean();
    bank.setOutputFilePath("/a/b.tnb");
    EXPECT_FALSE(bank.isDirty());
    bank.setOutputFilePath("b");
    EXPECT_FALSE(bank.isDirty()) << "losing the directory is no change of its own";
    bank.setOutputFilePath("/a/bank.tnb");
    bank.setOutputFilePath("bank.tnb");
    EXPECT_EQ(bank.outputFilePath(), "bank.tnb") << "a name that carries the type doesn't get it twice";
}

TEST_F(SoundBanks, RefuseFilesThatAreNoSounds)
{
    SoundBank* bank = makeBank(0);
    for (const auto& [file, name] : {std::pair("/some/where/bad.wav", "bad.wav"),
                                     {"c:\\x\\bad.wav", "bad.wav"},
                                     {"bad.wav", "bad.wav"},
                                     {"a\\b/c", "c"},
                                     {"", ""}}) {
        const QString line = QString("ERROR: invalid file: '%1'").arg(name);
        EXPECT_EQ(priorityOf(line, [&] { EXPECT_EQ(bank->addSubsound(file), nullptr); }), Logger::OUTPUT_ERROR);
    }
    EXPECT_FALSE(bank->isDirty());
}

TEST_F(SoundBanks, ValidateNameThenContentThenProfile)
{
    SoundBank bank(nullptr);
    EXPECT_EQ(priorityOf("No output file name specified for this soundbank", [&] { EXPECT_FALSE(bank.validate()); }),
              Logger::OUTPUT_WARNING);
    bank.setOutputFilePath("/a/b");
    EXPECT_EQ(priorityOf("soundbank contains no subsounds", [&] { EXPECT_FALSE(bank.validate()); }),
              Logger::OUTPUT_WARNING);
    bank.addSubsound(makeSound("a.wav"));
    EXPECT_TRUE(bank.validate());
    bank.profile().setFormat(TARNOK_FORMAT(6));
    EXPECT_TRUE(bank.validate()) << "one beyond the last format passes";
    bank.profile().setFormat(TARNOK_FORMAT(7));
    EXPECT_TRUE(linesOf([&] { EXPECT_FALSE(bank.validate()); }).isEmpty());
}

TEST_F(SoundBanks, TakeOverAProfileFieldByField)
{
    SoundProfile source;
    SoundProfile target;
    EXPECT_EQ(target.quality(), 100u);
    target.makeClean();
    target.clone(source);
    EXPECT_FALSE(target.isDirty());
    source.setQuality(0);
    source.setFormat(TARNOK_FORMAT_OPUS);
    source.setBuildFlag(TARNOK_BUILD_NOGUID, true);
    target.clone(source);
    EXPECT_TRUE(target.isDirty());
    EXPECT_EQ(target.quality(), 0u);
    EXPECT_EQ(target.format(), TARNOK_FORMAT_OPUS);
    EXPECT_EQ(target.buildFlags(), TARNOK_BUILD_NOGUID);
    EXPECT_DEATH(target.setQuality(101), "MIN_QUALITY <= quality && quality <= MAX_QUALITY");
}

TEST_F(Validator, AcceptsSoundsAndRefusesWhatHoldsNoSamples)
{
    for (int type = 0; type <= 20; ++type) {
        const bool refused = QList<int>{3, 5, 6, 7, 8, 11, 13, 16}.contains(type);
        const QString file = makeSound("type.dat", {.type = type});
        EXPECT_EQ(priorityOf("unsupported format", [&] { EXPECT_EQ(isValid(file), !refused) << type; }),
                  refused ? int(Logger::OUTPUT_INFO) : -1);
    }
    Singleton<SoundFileValidator>::instance()->setAllowTnbFiles(true);
    EXPECT_TRUE(isValid(makeSound("old.tnb", {.type = KESS_SOUND_TYPE_TNB})));
}

TEST_F(Validator, TriesAgainWithoutTheHintOfTheSuffix)
{
    Subsound subsound(nullptr);
    ASSERT_TRUE(
        subsound.addFile(makeSound("really.mp3", {.channels = 2, .hertz = 22050, .milliseconds = 77, .format = 4})));
    EXPECT_EQ(subsound.sampleRate(), 22050);
    EXPECT_EQ(subsound.channelCount(), 2);
    EXPECT_EQ(subsound.length_ms(), 77);
    EXPECT_EQ(subsound.format(), KESS_SOUND_FORMAT_PCM32);

    for (const auto& [name, type] : {std::pair("a.aifc", KESS_SOUND_TYPE_AIFF),
                                     {"a.wmv", KESS_SOUND_TYPE_ASF},
                                     {"a.b.tnb", KESS_SOUND_TYPE_TNB},
                                     {"a.WAV", KESS_SOUND_TYPE_UNKNOWN},
                                     {"wav", KESS_SOUND_TYPE_UNKNOWN}})
        EXPECT_EQ(getTypeFromFileExtension(name), type) << name;
}

TEST_F(Validator, NamesTheFaultOfAFileQuietly)
{
    const auto check = [](const QString& file) {
        return [=] {
            EXPECT_FALSE(isValid(file));
        };
    };
    EXPECT_TRUE(linesOf(check("")).isEmpty());
    EXPECT_EQ(priorityOf("(18) File not found.", check("gone.wav")), Logger::OUTPUT_DEBUG);
    EXPECT_EQ(linesOf(check(writeFile("x.wav", "text"))), QStringList("(19) Unsupported file or audio format."));
    for (const auto& [result, text] :
         {std::pair(13, "(13) Error loading file."),
          {14,
           "(14) Couldn't perform seek operation.  This is a limitation of the medium (ie netstreams) or the file "
           "format."},
          {64,
           "(64) The sound created exceeds the allowable input channel count.  This can be increased using the "
           "'maxinputchannels' parameter in System::setSoftwareFormat."},
          {69, "(69) The version number of this file format is not supported."}})
        EXPECT_EQ(linesOf(check(makeSound("bad.wav", {.result = result}))), QStringList(text));
}

TEST_F(Validator, AbortsWhenTheEngineItselfFails)
{
    EXPECT_DEATH(isValid(makeSound("odd.wav", {.result = 38})), "ASSERT");
}

} // namespace
