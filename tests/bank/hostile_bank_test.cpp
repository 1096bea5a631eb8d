// Thousands of banks that somebody tampered with, most of them with every checksum made to fit again.
#include "bank/checksum.hpp"
#include "layout.hpp"
#include "support/bank_maker.hpp"
#include "support/bank_seal.hpp"
#include "support/engine_use.hpp"
#include "support/sound_files.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__)
// From the sanitizer's allocator_interface.h, which not every compiler brings.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, size_t),
                                                         void (*)(const volatile void*));
extern "C" size_t __sanitizer_get_allocated_size(const volatile void*);
#endif

using namespace bank_test;
using bank::Codec;

namespace {

constexpr const char* kKey = "key";

// How often each bank is tampered with in each way; TARNOK_MUTANTS multiplies it, for a longer run.
int mutants()
{
    constexpr int kUsual = 600;
    const char* factor = std::getenv("TARNOK_MUTANTS");
    return kUsual * (factor ? std::max(std::atoi(factor), 1) : 1);
}

// A small bank may take as much memory as the decoders and Argon2id ask for, whatever numbers stand in it.
constexpr int64_t kMostMemory = 80 << 20;

// Memory in use and its peak, as far as the address sanitizer tells; otherwise always 0.
class Memory
{
public:
    static void beginPeak()
    {
        [[maybe_unused]] static const int hooked = install();
        sPeak = sLive.load();
        sStart = sLive.load();
    }
    static int64_t peak() { return sPeak - sStart; }

private:
#if defined(__SANITIZE_ADDRESS__)
    static int install()
    {
        return __sanitizer_install_malloc_and_free_hooks(&allocated, &freed);
    }
    static void allocated(const volatile void*, size_t bytes)
    {
        const int64_t live = sLive += int64_t(bytes);
        sPeak = std::max(sPeak.load(), live);
    }
    static void freed(const volatile void* place)
    {
        sLive -= int64_t(__sanitizer_get_allocated_size(place));
    }
#else
    static int install()
    {
        return 0;
    }
#endif
    static inline std::atomic<int64_t> sLive = 0;
    static inline std::atomic<int64_t> sPeak = 0;
    static inline std::atomic<int64_t> sStart = 0;
};

std::vector<EncodedSound> soundsOf(Codec codec)
{
    std::vector<EncodedSound> sounds;
    const uint32_t rate = codec == Codec::Opus ? 48'000 : 44'100;
    for (const int channels : {1, 2}) {
        MemorySound sound = MemorySound::ofFloats(channels, rate, tones(3'000, channels, {0.01, 0.033}, 0.5f));
        sound.setLoop(bank::Loop{500, 2'900});
        sounds.push_back(encode(codec, sound, 30, "sound " + std::to_string(channels)));
        sounds.back().sound.syncPoints = {{10, "first"}, {2'999, "last"}};
        sounds.back().sound.peak = 0.5f;
    }
    return sounds;
}

// The parts of a bank that are tampered with one at a time: header, tables, chunks, setup and data.
std::vector<std::span<uint8_t>> partsOf(std::vector<uint8_t>& bytes)
{
    using namespace bank::layout;
    const std::span all = bytes;
    const Header header = loadHeader(bytes.data());
    std::vector<std::span<uint8_t>> parts = {all.first(152),
                                             all.subspan(header.prefix.headerBytes, size_t(header.tablesBytes))};
    for (uint32_t i = 0; i < header.soundCount; ++i) {
        const Row row = loadRow(&bytes[size_t(header.rowsOffset) + i * bank::kSoundRecordBytes]);
        parts.push_back(all.subspan(size_t(row.chunksOffset), row.chunksBytes));
        parts.push_back(all.subspan(size_t(row.dataOffset), size_t(row.dataBytes)));
    }
    if (header.setupCount > 0) {
        const SetupRow row = loadSetupRow(&bytes[size_t(header.setupRowsOffset)]);
        parts.push_back(all.subspan(size_t(row.offset), row.bytes));
    }
    return parts;
}

// A flipped bit, a random byte, or a number of 4 or 8 bytes at one of the values where arithmetic overflows.
void tamper(std::span<uint8_t> part, Noise& noise)
{
    if (part.empty())
        return;
    constexpr std::array<uint64_t, 8> edges = {
        0, 1, 0x7fffffff, 0xffffffff, 0x100000000, 0x7fffffffffffffff, 0xffffffffffffffe0, 0xffffffffffffffff};
    const size_t at = noise.next() % part.size();
    switch (noise.next() % 4) {
    case 0:
        part[at] ^= uint8_t(1 << noise.next() % 8);
        break;
    case 1:
        part[at] = uint8_t(noise.next());
        break;
    default: {
        const uint64_t value = edges[noise.next() % edges.size()] + noise.next() % 3;
        const size_t size = noise.next() % 2 ? 4 : 8;
        const size_t place = at / 4 * 4;
        std::memcpy(part.data() + place, &value, std::min(size, part.size() - place));
    }
    }
}

int64_t sHighestPeak = 0; // of one test

// Has the bytes as a file used and verified.
void tryBank(const std::vector<uint8_t>& bytes)
{
    test::writeFile("mutant.tnb", bytes);
    Memory::beginPeak();
    ASSERT_EQ(test::useBank("mutant.tnb", kKey), "");
    sHighestPeak = std::max(sHighestPeak, Memory::peak());
    ASSERT_LE(Memory::peak(), kMostMemory);
}

} // namespace

class HostileBank : public testing::TestWithParam<Codec>
{
protected:
    void SetUp() override { sHighestPeak = 0; }
    void TearDown() override { RecordProperty("highest_peak_bytes", std::to_string(sHighestPeak)); }
};

TEST_P(HostileBank, GivesAnErrorOrSamplesWhicheverPartIsTamperedWith)
{
    const std::vector<uint8_t> bytes = makeBank(soundsOf(GetParam()));
    tryBank(bytes);
    Noise noise(uint64_t(GetParam()) + 1);
    for (int i = 0; i < mutants() && !HasFatalFailure(); ++i) {
        std::vector<uint8_t> mutant = bytes;
        const size_t count = partsOf(mutant).size();
        for (size_t part = 0; part < count; ++part) {
            mutant = bytes;
            std::span<uint8_t> tampered = partsOf(mutant)[part];
            for (uint32_t hits = noise.next() % 3 + 1; hits > 0; --hits)
                tamper(tampered, noise);
            if (i % 4)
                sealBank(&mutant);
            else
                bank::storeLittle(mutant.data() + 152, bank::checksum(std::span(mutant).first(152)));
            // Some by a maker who has the key.
            tryBank(i % 6 ? mutant : encryptBank(mutant, kKey));
        }
        mutant.assign(bytes.begin(), bytes.begin() + ptrdiff_t(noise.next() % bytes.size()));
        sealBank(&mutant);
        tryBank(mutant);
    }
}

TEST_P(HostileBank, GivesAnErrorOrSamplesWhenItIsEncryptedAndTamperedWith)
{
    const std::vector<uint8_t> bytes = makeBank(soundsOf(GetParam()), {}, kKey);
    tryBank(bytes);
    Noise noise(uint64_t(GetParam()) + 9);
    for (int i = 0; i < mutants() / 8 && !HasFatalFailure(); ++i) {
        std::vector<uint8_t> mutant = bytes;
        tamper(std::span(mutant).first(i % 2 ? 120 : mutant.size()), noise);
        bank::storeLittle(mutant.data() + 120, bank::checksum(std::span(mutant).first(120)));
        tryBank(mutant);
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, HostileBank, testing::Values(Codec::Pcm, Codec::Vorbis, Codec::Opus, Codec::Kadpcm));
