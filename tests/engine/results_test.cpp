// SPDX-License-Identifier: MIT
// The result that the engine returns for each fault of a file or a call.
#include "source_kinds.hpp"
#include "support/limit.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

using namespace test;

TEST(APathThatIsNoSoundFile, IsRefusedWithoutWaiting)
{
    std::filesystem::create_directory("directory");
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    std::filesystem::create_symlink("circle", "circle");
    writeFile("empty.wav", "");
    writeFile("file", "text");

    const std::pair<std::string, KESS_RESULT> cases[] = {
        {"", KESS_ERR_FILE_NOTFOUND},
        {"missing.wav", KESS_ERR_FILE_NOTFOUND},
        {"file/below.wav", KESS_ERR_FILE_NOTFOUND},
        {std::string(5000, 'x'), KESS_ERR_FILE_NOTFOUND},
        {std::string(300, 'x'), KESS_ERR_FILE_NOTFOUND},
        {"directory", KESS_ERR_FILE_BAD},
        {"pipe", KESS_ERR_FILE_BAD},
        {"/dev/zero", KESS_ERR_FILE_BAD},
        {"circle", KESS_ERR_FILE_BAD},
        {"empty.wav", KESS_ERR_FILE_BAD},
    };
    for (const auto& [path, result] : cases) {
        for (const int type : {0, int(KESS_SOUND_TYPE_WAV)})
            EXPECT_EQ(engine().tryOpen(path, type), result) << path;
    }
}

TEST(WhatIsNoSound, HasAnUnknownFormatWhateverItsFirstBytes)
{
    std::string text;
    for (int i = 0; i < 2000; ++i)
        text += "Track " + std::to_string(i) + " of a long list of nothing.\n";
    const std::pair<const char*, std::string> cases[] = {
        {"text.wav", text},
        {"short.mp3", "a"},
        {"utf16.mp3", "\xff\xfe" + std::string("t\0e\0x\0t\0", 8)},
        {"sync.mp3", std::string("\xff\xfb\x90\x64", 4) + text},
        {"id3.mp3", std::string("ID3\4\0\0\0\0\0\x0a", 10) + text},
        {"riff.wav", "RIFF" + std::string("\x24\0\0\0", 4) + "ACON" + text},
        {"form.aiff", "FORM" + std::string("\0\0\0\x24", 4) + "ILBM" + text},
    };
    for (const auto& [path, content] : cases) {
        writeFile(path, content);
        for (const int type : {0, int(KESS_SOUND_TYPE_WAV), int(KESS_SOUND_TYPE_MPEG)})
            EXPECT_EQ(engine().tryOpen(path, type), KESS_ERR_FORMAT) << path;
    }
    for (uint32_t seed = 0; seed < 300; ++seed) {
        const std::vector<int32_t> numbers = randomIntegers(5000, seed);
        writeFile("random", std::string(reinterpret_cast<const char*>(numbers.data()), 20000));
        EXPECT_EQ(engine().tryOpen("random"), KESS_ERR_FORMAT) << seed;
    }
}

namespace {

using Bytes = std::vector<uint8_t>;

// Overwrites bytes at an offset from the end of the first occurrence of a text.
struct Patch
{
    std::string text;
    ptrdiff_t offset;
    Bytes bytes;
};

// A file of 16-bit noise in a format of libsndfile.
void writePatched(const std::string& path, int format, size_t frames, const std::vector<Patch>& patches)
{
    std::vector<uint8_t> file = readFile(writeSound(path, format | SF_FORMAT_PCM_16, noise(1, 22050, frames)));
    for (const Patch& patch : patches) {
        const auto text = std::search(file.begin(), file.end(), patch.text.begin(), patch.text.end());
        std::ranges::copy(patch.bytes, text + ptrdiff_t(patch.text.size()) + patch.offset);
    }
    writeFile(path, file);
}

void expectLengths(const std::string& path, uint64_t least, uint64_t most, uint64_t declared, double tolerance = 0)
{
    const SoundPointer sound = engine().open(path);
    const Facts facts = readFacts(*sound);
    uint64_t reported = 0;
    ASSERT_EQ(sound->getDeclaredSampleCount(&reported), KESS_OK);
    EXPECT_NEAR(double(reported), double(declared), tolerance);
    EXPECT_EQ(reported > facts.samples, declared > most);
    EXPECT_GE(facts.samples, least);
    EXPECT_LE(facts.samples, most);
    EXPECT_EQ(readFloats(*sound).size(), facts.samples * uint64_t(facts.channels));
}

} // namespace

