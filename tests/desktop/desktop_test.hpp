// What the desktop's tests share: an empty settings store, directories of the test's own, and projects told as text.
#pragma once

#include "system/system_test.hpp"
#include "utility_classes.hpp"

#include <QSettings>
#include <QTest>

namespace tests {

class DesktopTest : public SystemTest
{
protected:
    void SetUp() override
    {
        SystemTest::SetUp();
        QSettings(TARNOK::COMPANY_NAME, TARNOK::APP_NAME).clear();
        for (const char* name : {"Bank", "Cache", "Profile", "ListFile", "Source"}) {
            QDir().mkpath(path(name));
            settings()->setDir(name, path(name));
        }
    }

    static TARNOK::System* settings() { return TARNOK::Singleton<TARNOK::System>::instance(); }

    // A clean bank told as its subsounds, with "+" between interleaved files: "a b+c". A file's first letter says what
    // it is: 'x' has another rate than the others, 'y' another sample format, 'w' eight channels, 'v' seven; all others
    // are alike.
    TARNOK::SoundBank* makeProject(const QString& told)
    {
        TARNOK::SoundBank* bank = workspace()->createSoundBank();
        for (const QString& sound : told.split(' ', Qt::SkipEmptyParts)) {
            const QStringList files = sound.split('+');
            TARNOK::Subsound* subsound = bank->addSubsound(makeToldSound(files.first()));
            for (const QString& file : files.mid(1))
                subsound->addFile(makeToldSound(file));
        }
        bank->setOutputFilePath(path("Bank") + "/out.tnb");
        bank->makeClean();
        bank->profile().makeClean();
        return bank;
    }

    // The same text for a bank as it stands; a subsound without files is "-".
    static QString told(const TARNOK::SoundBank* bank)
    {
        QStringList sounds;
        for (const TARNOK::Subsound* subsound : *bank) {
            QStringList files;
            for (const TARNOK::SourceFile* file : *subsound)
                files.append(file->fileName());
            sounds.append(files.isEmpty() ? "-" : files.join('+'));
        }
        return sounds.join(' ');
    }

    // An item by its place: "bank", "1" for a subsound, "1.0" for one of its files.
    static TARNOK::AbstractItem* itemAt(TARNOK::SoundBank* bank, const QString& place)
    {
        if (place == "bank")
            return bank;
        TARNOK::Subsound* subsound = bank->at(place.section('.', 0, 0).toInt());
        if (!place.contains('.'))
            return subsound;
        return subsound->at(place.section('.', 1, 1).toInt());
    }

private:
    QString makeToldSound(const QString& name) const
    {
        Sound sound;
        const char kind = name.at(0).toLatin1();
        sound.hertz = kind == 'x' ? 48000 : sound.hertz;
        sound.format = kind == 'y' ? KESS_SOUND_FORMAT_PCM24 : sound.format;
        sound.channels = kind == 'w' ? 8 : kind == 'v' ? 7 : sound.channels;
        return makeSound(name + ".wav", sound);
    }
};

} // namespace tests
