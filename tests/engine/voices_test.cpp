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
using namespace bank_test;

// Counts all allocations of the process. The sanitizers have an allocator of their own, and clang has no such macros.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(__clang__)
#define COUNTS_ALLOCATIONS 1

static std::atomic<size_t> gAllocations;
static std::atomic<size_t> gAllocatedBytes;

extern "C" {

void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);

static size_t counted(size_t bytes)
{
    ++gAllocations;
    gAllocatedBytes += bytes;
    return bytes;
}

void* malloc(size_t bytes)
{
    return __libc_malloc(counted(bytes));
}

void* calloc(size_t count, size_t bytes)
{
    counted(count * bytes);
    return __libc_calloc(count, bytes);
}

void* realloc(void* memory, size_t bytes)
{
    return __libc_realloc(memory, counted(bytes));
}
}
#endif

namespace {

constexpr uint64_t kFrames = 60'000;
constexpr const char* kKey = "key";

// An encrypted bank in the file "voices" of one sound for each codec, with loops of this length.
SoundPointer openBank(uint64_t loopFrames)
{
    MemorySound source = noise(2, 48000, kFrames);
    source.setLoop(base::Loop{10'000, 10'000 + loopFrames});
    writeFile("voices", makeBank(encodeWithEach(source), {}, kKey));
    SoundPointer bank = engine().open("voices");
    EXPECT_EQ(bank->setEncryptionKey(kKey), KESS_OK);
    return bank;
}

} // namespace

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
    EXPECT_EQ(made->getSubSound(0, &voice), KESS_ERR_SUBSOUNDS);

    writeSound("plain.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, sine(1, 48000, 100));
    EXPECT_EQ(engine().open("plain.wav")->createVoice(&voice), KESS_ERR_SUBSOUNDS);
    writeFile("one", makeBank({encode(bank::Codec::Pcm, sine(1, 48000, 100))}, {}, kKey));
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
            std::mt19937 random;
            for (int n = 0; n < 300; ++n) {
                static_cast<void>(voice->setLoopCount(n % 3 - 1));
                read(random() % kFrames, n % 2);
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
    constexpr uint64_t kLoopFrames = 3000;
    SoundPointer bank = openBank(kLoopFrames);
    std::vector<std::vector<float>> expected;
    for (size_t i = 0; i < std::size(kCodecs); ++i)
        expected.push_back(readFloats(subsound(*bank, i)));
    bank = openBank(kLoopFrames);
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
            std::mt19937 random{uint32_t(thread)};
            for (int n = 0; n < 24; ++n) {
                const size_t i = random() % std::size(kCodecs);
                const SoundPointer voice = makeVoice(*first[i]);
                differences += voice->setLoopCount(2) != KESS_OK;
                differences += readFloats(*voice).size() != (kFrames + 2 * kLoopFrames) * 2;
                differences += voice->setLoopCount(0) != KESS_OK;
                const uint64_t frame = random() % (kFrames - 2000);
                EXPECT_EQ(voice->seekData(frame), KESS_OK);
                const std::vector<float> piece = readFloats(*voice, 2000);
                for (size_t sample = 0; sample < piece.size(); ++sample)
                    differences += std::abs(piece[sample] - expected[i][frame * 2 + sample]) > 1e-2f;
            }
        });
    }
    ready.arrive_and_wait();
    bank.reset();
    threads.clear(); // waits until they have ended
    EXPECT_EQ(differences, 0);
}