TEST(ADamagedHeader, IsDistinguishedFromAnUnknownFormatAndFromTooManyChannels)
{
    const std::tuple<const char*, int, Patch, KESS_RESULT> cases[] = {
        {"no channel", SF_FORMAT_WAV, {"", 22, {0, 0}}, KESS_ERR_FILE_BAD},
        {"33 channels", SF_FORMAT_WAV, {"", 22, {33, 0}}, KESS_ERR_TOOMANYCHANNELS},
        {"65535 channels", SF_FORMAT_WAV, {"", 22, {255, 255}}, KESS_ERR_TOOMANYCHANNELS},
        {"no rate", SF_FORMAT_WAV, {"", 24, {0, 0, 0, 0}}, KESS_ERR_FILE_BAD},
        {"a rate of 4 GHz", SF_FORMAT_WAV, {"", 24, {255, 255, 255, 255}}, KESS_ERR_FILE_BAD},
        {"unknown encoding", SF_FORMAT_WAV, {"", 20, {0x34, 0x12}}, KESS_ERR_FORMAT},
        {"no format", SF_FORMAT_WAV, {"", 12, {'n', 'o', 'n', 'e'}}, KESS_ERR_FILE_BAD},
        {"33 channels", SF_FORMAT_AIFF, {"", 20, {0, 33}}, KESS_ERR_TOOMANYCHANNELS},
        {"no channel", SF_FORMAT_AIFF, {"", 20, {0, 0}}, KESS_ERR_FILE_BAD},
    };
    for (const auto& [what, format, patch, result] : cases) {
        writePatched("damaged", format, 1000, {patch});
        EXPECT_EQ(engine().tryOpen("damaged"), result) << std::hex << format << " " << what;
    }
    // The maximum itself is accepted, in formats that allow it.
    EXPECT_EQ(engine().tryOpen(writeSound("32", SF_FORMAT_WAV | SF_FORMAT_PCM_16, sine(32, 44100, 100))), KESS_OK);
    EXPECT_EQ(engine().tryOpen(writeSound("33", SF_FORMAT_CAF | SF_FORMAT_PCM_16, sine(33, 44100, 100))),
              KESS_ERR_TOOMANYCHANNELS);
}

TEST(AFileThatIsCutShort, ReportsItsDeclaredLength)
{
    for (const int format :
         {SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_WAV | SF_FORMAT_PCM_16 | SF_ENDIAN_BIG,
          SF_FORMAT_WAVEX | SF_FORMAT_FLOAT, SF_FORMAT_RF64 | SF_FORMAT_PCM_24, SF_FORMAT_W64 | SF_FORMAT_PCM_16,
          SF_FORMAT_AIFF | SF_FORMAT_PCM_24, SF_FORMAT_AIFF | SF_FORMAT_FLOAT, SF_FORMAT_AU | SF_FORMAT_PCM_16,
          SF_FORMAT_AU | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE, SF_FORMAT_CAF | SF_FORMAT_PCM_16,
          SF_FORMAT_VOC | SF_FORMAT_PCM_16, SF_FORMAT_WAV | SF_FORMAT_ULAW, SF_FORMAT_FLAC | SF_FORMAT_PCM_16}) {
        SCOPED_TRACE(testing::Message() << std::hex << format);
        constexpr uint64_t kFrames = 30000;
        std::vector<uint8_t> file = readFile(writeSound("whole", format, noise(2, 22050, kFrames)));
        expectLengths("whole", kFrames, kFrames, kFrames);
        const size_t half = (file.size() + 1) / 2;
        file.pop_back();
        writeFile("last frame", file);
        file.resize(half);
        writeFile("cut", file);
        if (format == (SF_FORMAT_FLAC | SF_FORMAT_PCM_16)) { // fails at its end
            EXPECT_EQ(readFacts(*engine().open("cut")).samples, kFrames);
        } else {
            expectLengths("last frame", kFrames - 1, kFrames, readFacts(*engine().open("last frame")).samples);
            // VOC files differ in whether their lengths include the headers of blocks.
            const double tolerance = format == (SF_FORMAT_VOC | SF_FORMAT_PCM_16) ? 5 : 0;
            expectLengths("cut", kFrames * 40 / 100, kFrames * 51 / 100, kFrames, tolerance);
        }
    }
}

