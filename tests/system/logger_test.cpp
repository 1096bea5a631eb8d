// SPDX-License-Identifier: MIT
#include "console_remarks.hpp"
#include "system_test.hpp"

#include <QTextBlock>
#include <QTextEdit>

#include <string>

using namespace TARNOK;

namespace {

struct LoggerTest : tests::SystemTest
{
    void TearDown() override { logger()->setPrintToFile(path("end.log"), false); }
};

TEST_F(LoggerTest, WritesRecordsOfOneLengthToAFileAndWholeLinesToStandardOutput)
{
    logger()->setPrintToStdout();
    testing::internal::CaptureStdout();
    logger()->println(Logger::OUTPUT_INFO, "%s", std::string(600, 'x').c_str());
    logger()->write(Logger::OUTPUT_INFO, "100% raw");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(600, 'x') + "\n100% raw");

    ASSERT_TRUE(logger()->setPrintToFile(path("records.log"), false));
    logger()->println(Logger::OUTPUT_INFO, "short");
    logger()->println(Logger::OUTPUT_INFO, "%s", std::string(600, 'x').c_str());
    logger()->write(Logger::OUTPUT_INFO, std::string(300, 'y').c_str());
    ASSERT_FALSE(logger()->setPrintToFile(path("no/such/folder.log"), false));
    logger()->println(Logger::OUTPUT_INFO, "still here");
    ASSERT_TRUE(logger()->setPrintToFile(path("records.log"), true));
    logger()->println(Logger::OUTPUT_INFO, "appended");
    logger()->setPrintToFile(path("next.log"), false);

    const auto record = [](QByteArray text) {
        return text.leftJustified(512, '\0') + '\n';
    };
    EXPECT_EQ(readFile("records.log"),
              record("short") + record(QByteArray(511, 'x')) + QByteArray(256, 'y') + record("still here")
                  + record("appended"));
}

TEST_F(LoggerTest, HoldsMessagesBackWhileItIsGagged)
{
    QTextEdit pane;
    logger()->setPrintToQTextEdit(&pane);
    logger()->gag();
    logger()->println(Logger::OUTPUT_DEBUG, "lost at once");
    logger()->println(Logger::OUTPUT_INFO, "lost at the end");
    logger()->println(Logger::OUTPUT_WARNING, "%s", std::string(600, 'x').c_str());
    logger()->println(Logger::OUTPUT_ERROR, "ERROR: \xC3\xA4rger");
    EXPECT_EQ(pane.toPlainText(), "");
    logger()->write(Logger::OUTPUT_INFO, "raw");
    EXPECT_EQ(pane.toPlainText(), "raw");
    logger()->setVerbosity(Logger::OUTPUT_WARNING);
    logger()->ungag();
    EXPECT_EQ(pane.toPlainText(), "raw\n" + QString(511, 'x') + "\nERROR: ärger");
    for (const int line : {1, 2}) {
        const QTextBlock block = pane.document()->findBlockByNumber(line);
        EXPECT_EQ(block.begin().fragment().charFormat().foreground() == QColor(Qt::red), line == 2);
    }

    pane.clear();
    logger()->ungag();
    EXPECT_EQ(pane.toPlainText(), "") << "each message is replayed once";
    logger()->setPrintToQTextEdit(nullptr);
    logger()->println(Logger::OUTPUT_ERROR, "nobody listens");
    logger()->write(Logger::OUTPUT_ERROR, "nobody listens");
}

TEST_F(LoggerTest, ReadsAHeldMessageAsAFormatAgain)
{
    using Text = std::string;
    std::string many;
    for (int i = 0; i < 40; ++i)
        many += "%d";
    for (const auto& [held, printed] : {std::pair<Text, Text>("100%% and 5%d", "100% and 50"),
                                        {"50%new", "50%new"},
                                        {"%s%5x|%-3c|", Text("(null)    0|\0  |", 16)},
                                        {"%f %a %*d %1$s %99999d %", "%f %a %*d %1$s %99999d %"},
                                        {many, "00000000" + many.substr(16)}}) {
        logger()->setPrintToStdout();
        logger()->gag();
        logger()->println(Logger::OUTPUT_INFO, "%s", held.c_str());
        testing::internal::CaptureStdout();
        logger()->ungag();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), printed + "\n");
    }
}

struct Remarks : tests::SystemTest
{
    static std::string said(const std::function<void()>& action)
    {
        testing::internal::CaptureStderr();
        action();
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(Remarks, WaitUntilItIsKnownWhetherTheyAreWanted)
{
    EXPECT_EQ(said([] { remarks()->add("to nobody"); }), "") << "only the console tool starts them";
    QStringList received;
    remarks()->sendTo([&](const QString& text) { received += text; });
    EXPECT_EQ(said([] { remarks()->add("to another program\n"); }), "");
    EXPECT_EQ(received, QStringList("to another program\n"));
    remarks()->sendTo(nullptr);
    remarks()->start();
    EXPECT_EQ(said([] { remarks()->add("held"); }), "");
    EXPECT_EQ(said([] { remarks()->release(); }), "tarnokexcl: held\n") << "and nothing from before";

    QDir().mkpath(path("cache"));
    settings()->setDir("Cache", path("cache"));
    const SoundBank* bank = makeBank("a b");
    const int missing = remarks()->missingSounds();
    builder()->remarks = {"no cache", "cues are dropped"};
    builder()->reports = {{1, 1, TARNOK_STATE_FAILED, "b.wav: why"}};
    EXPECT_EQ(said([&] { build(bank); }),
              "tarnokexcl: could not build '" + path("b.wav").toStdString()
                  + "': b.wav: why\ntarnokexcl: no cache\ntarnokexcl: cues are dropped\n");
    EXPECT_EQ(remarks()->missingSounds(), missing + 1);
    builder()->remarks.emplace_back("a third");
    builder()->reports.clear();
    EXPECT_EQ(said([&] { build(bank); }), "tarnokexcl: a third\n")
        << "a message about one bank also holds for the next";

    remarks()->start();
    logger()->setVerbosity(Logger::OUTPUT_SILENT);
    remarks()->add("held");
    EXPECT_EQ(said([] { remarks()->release(); }), "");
    EXPECT_EQ(said([] { remarks()->addMissingSound("a.wav", "why"); }), "");
    EXPECT_TRUE(ConsoleRemarks::isSilent());
    EXPECT_EQ(remarks()->missingSounds(), missing + 2) << "they are counted nevertheless";
}

} // namespace
