// Thousands of banks that somebody tampered with, most of them with every checksum made to fit again.
#include "bank/checksum.hpp"
#include "layout.hpp"
#include "support/bank_maker.hpp"
#include "support/bank_seal.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <set>

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
    constexpr int kUsual = 840;
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

// A bank taken apart enough to tamper with a part of it and to make the checksums around it fit again.
class Patient
{
public:
    explicit Patient(const std::vector<uint8_t>& bytes)
        : mBytes(bytes)
        , mHeader(bank::layout::loadHeader(bytes.data()))
    { }

    [[nodiscard]] std::span<uint8_t> header() { return std::span(mBytes).first(152); }
    [[nodiscard]] std::span<uint8_t> tables()
    {
        return std::span(mBytes).subspan(mHeader.prefix.headerBytes, size_t(mHeader.tablesBytes));
    }
    [[nodiscard]] std::span<uint8_t> chunks(uint32_t sound)
    {
        const bank::layout::Row row = bank::layout::loadRow(rowPlace(sound));
        return std::span(mBytes).subspan(size_t(row.chunksOffset), row.chunksBytes);
    }
    [[nodiscard]] std::span<uint8_t> data(uint32_t sound)
    {
        const bank::layout::Row row = bank::layout::loadRow(rowPlace(sound));
        return std::span(mBytes).subspan(size_t(row.dataOffset), size_t(row.dataBytes));
    }
    [[nodiscard]] std::span<uint8_t> setup()
    {
        if (mHeader.setupCount == 0)
            return {};
        const bank::layout::SetupRow row = bank::layout::loadSetupRow(setupPlace());
        return std::span(mBytes).subspan(size_t(row.offset), row.bytes);
    }

    void sealContents()
    {
        for (uint32_t i = 0; i < mHeader.soundCount; ++i) {
            bank::layout::Row row = bank::layout::loadRow(rowPlace(i));
            row.chunksChecksum = bank::checksum(chunks(i));
            bank::layout::store(row, rowPlace(i));
        }
        if (mHeader.setupCount > 0) {
            bank::layout::SetupRow row = bank::layout::loadSetupRow(setupPlace());
            row.checksum = bank::checksum(setup());
            bank::layout::store(row, setupPlace());
        }
        sealTables();
    }
    void sealTables()
    {
        bank::storeLittle(mBytes.data() + 120, bank::checksum(tables()));
        sealHeader();
    }
    void sealHeader() { bank::storeLittle(mBytes.data() + 152, bank::checksum(header())); }

    [[nodiscard]] const std::vector<uint8_t>& bytes() const { return mBytes; }

private:
    [[nodiscard]] uint8_t* rowPlace(uint32_t sound)
    {
        return mBytes.data() + mHeader.rowsOffset + size_t(sound) * bank::kSoundRecordBytes;
    }
    [[nodiscard]] uint8_t* setupPlace() { return mBytes.data() + mHeader.setupRowsOffset; }

    std::vector<uint8_t> mBytes;
    bank::layout::Header mHeader;
};

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