TEST(AFileOfPackedSoundThatIsCutShort, ReportsThatSamplesAreMissing)
{
    if (!canEncode())
        GTEST_SKIP();
    const std::tuple<const char*, const char*, int> kinds[] = {{"mp3", "libmp3lame", 2},
                                                               {"asf", "wmav2", 2},
                                                               {"asf", "wmav1", 2},
                                                               {"wav", "adpcm_ima_wav", 1},
                                                               {"wav", "adpcm_ms", 2}};
    for (const auto& [container, encoder, channels] : kinds) {
        SCOPED_TRACE(encoder);
        encodeSound("whole", container, encoder, noise(channels, 44100, 50000));
        const uint64_t whole = readFacts(*engine().open("whole")).samples;
        expectLengths("whole", whole, whole, whole);
        const std::vector<uint8_t> file = readFile("whole");
        for (const size_t missing : {size_t{100}, size_t{700}, file.size() / 2}) {
            writeFile("cut", std::vector(file.begin(), file.end() - ptrdiff_t(missing)));
            const SoundPointer sound = engine().open("cut");
            const Facts facts = readFacts(*sound);
            uint64_t declared = 0;
            ASSERT_EQ(sound->getDeclaredSampleCount(&declared), KESS_OK);
            EXPECT_GT(declared, facts.samples) << missing;
            EXPECT_NEAR(double(declared), double(whole), 0.15 * double(whole)) << missing;
            EXPECT_EQ(readFloats(*sound).size(), facts.samples * uint64_t(channels));
        }
    }
}

TEST(AnOggFileWithPartOfAPageMissing_OrOneAmongOthers, ReportsThatSamplesAreMissing)
{
    if (!canEncode())
        GTEST_SKIP();
    constexpr uint64_t kFrames = 480'000;
    for (const char* encoder : {"libvorbis", "libopus", "flac"}) {
        encodeSound("whole.ogg", "ogg", encoder, noise(2, 48000, kFrames));
        const std::string whole = readText("whole.ogg");
        const std::vector<std::string> pages = oggPages(whole);
        ASSERT_GT(pages.size(), 8u) << encoder;
        size_t firstSound = 1; // the pages with headers have position 0
        while (pages[firstSound].substr(6, 8) == std::string(8, '\0'))
            ++firstSound;
        const auto without = [&](size_t page, size_t count) {
            auto kept = pages;
            kept.erase(kept.begin() + ptrdiff_t(page), kept.begin() + ptrdiff_t(page + count));
            return joined(kept);
        };
        auto flipped = pages;
        flipped[firstSound + 2].back() ^= 1;
        const size_t lastPage = pages.back().size();
        const std::tuple<const char*, std::string, bool> cases[] = {
            {"whole", whole, false},
            {"without the last byte", whole.substr(0, whole.size() - 1), true},
            {"cut in the last page", whole.substr(0, whole.size() - lastPage / 2), true},
            {"cut in the header of the last page", whole.substr(0, whole.size() - lastPage + 12), true},
            {"cut in the middle of a page", whole.substr(0, whole.size() / 2), true},
            {"without a page", without(firstSound + 2, 1), true},
            {"without two pages", without(firstSound + 1, 2), true},
            {"with a wrong bit in a page", joined(flipped), true},
            // Recordings of a stream begin and end anywhere.
            {"without the last page", without(pages.size() - 1, 1), false},
            {"without the first pages of sound", without(firstSound, 2), false},
            {"with a tag after the last page", whole + "TAG" + std::string(125, 'x'), false},
        };
        for (const auto& [what, bytes, isDamaged] : cases) {
            SCOPED_TRACE(std::string(encoder) + " " + what);
            writeFile("file.ogg", bytes);
            const SoundPointer sound = engine().open("file.ogg");
            uint64_t declared = 0;
            ASSERT_EQ(sound->getDeclaredSampleCount(&declared), KESS_OK);
            const uint64_t samples = readFacts(*sound).samples;
            EXPECT_EQ(declared > samples, isDamaged) << declared << " " << samples;
            EXPECT_LE(declared, kFrames * 5 / 4);
        }
    }
}

