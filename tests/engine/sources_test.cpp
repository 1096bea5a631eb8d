// SPDX-License-Identifier: MIT
// Sounds and banks from memory, from functions of the program, and from a part of a file.
#include "source_kinds.hpp"
#include "support/bank_maker.hpp"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>

using namespace test;

namespace {

using Bytes = std::vector<uint8_t>;

// Bytes behind functions: short reads, errors, and whether it was closed.
struct CallbackBytes
{
    Bytes bytes;
    uint64_t mostAtOnce = 1000;
    int64_t failure = 0; // the result of reads past failsFrom
    uint64_t failsFrom = UINT64_MAX;
    std::atomic<int> closed = 0;
    std::atomic<int> wrongRanges = 0;

    static int64_t read(void* user, uint64_t offset, void* buffer, uint64_t count)
    {
        auto& self = *static_cast<CallbackBytes*>(user);
        if (count == 0 || offset >= self.bytes.size() || count > self.bytes.size() - offset)
            ++self.wrongRanges;
        if (offset + count > self.failsFrom)
            return self.failure;
        const uint64_t got = std::min(count, self.mostAtOnce);
        std::memcpy(buffer, self.bytes.data() + offset, got);
        return int64_t(got);
    }

    [[nodiscard]] KESS_SOURCE source()
    {
        KESS_SOURCE made{};
        made.cbsize = sizeof made;
        made.size = bytes.size();
        made.userData = this;
        made.read = read;
        made.close = [](void* user) {
            ++static_cast<CallbackBytes*>(user)->closed;
        };
        return made;
    }
};

SoundPointer fromMemory(const Bytes& bytes)
{
    KESS::Sound* sound = nullptr;
    EXPECT_EQ(engine().system().createSoundFromMemory(bytes.data(), bytes.size(), 0, nullptr, &sound), KESS_OK);
    return SoundPointer(sound);
}

KESS_RESULT fromCallbacks(CallbackBytes& bytes, SoundPointer& sound)
{
    const KESS_SOURCE source = bytes.source();
    KESS::Sound* opened = nullptr;
    const KESS_RESULT result = engine().system().createSoundFromCallbacks(&source, 0, nullptr, &opened);
    sound.reset(opened);
    return result;
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
    std::vector<bank_test::EncodedSound> sounds;
    for (const bank::Codec codec : {bank::Codec::Pcm, bank::Codec::Kadpcm, bank::Codec::Vorbis, bank::Codec::Opus}) {
        bank_test::MemorySound source(2, 48000, noise(2, 48000, 40'000).samples);
        sounds.push_back(bank_test::encode(codec, source));
    }
    return bank_test::makeBank(sounds, {}, key);
}

} // namespace

TEST(EveryKindOfFile, IsReadAlikeFromMemoryFromFunctionsAndFromAPartOfAFile)
{
    for (const SourceKind& kind : sourceKinds()) {
        SCOPED_TRACE(kind.name);
        const std::string path = exampleFile(kind);
        const SoundPointer file = engine().open(path);
        CallbackBytes callbacks{readFile(path)};
        SoundPointer called;
        ASSERT_EQ(fromCallbacks(callbacks, called), KESS_OK);
        const std::vector<float> expected = readAll(*file);
        for (const SoundPointer& sound : {fromMemory(callbacks.bytes), std::move(called), fromRange(callbacks.bytes)}) {
            EXPECT_EQ(readFacts(*sound), readFacts(*file));
            EXPECT_TRUE(readAll(*sound) == expected);
        }
        EXPECT_EQ(callbacks.closed, 1);
        EXPECT_EQ(callbacks.wrongRanges, 0);
    }
}

TEST(ABank, IsReadAlikeFromMemoryFromFunctionsAndFromAPartOfAFile)
{
    for (const char* key : {"", "key"}) {
        CallbackBytes callbacks{bankBytes(key)};
        writeFile("whole", callbacks.bytes);
        const SoundPointer file = engine().open("whole");
        ASSERT_EQ(file->setEncryptionKey(key), KESS_OK);
        SoundPointer called;
        ASSERT_EQ(fromCallbacks(callbacks, called), KESS_OK);
        for (SoundPointer& bank :
             std::array{fromMemory(callbacks.bytes), fromRange(callbacks.bytes), std::move(called)}) {
            ASSERT_EQ(bank->setEncryptionKey(key), KESS_OK);
            EXPECT_EQ(bank->verifyBank(nullptr, nullptr), KESS_OK);
            std::vector<std::vector<float>> expected;
            std::vector<SoundPointer> voices;
            for (int i = 0; i < 4; ++i) {
                KESS::Sound* sound = nullptr;
                ASSERT_EQ(file->getSubSound(i, &sound), KESS_OK);
                ASSERT_EQ(sound->seekData(0), KESS_OK);
                expected.push_back(readAll(*sound));
                ASSERT_EQ(bank->getSubSound(i, &sound), KESS_OK);
                ASSERT_EQ(sound->createVoice(&sound), KESS_OK);
                voices.emplace_back(sound);
            }
            bank.reset();
            EXPECT_EQ(callbacks.closed, 0) << "its voices still need it";
            std::vector<std::jthread> threads;
            for (int i = 0; i < 4; ++i)
                threads.emplace_back([&, i] { EXPECT_TRUE(readAll(*voices[size_t(i)]) == expected[size_t(i)]); });
            threads.clear();
        }
        EXPECT_EQ(callbacks.closed, 1);
        EXPECT_EQ(callbacks.wrongRanges, 0);
    }
}

TEST(ASource, ThatFailsReportsItsErrorAndIsClosedOnlyIfItWasOpened)
{
    const Bytes wav = readFile(exampleFile(sourceKinds()[0]));
    Bytes damaged = bankBytes("");
    damaged[40] ^= 1;
    struct Case
    {
        const char* what;
        Bytes bytes;
        uint64_t failsFrom;
        int64_t failure;
        KESS_RESULT result;
        int systemError;
    };
    for (const auto& [what, bytes, failsFrom, failure, expected, systemError] : {
             Case{"text", Bytes(3000, 'a'), UINT64_MAX, 0, KESS_ERR_FORMAT, 0},
             Case{"empty", {}, UINT64_MAX, 0, KESS_ERR_FILE_BAD, 0},
             Case{"a damaged bank", damaged, UINT64_MAX, 0, KESS_ERR_FILE_BAD, 0},
             Case{"an error", wav, 0, -ENXIO, KESS_ERR_FILE_BAD, ENXIO},
             Case{"an early end", bankBytes("key"), 10, 0, KESS_ERR_FILE_BAD, 0},
             Case{"too many bytes", wav, 0, INT64_MAX, KESS_ERR_FILE_BAD, EIO},
             Case{"an impossible error", wav, 0, INT64_MIN, KESS_ERR_FILE_BAD, EIO},
         }) {
        SCOPED_TRACE(what);
        CallbackBytes callbacks{bytes, 1000, failure, failsFrom};
        SoundPointer sound;
        EXPECT_EQ(fromCallbacks(callbacks, sound), expected);
        EXPECT_EQ(KESS_SystemError(), systemError);
        EXPECT_FALSE(sound);
        EXPECT_EQ(callbacks.closed, 0);
    }

    // Of a sound that was opened, what can be read is delivered first.
    CallbackBytes callbacks{bankBytes("")};
    SoundPointer bank;
    ASSERT_EQ(fromCallbacks(callbacks, bank), KESS_OK);
    KESS::Sound* sound = nullptr;
    ASSERT_EQ(bank->getSubSound(2, &sound), KESS_OK);
    ASSERT_EQ(readFloats(*sound, 100).size(), 200u);
    callbacks.failure = -ENODEV;
    callbacks.failsFrom = 0;
    EXPECT_GT(readFloats(*sound).size(), 0u);
    float frame[2];
    EXPECT_EQ(sound->readFloat(frame, 1, nullptr), KESS_ERR_FILE_BAD);
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
    CallbackBytes callbacks{wav};
    for (const auto& spoil :
         {+[](KESS_SOURCE& source) { source.cbsize = 8; }, +[](KESS_SOURCE& source) { source.read = nullptr; },
          +[](KESS_SOURCE& source) {
              source.size = KESS_MAX_SOURCE_BYTES + 1;
          }}) {
        KESS_SOURCE source = callbacks.source();
        spoil(source);
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