void useSound(KESS::Sound& sound)
{
    static const std::set<int> allowed = {KESS_OK,
                                          KESS_ERR_FILE_BAD,
                                          KESS_ERR_FILE_EOF,
                                          KESS_ERR_TAGNOTFOUND,
                                          KESS_ERR_INVALID_POSITION,
                                          KESS_ERR_UNSUPPORTED};
    KESS_SOUND_FORMAT format{};
    int channels = 0;
    ASSERT_EQ(sound.getFormat(nullptr, &format, &channels, nullptr), KESS_OK);
    ASSERT_GE(channels, 1);
    ASSERT_LE(channels, KESS_MAX_CHANNELS);
    uint64_t length = 0;
    uint64_t start = 0;
    uint64_t end = 0;
    ASSERT_EQ(sound.getSampleCount(&length), KESS_OK);
    if (sound.getLoopPoints(&start, &end) == KESS_OK) {
        ASSERT_LT(start, end);
        ASSERT_LE(end, length);
    }
    (void)sound.setLoopCount(1);
    std::vector<uint8_t> samples(4'000 * size_t(channels) * 4);
    for (const uint64_t position : {uint64_t(0), length / 2, length, length + 1}) {
        ASSERT_TRUE(allowed.count(sound.seekData(position)));
        unsigned int got = 0;
        ASSERT_TRUE(allowed.count(sound.readData(samples.data(), unsigned(samples.size()), &got)));
        ASSERT_LE(got, samples.size());
        ASSERT_TRUE(allowed.count(sound.readFloat(reinterpret_cast<float*>(samples.data()), 3'000, &got)));
    }
}

// Damage is what was told of, and nothing else is damage.
void verifyFile()
{
    int faults = 0;
    const auto take = [](void* data, int, KESS_RESULT result, const char* text) -> int {
        EXPECT_STRNE(text, "");
        *static_cast<int*>(data) += result == KESS_ERR_FILE_BAD;
        return 1;
    };
    KESS::System* system = nullptr;
    ASSERT_EQ(KESS_System_Create(&system, KESS_VERSION), KESS_OK);
    system->init(1, 0, nullptr);
    const KESS_RESULT result = system->verifyBank("mutant.tnb", kKey, take, &faults);
    system->release();
    static const std::set<int> others = {KESS_OK, KESS_ERR_FORMAT, KESS_ERR_VERSION, KESS_ERR_KEY_WRONG};
    // An empty file can't be told from one that can't be read.
    ASSERT_TRUE(faults > 0 ? result == KESS_ERR_FILE_BAD : others.count(result) || result == KESS_ERR_FILE_BAD)
        << result;
}

// Opens the file and uses everything in it.
void openAndUse()
{
    SoundPointer bank;
    const KESS_RESULT result = openSound("mutant.tnb", &bank);
    static const std::set<int> faults = {KESS_ERR_FILE_BAD, KESS_ERR_FORMAT, KESS_ERR_VERSION};
    if (result != KESS_OK) {
        ASSERT_TRUE(faults.count(result)) << result;
        return;
    }
    bool encrypted = false;
    ASSERT_EQ(bank->isEncrypted(&encrypted), KESS_OK);
    if (encrypted) {
        const KESS_RESULT unlocked = bank->setEncryptionKey(kKey);
        ASSERT_TRUE(unlocked == KESS_OK || unlocked == KESS_ERR_FILE_BAD || unlocked == KESS_ERR_KEY_WRONG);
        if (unlocked != KESS_OK)
            return;
    }
    int count = 0;
    ASSERT_EQ(bank->getNumSubSounds(&count), KESS_OK);
    KESS::Sound* sound = nullptr;
    (void)bank->getSubSoundByName("sound 2", &sound);
    for (int i = 0; i < std::min(count, 4); ++i) {
        if (bank->getSubSound(i, &sound) == KESS_OK)
            useSound(*sound);
    }
}

int64_t sHighestPeak = 0; // of one test

// Has the bytes as a file used and verified.
void useBank(const std::vector<uint8_t>& bytes)
{
    {
        std::ofstream file("mutant.tnb", std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    }
    Memory::beginPeak();
    openAndUse();
    verifyFile();
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
    useBank(bytes);
    Noise noise(uint64_t(GetParam()) + 1);
    for (int i = 0; i < mutants() && !HasFatalFailure(); ++i) {
        Patient header(bytes);
        tamper(header.header(), noise);
        header.sealHeader();
        useBank(header.bytes());

        Patient tables(bytes);
        tamper(tables.tables(), noise);
        tables.sealTables();
        useBank(tables.bytes());

        Patient chunks(bytes);
        tamper(chunks.chunks(noise.next() % 2), noise);
        chunks.sealContents();
        useBank(chunks.bytes());

        Patient setup(bytes);
        tamper(setup.setup(), noise);
        setup.sealContents();
        useBank(setup.bytes());

        Patient data(bytes);
        for (uint32_t hits = noise.next() % 4 + 1; hits > 0; --hits)
            tamper(data.data(noise.next() % 2), noise);
        useBank(data.bytes());

        std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + ptrdiff_t(noise.next() % bytes.size()));
        if (cut.size() > 160) {
            bank::storeLittle(cut.data() + 32, uint64_t(cut.size()));
            bank::storeLittle(cut.data() + 152, bank::checksum(std::span(cut).first(152)));
        }
        useBank(cut);
    }
}

TEST_P(HostileBank, GivesAnErrorOrSamplesWhenItIsEncryptedAndTamperedWith)
{
    const std::vector<uint8_t> bytes = makeBank(soundsOf(GetParam()), {}, kKey);
    useBank(bytes);
    Noise noise(uint64_t(GetParam()) + 9);
    for (int i = 0; i < mutants() / 8 && !HasFatalFailure(); ++i) {
        std::vector<uint8_t> mutant = bytes;
        tamper(std::span(mutant).first(i % 2 ? 120 : mutant.size()), noise);
        bank::storeLittle(mutant.data() + 120, bank::checksum(std::span(mutant).first(120)));
        useBank(mutant);
    }
}

TEST_P(HostileBank, GivesAnErrorOrSamplesWhenItsMakerHadTheKeyAndMeantHarm)
{
    const std::vector<uint8_t> bytes = makeBank(soundsOf(GetParam()));
    Noise noise(uint64_t(GetParam()) + 17);
    for (int i = 0; i < mutants() && !HasFatalFailure(); ++i) {
        std::vector<uint8_t> mutant = bytes;
        for (uint32_t hits = noise.next() % 3 + 1; hits > 0; --hits)
            tamper(std::span(mutant).first(noise.next() % 2 ? 900 : mutant.size()), noise);
        if (i % 2)
            sealBank(&mutant);
        useBank(encryptBank(mutant, kKey));
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, HostileBank, testing::Values(Codec::Pcm, Codec::Vorbis, Codec::Opus, Codec::Kadpcm));
