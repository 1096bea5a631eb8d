// SPDX-License-Identifier: MIT
// Project, profile and list files, and the step reader that the first two use.
#include "support/limit.hpp"
#include "system_test.hpp"
#include "xml_stream_iterator.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <thread>
#include <tuple>

using namespace TARNOK;

namespace {

using Steps = tests::SystemTest;

// All steps of a document, with one letter for the kind (Error, Leaf, Text, Start, end), name and text.
QString steps(const QByteArray& xml)
{
    QXmlStreamReader reader(xml);
    XmlStreamIterator iterator(&reader);
    QStringList all;
    int depth = 0;
    do {
        const int kind = ++iterator;
        all.append(QString("ELTSe")[kind] + (kind ? ":" + iterator.name() : QString())
                   + (iterator.text().isEmpty() ? QString() : "=" + iterator.text()));
        depth += kind == XmlStreamIterator::XML_BLOCK_START ? 1 : kind == XmlStreamIterator::XML_BLOCK_END ? -1 : 0;
    } while (depth > 0 && iterator.state() != XmlStreamIterator::XML_ERROR);
    return all.join(' ');
}

TEST_F(Steps, DistinguishElementsBlocksAndErrorsAndAbortOnOthers)
{
    EXPECT_EQ(steps("<r><a/><b></b><c>  \n </c></r>"), "S:r L:a=a L:b=b L:c=c e:r");
    EXPECT_EQ(steps("<r><a><b/></a></r>"), "S:r S:a L:b=b e:a e:r");
    EXPECT_EQ(steps("<?xml version='1.0'?><!-- x --><r>\n<!-- y --> <a>1 &amp; 2</a> <?z?></r>"), "S:r T:a=1 & 2 e:r");
    EXPECT_EQ(steps("<r><a>1</a> stray </r>"), "S:r T:a=1 E");
    EXPECT_EQ(steps("<r><a>1</a>"), "S:r T:a=1 E");
    EXPECT_EQ(steps("no xml"), "E");
    EXPECT_LOG(ERROR, "ERROR: [XML] near line 2, Expected either start or end block", steps("<r><a>1</a>\nstray</r>"));

    EXPECT_DEATH(steps(""), "mReader->readNext\\(\\) == QXmlStreamReader::StartDocument");
    EXPECT_DEATH(steps("<r><a>text<!-- x --></a></r>"), "mReader->tokenType\\(\\) == QXmlStreamReader::EndElement");
    EXPECT_DEATH(steps("<r><a>text<b/></a></r>"), "mReader->tokenType\\(\\) == QXmlStreamReader::EndElement");
    EXPECT_DEATH(steps("<r>"), "ASSERT");
}

struct ProfileFiles : tests::SystemTest
{
    bool load(const QByteArray& content, SoundProfile* profile)
    {
        return workspace()->loadProfile(profile, writeFile("in.prof", content));
    }
};

TEST_F(ProfileFiles, HoldFormatQualityAndFlagsInThatOrder)
{
    makeBank("");
    SoundProfile profile;
    profile.setFormat(TARNOK_FORMAT_VORBIS);
    profile.setQuality(37);
    profile.setBuildFlags(TARNOK_BUILD_OVERRIDE_MASK | TARNOK_BUILD_TNB5_DONTWRITENAMES);
    ASSERT_TRUE(workspace()->saveProfile(profile, path("out.prof")));
    EXPECT_FALSE(profile.isDirty());
    EXPECT_EQ(readFile("out.prof"), R"(<?xml version="1.0" encoding="UTF-8"?>
<profile>
    <format>Vorbis</format>
    <quality>37</quality>
    <flags>
        <disable_syncpoints/>
        <dont_loop/>
        <xma_filter_high_freq/>
        <xma_disable_seeking/>
        <optimize_samplerate/>
        <tnb5_dont_write_names/>
        <write_peak_volume/>
    </flags>
</profile>
)");

    SoundProfile loaded;
    for (const bool isChange : {true, false}) {
        loaded.makeClean();
        ASSERT_TRUE(load(readFile("out.prof"), &loaded));
        EXPECT_EQ(loaded.isDirty(), isChange);
    }
    ASSERT_TRUE(workspace()->saveProfile(loaded, path("again.prof")));
    EXPECT_EQ(readFile("again.prof"), readFile("out.prof"));

    profile.setFormat(TARNOK_FORMAT_PCM);
    profile.setBuildFlags(0);
    ASSERT_TRUE(workspace()->saveProfile(profile, path("out.prof")));
    EXPECT_TRUE(readFile("out.prof").endsWith("<profile>\n    <format>PCM</format>\n</profile>\n"));
    ASSERT_TRUE(load(readFile("out.prof"), &loaded));
    EXPECT_EQ(loaded.quality(), 100u);
}

TEST_F(ProfileFiles, AreAcceptedOrRefusedAsAWhole)
{
    makeBank("");
    for (const auto& [content, accepted, quality] :
         {std::tuple("<quality>12</quality>", true, 12u),
          {"<quality>abc</quality>", true, 0},
          {"<quality>99999999999</quality>", true, 0},
          {"<quality>101</quality>", false, 100},
          {"<quality>-1</quality>", false, 100},
          {"<comment>x</comment><format>vorbis</format>", true, 100},
          {"<flags><dont_loop/><x>optimize_samplerate</x></flags>", true, 100},
          {"<format>PCM</format><empty/>", false, 100},
          {"<flags></flags>", false, 100}}) {
        SoundProfile profile;
        EXPECT_EQ(load("<profile>" + QByteArray(content) + "</profile>", &profile), accepted) << content;
        EXPECT_EQ(profile.quality(), quality) << content;
    }
    SoundProfile profile;
    EXPECT_LOG(ERROR, "ERROR: [XML] near line 1, unexpected tag 'quality' : '101'",
               load("<profile><quality>101</quality></profile>", &profile));
    EXPECT_TRUE(loggedLines([&] { EXPECT_FALSE(load("<soundbank><a/></soundbank>", &profile)); }).isEmpty());
}

TEST_F(ProfileFiles, AbortWhereCallersShouldHaveChecked)
{
    SoundProfile profile;
    EXPECT_DEATH(workspace()->loadProfile(&profile, path("gone.prof")), "file.isOpen");
    EXPECT_DEATH(workspace()->saveProfile(profile, path("no/such/folder.prof")), "file.isOpen");
    EXPECT_DEATH(load("<profile><format>PCM</format></profile>", &profile), "isEmpty") << "a bank is required";
    makeBank("");
    EXPECT_DEATH(load("<profile><format>flac</format></profile>", &profile), "ASSERT");
    EXPECT_DEATH(load("<profile><flags><loud/></flags></profile>", &profile), "ASSERT");
    EXPECT_DEATH(profile.setQuality(101), "MIN_QUALITY <= quality && quality <= MAX_QUALITY");
    profile.setBuildFlag(TARNOK_BUILD_NOGUID, true);
    EXPECT_DEATH(workspace()->saveProfile(profile, path("out.prof")), "ASSERT");
}

struct ProjectFiles : tests::SystemTest
{
    SoundBank* load(const QByteArray& content) { return workspace()->loadSoundBank(writeFile("in.tnproj", content)); }

