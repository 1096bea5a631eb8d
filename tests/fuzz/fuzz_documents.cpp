// SPDX-License-Identifier: MIT
// Reads the fuzzer's input as a project (compiled with FUZZ_DOCUMENT ".tnproj"), a profile (".prof") or a list
// (".lst"). The document is saved, read and saved again, and both saved files must be equal.
#include "build_system.hpp"
#include "logger.hpp"
#include "sound_bank.hpp"
#include "workspace.hpp"

#include "fail.hpp"

#include <QtCore>

namespace {

using namespace TARNOK;
using fuzz::fail;

struct TooManyLines
{ };

// Loading a list with a file that can't be loaded is repeated without end, with a line in the log each time.
int linesLeft = 0;

QByteArray readContent(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void write(const QString& path, const QByteArray& content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        fail("the input can't be stored");
}

void readAndSave(const QString& input, const QString& saved)
{
    Workspace* workspace = Singleton<Workspace>::instance();
    const bool isProfile = input.endsWith(".prof");
    if (isProfile && !workspace->createSoundBank())
        return;
    SoundProfile profile;
    const SoundBank* bank = nullptr;
    const auto load = [&](const QString& path) {
        return isProfile ? workspace->loadProfile(&profile, path) : bool(bank = workspace->loadSoundBank(path));
    };
    const auto save = [&] {
        return isProfile ? workspace->saveProfile(profile, saved) : workspace->saveSoundBank(bank, saved);
    };
    if (!load(input))
        return;
    if (!save()) {
        if (isProfile)
            fail("a profile that was read can't be saved");
        return;
    }
    const QByteArray once = readContent(saved);
    if (!load(saved) || !save())
        fail("a document that was saved can't be read");
    if (readContent(saved) != once)
        fail("a document that was saved twice is not the same");
}

// Whether a list has a line of nothing but commas, or an XML file doesn't begin as a document. Both fail assertions
// that can't throw.
bool failsAtOnce(const QString& path, const QByteArray& content)
{
    static const QRegularExpression commas("^,+\\r*$", QRegularExpression::MultilineOption);
    if (path.endsWith(".lst"))
        return commas.match(QString::fromUtf8(content)).hasMatch();
    QByteArray text = content;
    text.removeIf([](char c) { return c == '\r'; }); // as files do that are opened as text
    return QXmlStreamReader(text).readNext() != QXmlStreamReader::StartDocument;
}

} // namespace

// Replaces Logger::println in the units under test.
extern "C" void __wrap__ZN6TARNOK6Logger7printlnENS0_14OUTPUTPRIORITYEPKcz(Logger*, Logger::OUTPUTPRIORITY, const char*,
                                                                           ...)
{
    if (--linesLeft < 0)
        throw TooManyLines();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static char name[] = "fuzz";
    static char* arguments[] = {name, nullptr};
    static int count = 1;
    static const QCoreApplication application(count, arguments);
    static const QTemporaryDir folder;
    const QString input = folder.filePath("input" FUZZ_DOCUMENT);
    // What the scripted engine finds in the sounds: result, type, format, channels, hertz, milliseconds.
    static const bool hasSounds = [] {
        write(folder.filePath("a.wav"), "sound 0 15 2 1 44100 1000\n");
        write(folder.filePath("b.wav"), "sound 0 15 2 2 48000 500\n");
        write(folder.filePath("c.flac"), "sound 0 4 3 1 44100 10\n");
        return true;
    }();
    const QByteArray content(reinterpret_cast<const char*>(data), qsizetype(size));
    if (!hasSounds || failsAtOnce(input, content))
        return 0;
    write(input, content);
    linesLeft = 1000;
    try {
        readAndSave(input, folder.filePath(input.endsWith(".prof") ? "saved.prof" : "saved.tnproj"));
    } catch (const fuzz::AssertionFailed&) {
    } catch (const TooManyLines&) { }
    linesLeft = 1'000'000;
    for (SoundBank* bank : QList<SoundBank*>(*Singleton<Workspace>::instance()))
        bank->unload();
    return 0;
}
