// SPDX-License-Identifier: MIT
// Sounds and banks from memory, from functions of the program, and from a part of a file.
#include "source_kinds.hpp"
#include "support/bank_maker.hpp"

#include <cerrno>
#include <thread>

using namespace test;

namespace {

using Bytes = std::vector<uint8_t>;

SoundPointer fromMemory(const Bytes& bytes)
{
    KESS::Sound* sound = nullptr;
    EXPECT_EQ(engine().system().createSoundFromMemory(bytes.data(), bytes.size(), 0, nullptr, &sound), KESS_OK);
    return SoundPointer(sound);
}

SoundPointer fromRange(const Bytes& bytes)
{
    constexpr size_t kBefore = 4099;
    Bytes archive(kBefore + bytes.size() + 777, 'x');
    std::copy(bytes.begin(), bytes.end(), archive.begin() + kBefore);
    writeFile("archive", archive);
    KESS::Sound* sound = nullptr;
    EXPECT_EQ(engine().system().createSoundFromRange("archive", kBefore, bytes.size(), 0, nullptr, &sound), KESS_OK);
    return SoundPointer(sound);
}

// All samples, then again from a later one.
std::vector<float> readAll(KESS::Sound& sound)
{
    std::vector<float> samples = readFloats(sound);
    EXPECT_EQ(sound.seekData(1234), KESS_OK);
    const std::vector<float> rest = readFloats(sound);
    samples.insert(samples.end(), rest.begin(), rest.end());
    return samples;
}

Bytes bankBytes(std::string_view key)
{
    return bank_test::makeBank(bank_test::encodeWithEach(noise(2, 48000, 40'000)), {}, key);
}

} // namespace

TEST(EveryKindOfFile, IsReadAlikeFromMemoryFromFunctionsAndFromAPartOfAFile)
{
    for (const SourceKind& kind : sourceKinds()) {
        SCOPED_TRACE(kind.name);
        const std::string path = exampleFile(kind);
        const SoundPointer file = engine().open(path);
        FunctionSource callbacks{readFile(path)};
        SoundPointer called;
        ASSERT_EQ(callbacks.open(&called), KESS_OK);
        const std::vector<float> expected = readAll(*file);
        for (const SoundPointer& sound : {fromMemory(callbacks.bytes), std::move(called), fromRange(callbacks.bytes)}) {
            EXPECT_EQ(readFacts(*sound), readFacts(*file));
            EXPECT_TRUE(readAll(*sound) == expected);
        }
        EXPECT_EQ(callbacks.closed, 1);
        EXPECT_EQ(callbacks.wrongReads, 0);
    }
}

TEST(ABank, IsReadAlikeFromMemoryFromFunctionsAndFromAPartOfAFile)
{
    for (const char* key : {"", "key"}) {
        FunctionSource callbacks{bankBytes(key)};
        writeFile("whole", callbacks.bytes);
        const SoundPointer file = engine().open("whole");
        ASSERT_EQ(file->setEncryptionKey(key), KESS_OK);
        SoundPointer called;
        ASSERT_EQ(callbacks.open(&called), KESS_OK);
        for (SoundPointer& bank :
             std::array{fromMemory(callbacks.bytes), fromRange(callbacks.bytes), std::move(called)}) {
            ASSERT_EQ(bank->setEncryptionKey(key), KESS_OK);
            EXPECT_EQ(bank->verifyBank(nullptr, nullptr), KESS_OK);
            std::vector<std::vector<float>> expected;
            std::vector<SoundPointer> voices;
            for (size_t i = 0; i < 4; ++i) {
                ASSERT_EQ(subsound(*file, i).seekData(0), KESS_OK);
                expected.push_back(readAll(subsound(*file, i)));
                voices.push_back(makeVoice(*makeVoice(subsound(*bank, i))));
                EXPECT_EQ(readFacts(*voices[i]), readFacts(subsound(*file, i)));
                EXPECT_EQ(readLoop(*voices[i]), readLoop(subsound(*file, i)));
                EXPECT_EQ(voices[i]->verifyData(), KESS_OK);
            }
            bank.reset();
            EXPECT_EQ(callbacks.closed, 0) << "its voices still need it";
            std::vector<std::jthread> threads;
            for (size_t i = 0; i < 4; ++i)
                threads.emplace_back([&, i] { EXPECT_TRUE(readAll(*voices[i]) == expected[i]); });
            threads.clear();
        }
        EXPECT_EQ(callbacks.closed, 1);
        EXPECT_EQ(callbacks.wrongReads, 0);
    }
}

TEST(ASource, ThatFailsReportsItsErrorAndIsClosedOnlyIfItWasOpened)
{
    const Bytes wav = readFile(exampleFile(sourceKinds()[0]));
    Bytes damaged = bankBytes("");
    damaged[40] ^= 1;
    const std::tuple<const char*, Bytes, uint64_t, int64_t, KESS_RESULT, int> cases[] = {
        {"text", Bytes(3000, 'a'), UINT64_MAX, 0, KESS_ERR_FORMAT, 0},
        {"empty", {}, UINT64_MAX, 0, KESS_ERR_FILE_BAD, 0},
        {"a damaged bank", damaged, UINT64_MAX, 0, KESS_ERR_FILE_BAD, 0},
        {"an error", wav, 0, -ENXIO, KESS_ERR_FILE_BAD, ENXIO},
        {"an early end", bankBytes("key"), 10, 0, KESS_ERR_FILE_BAD, 0},
        {"too many bytes", wav, 0, INT64_MAX, KESS_ERR_FILE_BAD, EIO},
        {"an impossible error", wav, 0, INT64_MIN, KESS_ERR_FILE_BAD, EIO},
    };
    for (const auto& [what, bytes, failsFrom, failure, expected, systemError] : cases) {
        SCOPED_TRACE(what);
        FunctionSource callbacks{bytes, 1000, failure, failsFrom};
        SoundPointer sound;
        EXPECT_EQ(callbacks.open(&sound), expected);
        EXPECT_EQ(KESS_SystemError(), systemError);
        EXPECT_FALSE(sound);
        EXPECT_EQ(callbacks.closed, 0);
    }

    // Of a sound that was opened, what can be read is delivered first.
    FunctionSource callbacks{bankBytes("")};
    SoundPointer bank;
    ASSERT_EQ(callbacks.open(&bank), KESS_OK);
    KESS::Sound& sound = subsound(*bank, 2);
    ASSERT_EQ(readFloats(sound, 100).size(), 200u);
    callbacks.failure = -ENODEV;
    callbacks.failsFrom = 0;
    EXPECT_GT(readFloats(sound).size(), 0u);
    float frame[2];
    EXPECT_EQ(sound.readFloat(frame, 1, nullptr), KESS_ERR_FILE_BAD);
    EXPECT_EQ(KESS_SystemError(), ENODEV);
    EXPECT_EQ(bank->verifyBank(nullptr, nullptr), KESS_ERR_FILE_COULDNOTSEEK);
    bank.reset();
    EXPECT_EQ(callbacks.closed, 1);
}

TEST(ASource, WithWrongArgumentsIsRefused)
{
    KESS::System& system = engine().system();
    KESS::Sound* sound = nullptr;
    const Bytes wav = readFile(exampleFile(sourceKinds()[0]));
    EXPECT_EQ(system.createSoundFromMemory(wav.data(), wav.size(), 0, nullptr, nullptr), KESS_ERR_INVALID_PARAM);
    EXPECT_EQ(system.createSoundFromMemory(nullptr, 10, 0, nullptr, &sound), KESS_ERR_INVALID_PARAM);
    EXPECT_EQ(system.createSoundFromMemory(wav.data(), UINT64_MAX, 0, nullptr, &sound), KESS_ERR_INVALID_PARAM);
    EXPECT_EQ(system.createSoundFromMemory(wav.data(), 0, 0, nullptr, &sound), KESS_ERR_FILE_BAD);
    FunctionSource callbacks{wav};
    for (const int fault : {0, 1, 2}) {
        KESS_SOURCE source = callbacks.record();
        source.cbsize = fault == 0 ? 8 : source.cbsize;
        source.read = fault == 1 ? nullptr : source.read;
        source.size = fault == 2 ? KESS_MAX_SOURCE_BYTES + 1 : source.size;
        EXPECT_EQ(system.createSoundFromCallbacks(&source, 0, nullptr, &sound), KESS_ERR_INVALID_PARAM);
    }
    writeFile("range", wav);
    for (const auto& [offset, bytes] :
         {std::pair<uint64_t, uint64_t>{0, wav.size() + 1}, {wav.size() + 1, 0}, {wav.size(), 0}, {UINT64_MAX, 2}})
        EXPECT_EQ(system.createSoundFromRange("range", offset, bytes, 0, nullptr, &sound), KESS_ERR_FILE_BAD);
    EXPECT_EQ(system.createSoundFromRange("missing", 0, 10, 0, nullptr, &sound), KESS_ERR_FILE_NOTFOUND);
    EXPECT_EQ(system.createSoundFromRange(nullptr, 0, 10, 0, nullptr, &sound), KESS_ERR_INVALID_PARAM);
    EXPECT_EQ(callbacks.closed, 0);
}
