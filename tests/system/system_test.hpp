// What the tests of the system's own units share: a folder of their own, sounds that the scripted engine knows, and
// the log with its priorities.
#pragma once

#include "build_system.hpp"
#include "logger.hpp"
#include "scripted_builder.hpp"
#include "sound_bank.hpp"
#include "utility_classes.hpp"
#include "workspace.hpp"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>
#include <ostream>

inline void PrintTo(const QString& text, std::ostream* stream)
{
    *stream << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QStringList& list, std::ostream* stream)
{
    *stream << '[' << list.join(" | ").toStdString() << ']';
}

namespace tests {

// What the scripted engine is to find in a file.
struct Sound
{
    int channels = 1;
    int hertz = 44100;
    int milliseconds = 1000;
    int format = KESS_SOUND_FORMAT_PCM16;
    int type = KESS_SOUND_TYPE_WAV;
    int result = KESS_OK;
};

class SystemTest : public testing::Test
{
protected:
    using Logger = TARNOK::Logger;

    void SetUp() override
    {
        ASSERT_TRUE(mFolder.isValid());
        QDir::setCurrent(mFolder.path());
        for (TARNOK::SoundBank* bank : QList<TARNOK::SoundBank*>(*workspace()))
            bank->unload();
        logger()->setVerbosity(Logger::OUTPUT_INFO);
        logger()->ungag();
        ASSERT_TRUE(logger()->setPrintToFile(path("test.log"), false));
        TARNOK::Singleton<TARNOK::SoundFileValidator>::instance()->setAllowTnbFiles(false);
        builder().reset();
    }

    static Logger* logger() { return TARNOK::Singleton<Logger>::instance(); }
    static TARNOK::Workspace* workspace() { return TARNOK::Singleton<TARNOK::Workspace>::instance(); }
    static TARNOK::BuildSystem* buildSystem() { return TARNOK::Singleton<TARNOK::BuildSystem>::instance(); }
    static fakes::ScriptedBuilder& builder() { return fakes::ScriptedBuilder::instance(); }

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

    QString makeSound(const QString& name, const Sound& sound = {}) const
    {
        return writeFile(name,
                         QString::asprintf("sound %d %d %d %d %d %d\n", sound.result, sound.type, sound.format,
                                           sound.channels, sound.hertz, sound.milliseconds)
                             .toUtf8());
    }

    // A bank of so many mono sounds, clean, that writes to out.tnb.
    TARNOK::SoundBank* makeBank(int sounds)
    {
        TARNOK::SoundBank* bank = workspace()->createSoundBank();
        for (int i = 0; i < sounds; ++i)
            bank->addSubsound(makeSound(QString("sound%1.wav").arg(i)));
        bank->setOutputFilePath(path("out.tnb"));
        bank->makeClean();
        bank->profile().makeClean();
        return bank;
    }

    // The lines that action logs at the given threshold.
    QStringList linesOf(const std::function<void()>& action,
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

    // The priority at which action, which is run several times, logs line; -1 if it doesn't.
    int priorityOf(const QString& line, const std::function<void()>& action) const
    {
        int priority = -1;
        for (int threshold = 0; threshold <= int(Logger::OUTPUT_SILENT); ++threshold) {
            if (linesOf(action, static_cast<Logger::OUTPUTPRIORITY>(threshold)).contains(line))
                priority = threshold;
        }
        return priority;
    }

private:
    QTemporaryDir mFolder;
};

} // namespace tests