TEST(ADpcmFileWhoseLastBlockIsShort, HasExactlyTheSamplesThatAreStored)
{
    // In the second file, libsndfile drops a short block.
    for (const auto& [encoding, tolerance] :
         {std::pair(SF_FORMAT_IMA_ADPCM, 90), std::pair(SF_FORMAT_MS_ADPCM, 2000)}) {
        for (const int channels : {1, 2}) {
            SCOPED_TRACE(testing::Message() << std::hex << encoding << " of " << channels);
            writeSound("whole.wav", SF_FORMAT_WAV | encoding, noise(channels, 22050, 20000));
            const std::vector<float> whole = readFloats(*engine().open("whole.wav"));
            std::vector<uint8_t> file = readFile("whole.wav");
            const auto data = file.begin() + ptrdiff_t(readText("whole.wav").find("data")) + 8;
            const size_t bytes = 3000;
            for (const std::ptrdiff_t offset : {0, 1, 2, 3})
                data[offset - 4] = uint8_t(bytes >> 8 * offset);
            file.resize(size_t(data - file.begin()) + bytes);
            writeFile("short.wav", file);
            const std::vector<float> samples = readFloats(*engine().open("short.wav"));
            EXPECT_NEAR(double(samples.size()), 2 * double(bytes), tolerance);
            ASSERT_LE(samples.size(), whole.size());
            EXPECT_TRUE(std::equal(samples.begin(), samples.end(), whole.begin()));
        }
    }
}

TEST(AFileFromAPipe, IsReadToItsEndWhateverItsLengthField)
{
    constexpr uint64_t kFrames = 3000;
    const std::tuple<const char*, int, std::vector<Patch>> cases[] = {
        {"nothing filled in", SF_FORMAT_WAV, {{"", 4, Bytes(4)}, {"data", 0, Bytes(4)}}},
        {"as if it were empty", SF_FORMAT_WAV, {{"", 4, {36, 0, 0, 0}}, {"data", 0, Bytes(4)}}},
        {"no end known", SF_FORMAT_WAV, {{"", 4, Bytes(4, 255)}, {"data", 0, Bytes(4)}}},
        {"largest of 32 bits", SF_FORMAT_WAV, {{"", 4, Bytes(4, 255)}, {"data", 0, Bytes(4, 255)}}},
        {"largest of 31 bits", SF_FORMAT_WAV, {{"data", 0, {0xff, 0xff, 0xff, 0x7f}}}},
        {"nearly that", SF_FORMAT_WAV, {{"", 4, {0x24, 0xf0, 0xff, 0x7f}}, {"data", 0, {0, 0xf0, 0xff, 0x7f}}}},
        {"just above that", SF_FORMAT_WAV, {{"data", 0, {0, 0, 0, 0x80}}}},
        {"whole seconds below that", SF_FORMAT_AIFF, {{"SSND", 0, {0x7e, 0xff, 0xff, 0xa8}}}},
        {"empty ds64", SF_FORMAT_RF64, {{"", 20, Bytes(8)}, {"", 28, Bytes(8)}, {"data", 0, Bytes(4, 255)}}},
        {"full ds64", SF_FORMAT_RF64, {{"", 20, Bytes(8, 255)}, {"", 28, Bytes(8, 255)}, {"data", 0, Bytes(4, 255)}}},
        {"empty", SF_FORMAT_W64, {{"", 16, Bytes(8)}, {"data", 12, Bytes(8)}}},
        {"full", SF_FORMAT_W64, {{"", 16, Bytes(8, 255)}, {"data", 12, Bytes(8, 255)}}},
        {"largest of 63 bits", SF_FORMAT_W64, {{"data", 12, {0xd4, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x7f}}}},
        {"empty", SF_FORMAT_AIFF, {{"", 4, Bytes(4)}, {"SSND", 0, Bytes(4)}}},
        {"full", SF_FORMAT_AU, {{"", 8, Bytes(4, 255)}}},
        {"full", SF_FORMAT_CAF, {{"data", 0, Bytes(8, 255)}}},
    };
    for (const auto& [what, format, patches] : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << format << " " << what);
        writePatched("piped", format, kFrames, patches);
        expectLengths("piped", kFrames, kFrames, kFrames);
    }
}

