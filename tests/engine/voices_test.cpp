// SPDX-License-Identifier: MIT
// Voices: several decoders of one sound of a bank.
#include "support/bank_maker.hpp"
#include "support/engine_access.hpp"
#include "support/sound_files.hpp"

#include <atomic>
#include <barrier>
#include <cstdlib>
#include <filesystem>
#include <thread>

using namespace test;

// Counts all allocations of the process. The sanitizers have an allocator of their own.
#if defined(__has_feature)
#define HAS_FEATURE(feature) __has_feature(feature)
#else
#define HAS_FEATURE(feature) 0
#endif
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !HAS_FEATURE(address_sanitizer)                 \
    && !HAS_FEATURE(thread_sanitizer)
#define COUNTS_ALLOCATIONS 1

static std::atomic<size_t> gAllocations;
static std::atomic<size_t> gAllocatedBytes;

extern "C" {

void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);

void* malloc(size_t bytes)
{
    ++gAllocations;
    gAllocatedBytes += bytes;
    return __libc_malloc(bytes);
}

void* calloc(size_t count, size_t bytes)
{
    ++gAllocations;
    gAllocatedBytes += count * bytes;
    return __libc_calloc(count, bytes);
}

void* realloc(void* memory, size_t bytes)
{
    ++gAllocations;
    gAllocatedBytes += bytes;
    return __libc_realloc(memory, bytes);
}
}
#endif

namespace {

constexpr bank::Codec kCodecs[] = {bank::Codec::Pcm, bank::Codec::Kadpcm, bank::Codec::Vorbis, bank::Codec::Opus};
constexpr uint64_t kFrames = 60'000;
constexpr const char* kKey = "key";

// An encrypted bank in the file "voices" of one sound for each codec, with loops of this length.
SoundPointer openBank(uint64_t loopFrames)
{
    std::vector<bank_test::EncodedSound> sounds;
    for (const bank::Codec codec : kCodecs) {
        bank_test::MemorySound source(2, 48000, noise(2, 48000, kFrames).samples);
        source.setLoop(base::Loop{10'000, 10'000 + loopFrames});
        sounds.push_back(bank_test::encode(codec, source, 50, "sound " + std::to_string(int(codec))));
    }
    writeFile("voices", bank_test::makeBank(sounds, {}, kKey));
    SoundPointer bank = engine().open("voices");
    EXPECT_EQ(bank->setEncryptionKey(kKey), KESS_OK);
    return bank;
}

KESS::Sound& subsound(KESS::Sound& bank, size_t index)
{
    KESS::Sound* sound = nullptr;
    if (bank.getSubSound(int(index), &sound) != KESS_OK)
        std::abort();
    return *sound;
}

SoundPointer makeVoice(KESS::Sound& sound)
{
    KESS::Sound* voice = nullptr;
    if (sound.createVoice(&voice) != KESS_OK)
        std::abort();
    return SoundPointer(voice);
}

std::vector<float> readFrom(KESS::Sound& sound, uint64_t frame, size_t count)
{
    EXPECT_EQ(sound.seekData(frame), KESS_OK);
    return readFloats(sound, count);
}

} // namespace

TEST(Voices, HavePositionsAndLoopsOfTheirOwnAndOutliveTheirBank)
{
    SoundPointer bank = openBank(500);
    std::vector<std::vector<float>> expected;
    std::vector<SoundPointer> straight;
    std::vector<SoundPointer> looping;
    for (size_t i = 0; i < std::size(kCodecs); ++i) {
        KESS::Sound& sound = subsound(*bank, i);
        expected.push_back(readFloats(sound));
        straight.push_back(makeVoice(sound));
        looping.push_back(makeVoice(*straight.back()));
        EXPECT_EQ(readFacts(*looping.back()), readFacts(sound));
        EXPECT_EQ(readLoop(*looping.back()), readLoop(sound));
        EXPECT_EQ(looping.back()->verifyData(), KESS_OK);
        ASSERT_EQ(looping.back()->setLoopCount(2), KESS_OK);
    }
    bank.reset();
    std::filesystem::remove("voices");
    std::vector<std::vector<float>> played(straight.size());
    for (uint64_t frame = 0; frame < kFrames; frame += 1000) {
        for (size_t i = 0; i < straight.size(); ++i) {
            const std::vector<float> piece = readFloats(*straight[i], 1000);
            played[i].insert(played[i].end(), piece.begin(), piece.end());
            static_cast<void>(readFloats(*looping[i], 1010));
        }
    }
    EXPECT_TRUE(played == expected);
    for (const SoundPointer& voice : looping)
        EXPECT_EQ(readFloats(*voice).size(), (kFrames + 2 * 500 - 60 * 1010) * 2);
}