    // A project of one sound with something added before or after its file.
    QByteArray withSubsound(const QByteArray& inside) const
    {
        return "<soundbank><file_name>/o/x.tnb</file_name><content><subsound><file>" + makeSound("a.wav").toUtf8()
            + "</file>" + inside + "</subsound></content></soundbank>";
    }
};

TEST_F(ProjectFiles, AreLoadedAsTheyWereSaved)
{
    SoundBank* bank = makeBank("a b+right");
    bank->setOutputFilePath("/o/Größe.tnb");
    bank->setEncryptionKey("<key> & \"more\"");
    bank->profile().setFormat(TARNOK_FORMAT_OPUS);
    bank->profile().setQuality(60);
    bank->at(1)->overrideBuildFlag(TARNOK_BUILD_DONTLOOP, true);
    bank->at(1)->overrideBuildFlag(TARNOK_BUILD_OPTIMIZESAMPLERATE, false);
    bank->at(1)->setQuality(50);
    ASSERT_TRUE(bank->save(path("p.tnproj")));
    EXPECT_FALSE(bank->isModified());

    EXPECT_EQ(QString::fromUtf8(readFile("p.tnproj")),
              QString(R"(<?xml version="1.0" encoding="UTF-8"?>
<soundbank>
    <file_name>/o/Größe.tnb</file_name>
    <encryption_key>&lt;key&gt; &amp; &quot;more&quot;</encryption_key>
    <profile>
        <format>Opus</format>
        <quality>60</quality>
    </profile>
    <content>
        <subsound>
            <file>%1a.wav</file>
        </subsound>
        <subsound>
            <flags>
                <add><dont_loop/></add>
                <remove><optimize_samplerate/></remove>
            </flags>
            <file>%1b.wav</file>
            <file>%1right.wav</file>
        </subsound>
    </content>
</soundbank>
)")
                  .arg(path("")));

    SoundBank* loaded = workspace()->loadSoundBank(path("p.tnproj"));
    ASSERT_TRUE(loaded);
    EXPECT_FALSE(loaded->isModified());
    ASSERT_TRUE(loaded->save(path("again.tnproj")));
    EXPECT_EQ(readFile("again.tnproj"), readFile("p.tnproj"));
    EXPECT_EQ(loaded->encryptionKey(), "<key> & \"more\"");
    EXPECT_EQ(loaded->at(1)->quality(), 0u) << "not stored in projects";
}

TEST_F(ProjectFiles, DropMissingFilesAndReportThem)
{
    const QString project = path("p.tnproj");
    ASSERT_TRUE(makeBank("a b")->save(project));
    QFile::remove(path("a.wav"));
    EXPECT_LOG(WARNING, "Couldn't add file '" + path("a.wav") + "' to subsound", workspace()->loadSoundBank(project));
    EXPECT_EQ(describe(workspace()->last()), "b");
    EXPECT_FALSE(workspace()->last()->isModified());

    QFile::remove(path("b.wav"));
    const auto banks = workspace()->size();
    EXPECT_LOG(WARNING, "soundbank contains no subsounds", EXPECT_EQ(workspace()->loadSoundBank(project), nullptr));
    EXPECT_EQ(workspace()->size(), banks);

    EXPECT_FALSE(makeBank("")->save(project));
    EXPECT_FALSE(QFile::exists(project)) << "no project file of an invalid bank remains";
}

TEST_F(ProjectFiles, KeepTheirContentWhenTheDiskIsFull)
{
    std::signal(SIGXFSZ, SIG_IGN); // a file above the limit of its size fails, as on a full disk
    ASSERT_TRUE(makeBank()->save(path("p.tnproj")));
    for (const char* name : {"large.tnproj", "twice.tnproj"})
        ASSERT_TRUE(makeBank(QString("b ").repeated(90))->save(path(name)));
    ASSERT_EQ(link("twice.tnproj", "other name"), 0);
    const QByteArray held = readFile("p.tnproj");
    const QByteArray large = readFile("large.tnproj");
    ASSERT_GT(large.size(), 4096);
    SoundBank* bank = makeBank(QString("a ").repeated(100));
    for (const QString name : {"p.tnproj", "new.tnproj", "large.tnproj", "twice.tnproj"}) {
        const QStringList lines = loggedLines([&] {
            const test::Limit full(RLIMIT_FSIZE, 4096);
            EXPECT_FALSE(bank->save(path(name)));
        });
        EXPECT_EQ(lines, QStringList("ERROR: Cannot write file " + path(name) + ":\nFile too large."));
    }
    EXPECT_EQ(readFile("p.tnproj"), held);
    EXPECT_EQ(readFile("large.tnproj"), large);
    EXPECT_EQ(readFile("other name"), large);
    EXPECT_FALSE(QFile::exists(path("new.tnproj")));
    EXPECT_EQ(QDir(path("")).entryList({".tarnok*"}, QDir::Files | QDir::Hidden), QStringList());
    EXPECT_TRUE(bank->isModified());

    for (const bool isDirty : {false, true}) {
        bank->profile().makeClean();
        if (isDirty)
            bank->profile().makeDirty();
        const test::Limit full(RLIMIT_FSIZE, 16);
        EXPECT_FALSE(workspace()->saveProfile(bank->profile(), path("p.prof")));
        EXPECT_EQ(bank->profile().isDirty(), isDirty) << "an export changes nothing";
    }
}

TEST_F(ProjectFiles, KeepTheirLinksOwnerAndPermissions)
{
    const auto loadStatus = [this](const char* name) {
        struct stat status = {};
        EXPECT_EQ(lstat(path(name).toUtf8().constData(), &status), 0) << name;
        return status;
    };
    SoundBank* bank = makeBank();
    const mode_t mask = umask(022);
    ASSERT_TRUE(bank->save(path("open.tnproj")));
    ASSERT_TRUE(workspace()->saveProfile(bank->profile(), path("p.prof")));
    bank->setEncryptionKey("secret");
    ASSERT_TRUE(bank->save(path("key.tnproj")));
    umask(mask);
    EXPECT_EQ(loadStatus("open.tnproj").st_mode & 07777, 0644u);
    EXPECT_EQ(loadStatus("p.prof").st_mode & 07777, 0644u);
    EXPECT_EQ(loadStatus("key.tnproj").st_mode & 07777, 0600u) << "it contains the key";

    QDir().mkpath(path("sub"));
    ASSERT_EQ(symlink("../open.tnproj", "sub/link.tnproj"), 0);
    ASSERT_EQ(symlink("../late.tnproj", "sub/late.tnproj"), 0);
    ASSERT_EQ(link("key.tnproj", "other name"), 0);
    ASSERT_EQ(chmod("open.tnproj", 0664), 0);
    [[maybe_unused]] const int owned = chown("open.tnproj", 65534, 65534); // only root can
    const struct stat before = loadStatus("open.tnproj");
    bank->addSubsound(makeSound("b.wav"));
    for (const char* name : {"sub/link.tnproj", "sub/late.tnproj", "key.tnproj"})
        ASSERT_TRUE(bank->save(path(name))) << name;
    const struct stat after = loadStatus("open.tnproj");
    EXPECT_NE(after.st_ino, before.st_ino) << "renamed, so that there is always one of the two";
    EXPECT_EQ(std::tuple(after.st_mode, after.st_uid, after.st_gid),
              std::tuple(before.st_mode, before.st_uid, before.st_gid));
    for (const char* name : {"sub/link.tnproj", "sub/late.tnproj"})
        EXPECT_TRUE(S_ISLNK(loadStatus(name).st_mode)) << name;
    for (const char* name : {"late.tnproj", "other name", "key.tnproj"})
        EXPECT_EQ(readFile(name), readFile("open.tnproj")) << name;
}

TEST_F(ProjectFiles, AreRefusedWhereTheyCouldNotBeOpenedAgain)
{
    ASSERT_TRUE(makeBank()->save(path("p.tnproj")));
    const QByteArray held = readFile("p.tnproj");
    const auto saved = [&](const QString& name, const QString& key) {
        SoundBank* bank = makeBank();
        bank->setOutputFilePath("");
        bank->setOutputFilePath(name);
        bank->setEncryptionKey(key);
        const QStringList lines = loggedLines([&] { bank->save(path("p.tnproj")); });
        EXPECT_EQ(bank->isModified(), !lines.isEmpty());
        return lines.join("").section('\n', 1);
    };
    for (const char* blanks : {" ", " \t\n "})
        EXPECT_EQ(saved("x", blanks), "The key consists of blanks, and would be lost in it.");
    EXPECT_EQ(saved("x", "a\rb"), "A file name or the key holds a character that can't be kept in it.");
    EXPECT_EQ(readFile("p.tnproj"), held);
    for (const char* key : {"", " a ", "\u00a0", "\u2003"}) {
        EXPECT_EQ(saved("x", key), "") << key;
        const SoundBank* bank = workspace()->loadSoundBank(path("p.tnproj"));
        ASSERT_TRUE(bank) << key;
        EXPECT_EQ(bank->encryptionKey(), key);
    }

    SoundBank* bank = workspace()->createSoundBank();
    bank->addSubsound(makeSound("a.wav"));
    bank->setOutputFilePath("  ");
    EXPECT_EQ(loggedLines([&] { EXPECT_FALSE(bank->save(path("p.tnproj"))); }).join(""),
              "ERROR: Cannot write file " + path("p.tnproj")
                  + ":\nThe name of the bank consists of blanks, and would be lost in it.");
}

TEST_F(ProjectFiles, AreReadInAnyOrderAndRefusedWhenDamaged)
{
    const QByteArray sound = makeSound("a.wav").toUtf8();
    const QByteArray content = "<content><subsound><file>" + sound + "</file></subsound></content>";
    const QByteArray name = "<file_name>/o/x.tnb</file_name>";
    // The number of sounds after loading; -1 if loading fails.
    for (const auto& [inside, sounds] :
         {std::pair<QByteArray, int>(name + content, 1),
          {content + name, 1},
          {content + "<file_name>/o/first</file_name>" + content + name, 2},
          {"<unknown>x</unknown>" + name + content, 1},
          {name + "<content><subsound><flags><add><dont_loop/></add></flags></subsound><subsound><file>" + sound
               + "</file></subsound></content>",
           1},
          {content, -1}}) {
        SoundBank* bank = load("<soundbank>" + inside + "</soundbank>");
        EXPECT_EQ(bank ? int(bank->size()) : -1, sounds) << inside.constData();
    }
    SoundBank* bank = load("<soundbank>" + name + content + "</soundbank>");
    ASSERT_TRUE(bank);
    EXPECT_FALSE(bank->isDirty());
    EXPECT_TRUE(bank->isModified()) << "the default profile is not on disk";

    EXPECT_LOG(ERROR, "ERROR: [XML] near line 1, unexpected tag 'encryption_key' : 'encryption_key'",
               EXPECT_EQ(load("<soundbank><a>1</a><encryption_key/><b>1</b></soundbank>"), nullptr));
    const auto loadGone = [&] {
        EXPECT_EQ(workspace()->loadSoundBank(path("gone.tnproj")), nullptr);
    };
    EXPECT_EQ(loggedLines(loadGone, Logger::OUTPUT_INFO), QStringList());

    bank = load(withSubsound("<flags><remove><x>dont_loop</x><write_peak_volume/></remove>"
                             "<add><dont_loop/></add><add><xma_disable_seeking/></add></flags>"));
    ASSERT_TRUE(bank);
    EXPECT_EQ(bank->first()->buildFlagOverridesMask(), 2u + 8u + 512u);
    EXPECT_EQ(bank->first()->buildFlags(), 2u + 8u);
}

TEST_F(ProjectFiles, AbortOnADamagedSubsound)
{
    for (const char* inside : {"<flags><add></add></flags>", "<other>1</other>", "<block><a/></block>", "<empty/>",
                               "<flags><add><loud/></add></flags>", "<flags><remove><x><y/></x></remove></flags>"})
        EXPECT_DEATH(load(withSubsound(inside)), "ASSERT") << inside;
    EXPECT_DEATH(load("<soundbank><profile><quality>101</quality></profile><a>1</a></soundbank>"),
                 "mState != XML_ERROR");

    SoundBank* bank = makeBank();
    bank->newItem();
    EXPECT_DEATH(bank->save(path("p.tnproj")), "ASSERT");
    EXPECT_DEATH(bank->save(path("no/such/p.tnproj")), "file.isOpen");
    bank->last()->addFile(makeSound("b.wav"));
    bank->last()->overrideBuildFlag(0x40, true);
    EXPECT_DEATH(bank->save(path("p.tnproj")), "\\(buildFlagMask & \\(~TARNOK_BUILD_OVERRIDE_MASK\\)\\) == 0");
}

using ListFiles = tests::SystemTest;

TEST_F(ListFiles, MakeASoundOfEachLineUpToAnEmptyOne)
{
    makeSound("sub/a.wav");
    const QString absolute = makeSound("b.wav");
    QFile::link(path("b.wav"), path("link.wav"));
    const QString list = writeFile("lists/sfx.TXT",
                                   "../sub/a.wav,quality=40,ksound_loop_off\n" + path("link.wav").toUtf8()
                                       + ",KSOUND_LOOP_OFF,Quality=40,quality=abc,quality=4000,quality=7\n"
                                         ",,../link.wav,,\n\n"
                                       + absolute.toUtf8() + "\n");
    SoundBank* bank = workspace()->loadSoundBank(list);
    ASSERT_TRUE(bank);
    EXPECT_EQ(bank->outputFilePath(), path("lists/sfx.tnb"));
    EXPECT_EQ(describe(bank), "a link b") << "an absolute path keeps its link, a relative one loses it";
    EXPECT_EQ(bank->at(0)->first()->wholePath(), path("sub/a.wav"));
    QList<unsigned int> numbers;
    for (const Subsound* sound : *bank)
        numbers += {sound->quality(), sound->buildFlags(), sound->buildFlagOverridesMask()};
    EXPECT_EQ(numbers, QList<unsigned int>({40, 2, 2, 4000, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(bank->isModified());

    SoundBank* empty = workspace()->loadSoundBank(writeFile("empty.lst", ""));
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->isEmpty());
    EXPECT_EQ(workspace()->loadSoundBank(path("gone.lst")), nullptr);
    EXPECT_DEATH(workspace()->loadSoundBank(writeFile("l.lst", ",,,\n")), "QList::at.*index out of range");
}

TEST_F(ListFiles, WaitForABadLineToBecomeGood)
{
    const QString list = writeFile("l.lst", "late.wav,ksound_loop_off\n");
    std::thread author([&] {
        while (!readFile("test.log").contains("failed to load"))
            QThread::msleep(1);
        makeSound("~late.wav");
        QFile::rename(path("~late.wav"), path("late.wav"));
    });
    SoundBank* bank = nullptr;
    const QStringList lines = loggedLines([&] { bank = workspace()->loadSoundBank(list); }, Logger::OUTPUT_WARNING);
    author.join();
    ASSERT_TRUE(bank);
    EXPECT_EQ(bank->size(), 1);
    EXPECT_EQ(lines.mid(0, 2), (QStringList{"ERROR: invalid file: ''", "failed to load 'late.wav'"}));
}

} // namespace