TEST(AWavFileOfMoreThanFourGigabytes, IsReadToItsEndWhateverItsLengthsSay)
{
    constexpr uint64_t kSpare = uint64_t{1} << 31; // frames
    for (const int length : {-1, 0, 255}) {
        const Bytes bytes(4, uint8_t(length));
        const std::vector<Patch> patches = {{"", 4, bytes}, {"", 40, bytes}};
        writePatched("long", SF_FORMAT_WAV, 3000, length < 0 ? std::vector<Patch>() : patches);
        std::filesystem::resize_file("long", 44 + 2 * (3000 + kSpare));
        const SoundPointer sound = engine().open("long");
        EXPECT_EQ(readFacts(*sound).samples, 3000 + kSpare);
        ASSERT_EQ(sound->seekData(3000 + kSpare - 10), KESS_OK);
        EXPECT_EQ(readBytes(*sound).size(), 20u);
        std::filesystem::remove("long");
    }
}

TEST(AFailure, IsToldInWordsUntilTheNextCallOfTheThread)
{
    const auto detail = [] {
        char text[256];
        EXPECT_EQ(KESS_ErrorDetail(text, sizeof text), KESS_OK);
        return std::string(text);
    };
    std::filesystem::create_directory("folder");
    writeFile("empty.wav", "");
    writePatched("good.wav", SF_FORMAT_WAV, 100, {});
    writePatched("many.wav", SF_FORMAT_WAV, 100, {{"", 22, {33, 0}}});
    writePatched("cut.wav", SF_FORMAT_WAV, 100, {{"", 12, {'n', 'o', 'n', 'e'}}});
    writeFile("bank.tnb", "\x89TNB\r\n\x1a\n");
    const std::pair<const char*, const char*> cases[] = {
        {"folder", "it is a folder"},
        {"empty.wav", "it is empty"},
        {"many.wav", "it has 33 channels"},
        {"cut.wav", "its format chunk is missing or too short"},
        {"bank.tnb", "the file ends within its header"},
        {"good.wav", ""},
    };
    for (const auto& [path, words] : cases) {
        const bool isOpened = engine().tryOpen(path) == KESS_OK;
        EXPECT_EQ(detail(), words) << path;
        EXPECT_EQ(isOpened, detail().empty()) << path;
        std::thread([&] { EXPECT_EQ(detail(), "") << "of another thread"; }).join();
    }

    {
        const Limit none(RLIMIT_NOFILE, 0);
        EXPECT_EQ(engine().tryOpen("good.wav"), KESS_ERR_FILE_BAD);
        EXPECT_EQ(KESS_SystemError(), EMFILE);
    }
    EXPECT_EQ(engine().tryOpen("many.wav"), KESS_ERR_TOOMANYCHANNELS);
    EXPECT_EQ(KESS_SystemError(), 0) << "the fault is one of the file";
    char text[9];
    EXPECT_EQ(KESS_ErrorDetail(text, sizeof text), KESS_ERR_TRUNCATED);
    EXPECT_STREQ(text, "it has 3");
}

TEST(ASoundWithoutSamples, OpensAndIsAtItsEnd)
{
    const Signal nothing{2, 44100, {}};
    for (const int format : {SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_WAV | SF_FORMAT_FLOAT,
                             SF_FORMAT_AIFF | SF_FORMAT_PCM_24, SF_FORMAT_W64 | SF_FORMAT_PCM_16}) {
        writeSound("nothing", format, nothing);
        const SoundPointer sound = engine().open("nothing");
        EXPECT_EQ(readFacts(*sound).samples, 0u);
        EXPECT_EQ(readFacts(*sound).milliseconds, 0u);
        char buffer[64];
        EXPECT_EQ(sound->readData(buffer, sizeof buffer, nullptr), KESS_ERR_FILE_EOF);
        EXPECT_EQ(sound->seekData(0), KESS_OK);
    }

    // An AIFF file without a chunk of samples is empty if its header says so; otherwise it was cut short.
    constexpr size_t kToTheEndOfTheCommonChunk = 12 + 8 + 18;
    writePatched("cut short", SF_FORMAT_AIFF, 1000, {});
    std::filesystem::resize_file("cut short", kToTheEndOfTheCommonChunk);
    EXPECT_EQ(engine().tryOpen("cut short"), KESS_ERR_FILE_BAD);
    writePatched("empty", SF_FORMAT_AIFF, 1000, {{"", 22, {0, 0, 0, 0}}});
    std::filesystem::resize_file("empty", kToTheEndOfTheCommonChunk);
    expectLengths("empty", 0, 0, 0);
}