TEST(Voices, AreRefusedWhereThereIsNoSoundToDecode)
{
    SoundPointer bank = openBank(500);
    KESS::Sound* voice = bank.get();
    EXPECT_EQ(bank->createVoice(nullptr), KESS_ERR_INVALID_PARAM);
    EXPECT_EQ(bank->createVoice(&voice), KESS_ERR_SUBSOUNDS);
    EXPECT_EQ(voice, nullptr);
    KESS::Sound& sound = subsound(*bank, 0);
    const SoundPointer made = makeVoice(sound);
    EXPECT_EQ(sound.release(), KESS_OK);
    EXPECT_EQ(sound.createVoice(&voice), KESS_ERR_INVALID_HANDLE);
    EXPECT_EQ(readFloats(*made).size(), kFrames * 2);
    int count = -1;
    EXPECT_EQ(made->getNumSubSounds(&count), KESS_OK);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(made->getSubSound(0, &voice), KESS_ERR_SUBSOUNDS);

    writeSound("plain.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, sine(1, 48000, 100));
    EXPECT_EQ(engine().open("plain.wav")->createVoice(&voice), KESS_ERR_SUBSOUNDS);
    bank_test::MemorySound source(1, 48000, sine(1, 48000, 100).samples);
    writeFile("one", bank_test::makeBank({bank_test::encode(bank::Codec::Pcm, source)}, {}, kKey));
    bank = engine().open("one");
    EXPECT_EQ(bank->createVoice(&voice), KESS_ERR_KEY_MISSING);
    ASSERT_EQ(bank->setEncryptionKey(kKey), KESS_OK);
    EXPECT_EQ(readFloats(*makeVoice(*bank)).size(), 100u);
}

#ifdef COUNTS_ALLOCATIONS
TEST(Voices, CostTwoSmallAllocationsEachAndReadNothing)
{
    const SoundPointer bank = openBank(500);
    std::vector<KESS::Sound*> sounds;
    for (size_t i = 0; i < std::size(kCodecs); ++i)
        sounds.push_back(&subsound(*bank, i));
    std::filesystem::resize_file("voices", 0);
    for (KESS::Sound* sound : sounds) {
        std::vector<SoundPointer> voices(64);
        const size_t allocations = gAllocations;
        const size_t bytes = gAllocatedBytes;
        for (SoundPointer& voice : voices)
            voice = makeVoice(*sound);
        EXPECT_LE(gAllocations - allocations, 2 * voices.size());
        EXPECT_LE(gAllocatedBytes - bytes, 512 * voices.size());
    }
}

// Loops that are kept decoded, and loops that aren't.
TEST(Voices, AllocateNothingOnceTheyHaveBeenRead)
{
    for (const uint64_t loopFrames : {700, 40'000}) {
        const SoundPointer bank = openBank(loopFrames);
        for (size_t i = 0; i < std::size(kCodecs); ++i) {
            SCOPED_TRACE(testing::Message() << int(kCodecs[i]) << " " << loopFrames);
            const SoundPointer voice = makeVoice(subsound(*bank, i));
            std::array<float, 2048> buffer;
            const auto read = [&](uint64_t frame, bool asFloat) {
                unsigned got = 0;
                EXPECT_EQ(voice->seekData(frame), KESS_OK);
                EXPECT_EQ(asFloat ? voice->readFloat(buffer.data(), 1000, &got)
                                  : voice->readData(buffer.data(), 4000, &got),
                          KESS_OK);
            };
            EXPECT_EQ(voice->setLoopCount(-1), KESS_OK);
            read(kFrames - 1, true); // where little is left to read and to decode
            read(kFrames - 1, false);
            const size_t allocations = gAllocations;
            bank_test::Noise random;
            for (int n = 0; n < 300; ++n) {
                static_cast<void>(voice->setLoopCount(n % 3 - 1));
                read(random.next() % kFrames, n % 2);
            }
            unsigned got = 1;
            EXPECT_EQ(voice->seekData(0), KESS_OK);
            EXPECT_EQ(voice->setLoopCount(3), KESS_OK);
            while (voice->readFloat(buffer.data(), 1000, &got) == KESS_OK) { }
            EXPECT_EQ(gAllocations, allocations);
        }
    }
}
#endif

TEST(Voices, AreMadePlayedAndReleasedOnManyThreadsWhileTheBankIsReleased)
{
    constexpr int kThreads = 8;
    SoundPointer bank = openBank(3000);
    std::vector<std::vector<float>> expected;
    for (size_t i = 0; i < std::size(kCodecs); ++i)
        expected.push_back(readFloats(subsound(*bank, i)));
    bank = openBank(3000);
    std::atomic<int> differences = 0;
    std::barrier ready(kThreads + 1);
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            // Subsounds and their first voices come from the bank, all others from voices.
            std::vector<SoundPointer> first;
            for (size_t i = 0; i < std::size(kCodecs); ++i)
                first.push_back(makeVoice(subsound(*bank, i)));
            ready.arrive_and_wait();
            bank_test::Noise random{uint64_t(thread)};
            for (int n = 0; n < 24; ++n) {
                const size_t i = random.next() % std::size(kCodecs);
                const SoundPointer voice = makeVoice(*first[i]);
                if (voice->setLoopCount(2) != KESS_OK || readFloats(*voice, 16'500).size() != 16'500 * 2)
                    ++differences;
                if (voice->setLoopCount(0) != KESS_OK)
                    ++differences;
                const uint64_t frame = random.next() % (kFrames - 2000);
                const std::vector<float> piece = readFrom(*voice, frame, 2000);
                for (size_t sample = 0; sample < piece.size(); ++sample) {
                    if (std::abs(piece[sample] - expected[i][frame * 2 + sample]) > 1e-2f)
                        ++differences;
                }
            }
        });
    }
    ready.arrive_and_wait();
    bank.reset();
    threads.clear(); // waits until they have ended
    EXPECT_EQ(differences, 0);
}
