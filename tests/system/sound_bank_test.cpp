// SPDX-License-Identifier: MIT
#include "system_test.hpp"

using namespace TARNOK;

namespace {

using SourceFiles = tests::SystemTest;
using SoundBanks = tests::SystemTest;
using Validator = tests::SystemTest;

bool isValid(const QString& file)
{
    return Singleton<SoundFileValidator>::instance()->isValid(file, nullptr, nullptr, nullptr, nullptr);
}

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
    for (const auto& [given, parts] :
         {std::pair<QString, QStringList>("/x/y/FOO.WAV", {"/x/y", "FOO", "wav", "/x/y/FOO.wav"}),
          {"/x/y/noext", {"/x/y", "noext", "", "/x/y/noext."}},
          {"a.wav", {".", "a", "wav", "./a.wav"}},
          {"d/a.b.Ogg", {"d", "a.b", "ogg", "d/a.b.ogg"}}}) {
        file.setFile(QFile(given), 0, 0, 0, KESS_SOUND_FORMAT_NONE);
        EXPECT_EQ(QStringList({file.fileLocation(), file.fileName(), file.fileType(), file.wholePath()}), parts);
    }
}

TEST_F(SoundBanks, SplitAndJoinTheOutputPath)
{
    QDir().mkpath(path("there"));
    for (const QString former : {"", "old"}) {
        const QString ending = former.isEmpty() ? "" : "." + former;
        for (const auto& [given, parts] :
             {std::pair<QString, QStringList>("/a/b/c.tnb", {"/a/b", "c", "tnb", "/a/b/c.tnb"}),
              {"/a/b/c.d.e", {"/a/b", "c", "d.e", "/a/b/c.d.e"}},
              {"/a/b/c", {"/a/b", "c", former, "/a/b/c" + ending}},
              {"bank.tnb", {"", "bank.tnb", former, "bank.tnb" + ending}},
              {"bank.", {"", "bank", "", "bank"}},
              {"d/bank.tnb", {"d", "bank", "tnb", "d/bank.tnb"}},
              {"/c.tnb", {"", "c", "tnb", "c.tnb"}},
              {path("there"), {path("there"), "first", former, path("there") + "/first" + ending}},
              {path("there/"), {path("there/"), "first", former, path("there//first") + ending}},
              {"", {"", "first", former, "first" + ending}}}) {
            SoundBank bank(nullptr);
            bank.setOutputFilePath("/first/first" + ending);
            bank.setOutputFilePath(given);
            EXPECT_EQ(QStringList({bank.fileLocation(), bank.fileName(), bank.fileType(), bank.outputFilePath()}),
                      parts)
                << given.toStdString();
        }
    }

    SoundBank bank(nullptr);
    bank.setOutputFilePath("/a/b.tnb");
    bank.makeClean();
    bank.setOutputFilePath("/a/b.tnb");
    EXPECT_FALSE(bank.isDirty());
    bank.setOutputFilePath("b");
    EXPECT_FALSE(bank.isDirty()) << "losing the directory isn't a change";
    bank.setOutputFilePath("/a/bank.tnb");
    bank.setOutputFilePath("bank.tnb");
    EXPECT_EQ(bank.outputFilePath(), "bank.tnb") << "a name that ends in the extension doesn't get it twice";
}

TEST_F(SoundBanks, RefuseFilesThatAreNoSounds)
{
    SoundBank* bank = makeBank("");
    for (const auto& [file, name] : {std::pair("/some/where/bad.wav", "bad.wav"),
                                     {"c:\\x\\bad.wav", "bad.wav"},
                                     {"bad.wav", "bad.wav"},
                                     {"a\\b/c", "c"},
                                     {"", ""}}) {
        const QString line = QString("ERROR: invalid file: '%1'").arg(name);
        EXPECT_LOG(ERROR, line, EXPECT_EQ(bank->addSubsound(file), nullptr));
    }
    EXPECT_FALSE(bank->isDirty());
    Subsound subsound(nullptr);
    EXPECT_FALSE(subsound.addFile("missing.wav"));
    EXPECT_EQ(std::tuple(subsound.isEmpty(), subsound.fileName(), subsound.length_ms()), std::tuple(true, "", 0));
}

TEST_F(SoundBanks, ValidateNameThenContentThenProfile)
{
    SoundBank bank(nullptr);
    EXPECT_LOG(WARNING, "No output file name specified for this soundbank", EXPECT_FALSE(bank.validate()));
    bank.setOutputFilePath("/a/b");
    EXPECT_LOG(WARNING, "soundbank contains no subsounds", EXPECT_FALSE(bank.validate()));
    bank.addSubsound(makeSound("a.wav"));
    EXPECT_TRUE(bank.validate());
    bank.profile().setFormat(TARNOK_FORMAT(6));
    EXPECT_TRUE(bank.validate()) << "one past the last format is accepted";
    bank.profile().setFormat(TARNOK_FORMAT(7));
    EXPECT_TRUE(loggedLines([&] { EXPECT_FALSE(bank.validate()); }).isEmpty());
}

TEST_F(Validator, AcceptsSoundsAndRefusesWhatHoldsNoSamples)
{
    for (int type = 0; type <= 20; ++type) {
        const bool refused = QList<int>{3, 5, 6, 7, 8, 11, 13, 16}.contains(type);
        const QString file = makeSound("type.dat", {.type = type});
        EXPECT_EQ(loggedPriority("unsupported format", [&] { EXPECT_EQ(isValid(file), !refused) << type; }),
                  refused ? int(Logger::OUTPUT_INFO) : -1);
    }
    Singleton<SoundFileValidator>::instance()->setAllowTnbFiles(true);
    EXPECT_TRUE(isValid(makeSound("old.tnb", {.type = KESS_SOUND_TYPE_TNB})));
}

TEST_F(Validator, TriesAgainWithoutTheHintOfTheSuffix)
{
    EXPECT_TRUE(isValid(makeSound("really.mp3")));
    for (const auto& [name, type] : {std::pair("a.aifc", KESS_SOUND_TYPE_AIFF),
                                     {"a.wmv", KESS_SOUND_TYPE_ASF},
                                     {"a.b.tnb", KESS_SOUND_TYPE_TNB},
                                     {"a.WAV", KESS_SOUND_TYPE_UNKNOWN},
                                     {"wav", KESS_SOUND_TYPE_UNKNOWN}})
        EXPECT_EQ(getTypeFromFileExtension(name), type) << name;
}

TEST_F(Validator, NamesTheFaultOfAFileQuietly)
{
    EXPECT_LOG(DEBUG, "(18) File not found.", isValid("gone.wav"));
    for (const auto& [file, fault] :
         {std::pair<QString, QString>("", ""),
          {writeFile("x.wav", "text"), "(19) Unsupported file or audio format."},
          {makeSound("13.wav", {.result = 13}), "(13) Error loading file."},
          {makeSound("14.wav", {.result = 14}),
           "(14) Couldn't perform seek operation.  This is a limitation of the "
           "medium (ie netstreams) or the file format."},
          {makeSound("64.wav", {.result = 64}),
           "(64) The sound created exceeds the allowable input channel count.  "
           "This can be increased using the 'maxinputchannels' parameter in "
           "System::setSoftwareFormat."},
          {makeSound("69.wav", {.result = 69}), "(69) The version number of this file format is not supported."}})
        EXPECT_EQ(loggedLines([&] { EXPECT_FALSE(isValid(file)); }).join(""), fault);
    // No file makes the engine itself fail.
    EXPECT_DEATH(isValid(makeSound("odd.wav", {.result = 38})), "ASSERT");
}

} // namespace
