// SPDX-License-Identifier: MIT
// Shared by the tests of the system's units: a temporary folder, sounds that the scripted engine knows, and the log
// with its priorities.
#pragma once

#include "build_system.hpp"
#include "logger.hpp"
#include "scripted_builder.hpp"
#include "sound_bank.hpp"
#include "utility_classes.hpp"
#include "workspace.hpp"

#include <gtest/gtest.h>

#include <QtCore>

#include <concepts>
#include <functional>
#include <ostream>

template <typename Text>
requires std::same_as<Text, QString> || std::same_as<Text, QStringList>
void PrintTo(const Text& text, std::ostream* stream)
{
    *stream << QDebug::toString(text).toStdString();
}

// Expects that a statement, which is run several times, logs a line at a priority.
#define EXPECT_LOG(priority, line, statement)                                                                          \
    EXPECT_EQ(loggedPriority(line, [&] { statement; }), Logger::OUTPUT_##priority)

namespace tests {

using namespace TARNOK;

// What the scripted engine must find in a file.
struct Sound
{
    int channels = 1;
    int hertz = 44100;
    int milliseconds = 1000;
    int format = KESS_SOUND_FORMAT_PCM16;
    int type = KESS_SOUND_TYPE_WAV;
    int result = KESS_OK;
};

struct SystemTest : testing::Test
{
    void SetUp() override
    {
        ASSERT_TRUE(mFolder.isValid());
        QDir::setCurrent(mFolder.path());
        for (SoundBank* bank : QList<SoundBank*>(*workspace()))
            bank->unload();
        logger()->setVerbosity(Logger::OUTPUT_INFO);
        logger()->ungag();
        ASSERT_TRUE(logger()->setPrintToFile(path("test.log"), false));
        Singleton<SoundFileValidator>::instance()->setAllowTnbFiles(false);
        builder().reset();
    }

    static fakes::ScriptedBuilder builder() { return {}; }

    static void runToTheEnd()
    {
        while (buildSystem()->update())
            QThread::msleep(1);
    }

    static void build(const SoundBank* bank)
    {
        buildSystem()->enqueueBuild(bank);
        runToTheEnd();
    }

    QString path(const QString& name) const { return mFolder.path() + "/" + name; }

    QString writeFile(const QString& name, const QByteArray& content) const
    {
        const QString whole = path(name);
        QDir().mkpath(QFileInfo(whole).path());
        QFile file(whole);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        return whole;
    }

    QByteArray readFile(const QString& name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // A file of one kilobyte.
    QString makeSound(const QString& name, const Sound& sound = {}) const
    {
        const QString description = QString::asprintf("sound %d %d %d %d %d %d\n", sound.result, sound.type,
                                                      sound.format, sound.channels, sound.hertz, sound.milliseconds);
        return writeFile(name, description.toUtf8().leftJustified(1024));
    }

    // Makes an unmodified bank from a description of its subsounds, with "+" between interleaved files: "a b+c". The
    // first letter of a file determines its properties: 'x' has another rate and is longer, 'y' has another sample
    // format, 'w' eight channels, 'v' seven; all others are alike.
    SoundBank* makeBank(const QString& description = "a")
    {
        static const QMap<char, Sound> KINDS = {{'x', {.hertz = 48000, .milliseconds = 3000}},
                                                {'y', {.format = KESS_SOUND_FORMAT_PCM24}},
                                                {'w', {.channels = 8}},
                                                {'v', {.channels = 7}}};
        SoundBank* bank = workspace()->createSoundBank();
        for (const QString& sound : description.split(' ', Qt::SkipEmptyParts)) {
            Subsound* subsound = bank->newItem();
            for (const QString& file : sound.split('+'))
                subsound->addFile(makeSound(file + ".wav", KINDS.value(file.at(0).toLatin1())));
        }
        bank->setOutputFilePath(path("Bank/out.tnb"));
        bank->makeClean();
        bank->profile().makeClean();
        return bank;
    }

    // The description of an existing bank; a subsound without files is "-".
    static QString describe(const SoundBank* bank)
    {
        QStringList sounds;
        for (const Subsound* subsound : *bank) {
            QStringList files;
            for (const SourceFile* file : *subsound)
                files.append(file->fileName());
            sounds.append(files.isEmpty() ? "-" : files.join('+'));
        }
        return sounds.join(' ');
    }

    // Runs action, and returns the lines that it logs at the given threshold.
    QStringList loggedLines(const std::function<void()>& action,
                            Logger::OUTPUTPRIORITY threshold = Logger::OUTPUT_DEBUG) const
    {
        logger()->setPrintToFile(path("test.log"), false);
        logger()->setVerbosity(threshold);
        action();
        logger()->setVerbosity(Logger::OUTPUT_INFO);
        logger()->setPrintToFile(path("next.log"), false);

        constexpr int RECORD = Logger::MAX_LINE + 2;
        QStringList lines;
        const QByteArray bytes = readFile("test.log");
        for (int at = 0; at + RECORD <= bytes.size(); at += RECORD)
            lines.append(QString::fromUtf8(bytes.constData() + at));
        return lines;
    }

    // Returns the priority at which action logs line, by running it several times; -1 if it doesn't log it.
    int loggedPriority(const QString& line, const std::function<void()>& action) const
    {
        int priority = -1;
        for (int threshold = 0; threshold <= int(Logger::OUTPUT_SILENT); ++threshold) {
            if (loggedLines(action, static_cast<Logger::OUTPUTPRIORITY>(threshold)).contains(line))
                priority = threshold;
        }
        return priority;
    }

private:
    QTemporaryDir mFolder;
};

} // namespace tests