TEST(FilesThatHoldNoSampledSound, AreRecognisedByTheirContentAndNotDecoded)
{
    const std::string zeros(2000, '\0');
    const auto at = [&](size_t offset, const std::string& mark) {
        return zeros.substr(0, offset) + mark + zeros;
    };
    std::string s3m = at(44, "SCRM");
    s3m[28] = 0x1a;
    s3m[29] = 0x10;
    const std::string size("\x10\0\0\0", 4);
    const std::pair<std::string, KESS_SOUND_TYPE> cases[] = {
        {"MThd" + zeros, KESS_SOUND_TYPE_MIDI},
        {"RIFF" + size + "RMID" + zeros, KESS_SOUND_TYPE_MIDI},
        {"RIFF" + size + "DLS " + zeros, KESS_SOUND_TYPE_DLS},
        {"IMPM" + zeros, KESS_SOUND_TYPE_IT},
        {at(1080, "M.K."), KESS_SOUND_TYPE_MOD},
        {at(1080, "6CHN"), KESS_SOUND_TYPE_MOD},
        {at(1080, "16CH"), KESS_SOUND_TYPE_MOD},
        {s3m, KESS_SOUND_TYPE_S3M},
        {"Extended Module: " + zeros, KESS_SOUND_TYPE_XM},
        {"#EXTM3U\nsong.mp3\n", KESS_SOUND_TYPE_PLAYLIST},
        {"\xef\xbb\xbf#EXTM3U\r\nsong.mp3\r\n", KESS_SOUND_TYPE_PLAYLIST},
        {"[playlist]\nFile1=song.mp3\n", KESS_SOUND_TYPE_PLAYLIST},
        {"<ASX version=\"3.0\">", KESS_SOUND_TYPE_PLAYLIST},
        {"<?wpl version=\"1.0\"?>", KESS_SOUND_TYPE_PLAYLIST},
        {"<?xml version=\"1.0\"?><playlist version=\"1\" xmlns=\"http://xspf.org/ns/0/\">", KESS_SOUND_TYPE_PLAYLIST},
    };
    for (const auto& [content, type] : cases) {
        writeFile("recognised.wav", content);
        const SoundPointer sound = engine().open("recognised.wav");
        EXPECT_EQ(readFacts(*sound), Facts{type}) << content;
        char buffer[16];
        EXPECT_EQ(sound->readData(buffer, sizeof buffer, nullptr), KESS_ERR_UNSUPPORTED) << type;
        EXPECT_EQ(sound->seekData(0), KESS_ERR_UNSUPPORTED);
        EXPECT_EQ(engine().tryOpen("recognised.wav", KESS_SOUND_TYPE_WAV), KESS_ERR_FORMAT);
    }
}

