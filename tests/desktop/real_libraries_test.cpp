// SPDX-License-Identifier: MIT
// The window with the real engine and the real builder.
#include "mainwindow.hpp"

#include "answers.hpp"
#include "build_system.hpp"
#include "file_io.hpp"
#include "support/sound_files.hpp"
#include "utility_classes.hpp"
#include "workspace.hpp"

#include <sndfile.h>

using namespace TARNOK;

namespace {

struct RealLibrariesTest : testing::Test
{
    void SetUp() override
    {
        QSettings(COMPANY_NAME, APP_NAME).clear();
        mWindow.show();
        ASSERT_SOON(!workspace()->isEmpty());
        bank()->setOutputFilePath(path("out.tnb"));
    }

    void TearDown() override { bank()->unload(); }

    SoundBank* bank() const { return workspace()->first(); }
    QString path(const QString& name) const { return mFolder.path() + "/" + name; }

    void add(const QStringList& names)
    {
        QList<QUrl> urls;
        for (const QString& name : names)
            urls.append(QUrl::fromLocalFile(path(name)));
        emit mWindow.findChild<FileIO*>()->requestAddFiles(urls);
    }

    QString log() const { return mWindow.findChild<QTextEdit*>()->toPlainText(); }

    void build(const QString& command)
    {
        tests::childWith<QAction>(&mWindow, &QAction::text, command)->trigger();
        ASSERT_SOON(mWindow.findChild<FileIO*>()->progressBar()->isHidden());
    }

    QTemporaryDir mFolder;
    MainWindow mWindow;
};

} // namespace

TEST_F(RealLibrariesTest, whatIsAddedIsBuiltThenCachedThenRebuilt)
{
    test::writeSound(path("left.wav").toStdString(), SF_FORMAT_WAV | SF_FORMAT_PCM_16, test::sine(1, 44100, 8000));
    test::writeSound(path("right.wav").toStdString(), SF_FORMAT_WAV | SF_FORMAT_PCM_16, test::noise(1, 44100, 8000));
    test::writeSound(path("deep.flac").toStdString(), SF_FORMAT_FLAC | SF_FORMAT_PCM_24, test::noise(2, 48000, 9000));
    test::writeFile(path("notes.txt").toStdString(), std::string("not a sound"));
    add({"left.wav", "right.wav", "deep.flac", "notes.txt"});
    ASSERT_EQ(bank()->size(), 3);
    EXPECT_TRUE(log().endsWith("ERROR: invalid file: 'notes.txt'"));
    EXPECT_EQ(bank()->at(2)->sampleRate(), 48000);
    EXPECT_EQ(bank()->at(2)->format(), KESS_SOUND_FORMAT_PCM24);

    bank()->profile().setFormat(TARNOK_FORMAT_VORBIS);
    bank()->profile().setQuality(60);
    build("&Build");
    EXPECT_TRUE(log().endsWith("Soundbank built successfully: " + path("out.tnb"))) << log().toStdString();
    EXPECT_TRUE(log().contains("[processing]"));
    EXPECT_GT(QFileInfo(path("out.tnb")).size(), 10000);
    build("&Build");
    EXPECT_EQ(log().count("[cached]"), 3);
    build("&Rebuild");
    EXPECT_EQ(log().count("[processing]"), 6);
}