TEST(Calls, WithWrongArgumentsReturnErrors)
{
    writeSound("good.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, sine(2, 44100, 1000));
    KESS::System* system = nullptr;
    EXPECT_EQ(KESS_System_Create(nullptr, KESS_VERSION), KESS_ERR_INVALID_PARAM);
    ASSERT_EQ(KESS_System_Create(&system, KESS_VERSION), KESS_OK);
    KESS::Sound* sound = nullptr;
    EXPECT_EQ(system->createSound("good.wav", 0, nullptr, &sound), KESS_ERR_UNINITIALIZED);
    for (const int output : {2, -1, INT_MIN})
        EXPECT_EQ(system->setOutput(KESS_OUTPUTTYPE(output)), KESS_ERR_INVALID_PARAM);
    ASSERT_EQ(system->init(0, 0, nullptr), KESS_OK);
    EXPECT_EQ(system->createSound(nullptr, 0, nullptr, &sound), KESS_ERR_INVALID_PARAM);
    EXPECT_EQ(system->createSound("good.wav", 0, nullptr, nullptr), KESS_ERR_INVALID_PARAM);
    KESS_CREATESOUNDEXINFO info{};
    EXPECT_EQ(system->createSound("good.wav", 0, &info, &sound), KESS_ERR_INVALID_PARAM);
    info.cbsize = sizeof info;
    info.suggestedsoundtype = KESS_SOUND_TYPE(-1);
    EXPECT_EQ(system->createSound("good.wav", 0, &info, &sound), KESS_ERR_FORMAT);
    ASSERT_EQ(system->createSound("good.wav", 0, nullptr, &sound), KESS_OK);
    // Sounds stay usable after the engine has been released.
    EXPECT_EQ(system->release(), KESS_OK);

    char buffer[64];
    KESS::Sound* subsound = nullptr;
    EXPECT_EQ(sound->readData(nullptr, 4, nullptr), KESS_ERR_INVALID_PARAM);
    EXPECT_EQ(sound->readData(buffer, 3, nullptr), KESS_ERR_INVALID_PARAM);
    EXPECT_EQ(sound->readData(buffer, 0, nullptr), KESS_OK);
    unsigned got = 0;
    EXPECT_EQ(sound->readData(buffer, 63, &got), KESS_OK);
    EXPECT_EQ(got, 60u);
    EXPECT_EQ(sound->getLength(nullptr, KESS_TIMEUNIT_MS), KESS_OK);
    EXPECT_EQ(sound->getLength(&got, 3), KESS_ERR_INVALID_PARAM);
    EXPECT_EQ(sound->getFormat(nullptr, nullptr, nullptr, nullptr), KESS_OK);
    EXPECT_EQ(sound->getDefaults(nullptr, nullptr), KESS_OK);
    EXPECT_EQ(sound->setLoopCount(1), KESS_ERR_TAGNOTFOUND);
    EXPECT_EQ(sound->setLoopCount(-2), KESS_ERR_INVALID_PARAM);
    EXPECT_EQ(sound->getSyncPoint(0, nullptr, nullptr, 0), KESS_ERR_INVALID_SYNCPOINT);
    EXPECT_EQ(sound->getPeak(nullptr), KESS_ERR_TAGNOTFOUND);
    EXPECT_EQ(sound->getSubSound(0, &subsound), KESS_ERR_SUBSOUNDS);
    EXPECT_EQ(sound->getSubSoundByName("x", &subsound), KESS_ERR_SUBSOUNDS);
    int count = 1;
    EXPECT_EQ(sound->getNumSubSounds(&count), KESS_OK);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(sound->setEncryptionKey("key"), KESS_OK);
    EXPECT_EQ(sound->release(), KESS_OK);
}

TEST(AnEngine, TakesTheHeadersOfItsMajorVersionThatAreNotNewer)
{
    unsigned library = 0;
    ASSERT_EQ(KESS_GetVersion(&library), KESS_OK);
    const auto create = [](unsigned header) {
        KESS::System* system = nullptr;
        const KESS_RESULT result = KESS_System_Create(&system, header);
        return system ? system->release() : result;
    };
    for (const unsigned accepted : {0x00020308u, KESS_VERSION, library, library & 0xffff0000u})
        EXPECT_EQ(create(accepted), KESS_OK) << std::hex << accepted;
    for (const unsigned refused : {0u, library + 1, library + 0x10000, library - 0x10000, ~0u})
        EXPECT_EQ(create(refused), KESS_ERR_HEADER_MISMATCH) << std::hex << refused;
    EXPECT_EQ(KESS_GetVersion(nullptr), KESS_ERR_INVALID_PARAM);
}

TEST(ErrorTexts, ExistForEachResultAndDiffer)
{
    std::set<std::string> texts;
    for (int result = -1; result <= 100; ++result)
        texts.insert(KESS_ErrorString(static_cast<KESS_RESULT>(result)));
    EXPECT_EQ(texts.size(), 21 + 1) << "one text for all unknown results";
}
