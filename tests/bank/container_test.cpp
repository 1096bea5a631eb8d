// SPDX-License-Identifier: MIT
// The container by itself: written sounds are read back unchanged, and damage is detected.
#include "bank/checksum.hpp"
#include "layout.hpp"
#include "support/bank_maker.hpp"
#include "support/bank_seal.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

using namespace bank_test;
using bank::BankReader;
using bank::Codec;
using base::ErrorCode;

namespace {

std::shared_ptr<const base::ByteSource> makeSource(std::vector<uint8_t> bytes)
{
    return std::make_shared<base::MemorySource>(std::move(bytes));
}

// A sound of an external codec, whose data may be arbitrary.
EncodedSound arbitrarySound(std::string name, size_t dataBytes, uint8_t setup)
{
    EncodedSound made;
    made.name = std::move(name);
    made.data.resize(dataBytes);
    std::ranges::generate(made.data, std::mt19937(uint32_t(dataBytes + setup)));
    bank::Sound& sound = made.sound;
    sound.codec = Codec::At9;
    sound.channels = 2;
    sound.sampleRate = 48'000;
    sound.sampleCount = 10 * dataBytes;
    sound.preSkip = 5;
    sound.quality = 70;
    sound.dataBytes = dataBytes;
    sound.dataChecksum = bank::checksum(made.data);
    if (setup != 0)
        sound.setup.assign(1000 + setup, setup);
    if (dataBytes > 100) {
        sound.loop = base::Loop{3, 10 * dataBytes};
        sound.syncPoints = {{0, "begin"}, {7, ""}, {7, "Schlag \xc3\xa4"}, {10 * dataBytes, "end"}};
        sound.peak = 0.75f;
        sound.seekPoints = {{40, 10}, {90, 30}};
        sound.corrections = {bank::makeCorrection(4, 2, std::vector<float>(2 * 70, 0.01f), {0, 7, 200, 255})};
    }
    return made;
}

std::vector<EncodedSound> severalSounds()
{
    return {arbitrarySound("drum", 500, 1), arbitrarySound("bass", 33, 2), arbitrarySound("drum", 200, 1),
            arbitrarySound("", 1, 0), EncodedSound{"failed", bank::emptySound(), {}}};
}

base::Result<BankReader> open(std::vector<uint8_t> bytes)
{
    return BankReader::open(makeSource(std::move(bytes)));
}

void storeAt(std::vector<uint8_t>& bytes, size_t offset, uint64_t value, size_t size)
{
    std::memcpy(bytes.data() + offset, &value, size);
}

// Corrects the checksum in the header of an encrypted bank.
void resealEncrypted(std::vector<uint8_t>& bytes)
{
    storeAt(bytes, 120, bank::checksum(std::span(bytes).first(120)), 8);
}

bool contains(const std::vector<uint8_t>& bytes, std::span<const uint8_t> part)
{
    return std::search(bytes.begin(), bytes.end(), part.begin(), part.end()) != bytes.end();
}

TEST(Container, ReturnsEverySoundCompletelyByIndexAndByExactName)
{
    const std::vector<EncodedSound> sounds = severalSounds();
    const base::Result<BankReader> bank = open(makeBank(sounds, {.format = Codec::At9, .quality = 70}));
    ASSERT_TRUE(bank);
    EXPECT_EQ(bank->info().format, Codec::At9);
    EXPECT_EQ(bank->info().quality, 70u);
    ASSERT_EQ(bank->info().soundCount, sounds.size());
    for (uint32_t i = 0; i < sounds.size(); ++i) {
        SCOPED_TRACE(i);
        const bank::SoundEntry entry = bank->entry(i);
        EXPECT_EQ(entry.name, sounds[i].name);
        EXPECT_EQ(entry.dataOffset % 32, 0u);
        const base::Result<bank::Sound> sound = bank->sound(i);
        ASSERT_TRUE(sound);
        EXPECT_TRUE(*sound == sounds[i].sound);
        std::vector<uint8_t> data(entry.dataBytes);
        ASSERT_TRUE(bank->source()->readAt(entry.dataOffset, data));
        EXPECT_EQ(data, sounds[i].data);
        EXPECT_TRUE(bank->verifyData(i));
    }
    EXPECT_EQ(bank->setupCount(), 2u) << "equal setups are stored once";
    EXPECT_EQ(failure(bank->sound(uint32_t(sounds.size()))), ErrorCode::NotFound);

    const std::map<std::string_view, uint32_t> indices = {{"drum", 0}, {"bass", 1}, {"", 3}, {"failed", 4}};
    for (const auto& [name, index] : indices) {
        const base::Result<uint32_t> found = bank->find(name);
        ASSERT_TRUE(found) << name;
        EXPECT_EQ(*found, index) << "the first of equal names: " << name;
    }
    for (const std::string_view name : {"Drum", "dru", "drum ", "x"})
        EXPECT_EQ(failure(bank->find(name)), ErrorCode::NotFound) << name;

    const std::vector<uint8_t> bytes = makeBank(sounds, {.names = false});
    const base::Result<BankReader> nameless = open(bytes);
    ASSERT_TRUE(nameless);
    EXPECT_FALSE(nameless->info().hasNames);
    EXPECT_EQ(failure(nameless->find("drum")), ErrorCode::NotFound);
    EXPECT_FALSE(contains(bytes, base::textBytes("failed")));
}

TEST(Container, DerivesBytesAndGuidFromTheContentAlone)
{
    const std::vector<EncodedSound> sounds = severalSounds();
    EXPECT_EQ(makeBank(sounds), makeBank(severalSounds()));
    const auto guid = open(makeBank(sounds))->info().guid;
    EXPECT_NE(guid.value(), (std::array<uint8_t, 16>{}));

    std::vector<std::vector<EncodedSound>> others(4, sounds);
    others[0][1].name = "Bass";
    others[1][1].data[32] ^= 1;
    others[1][1].sound.dataChecksum = bank::checksum(others[1][1].data);
    others[2][0].sound.loop->start = 4;
    others[3][0].sound.setup[5] ^= 1;
    for (const auto& other : others)
        EXPECT_NE(open(makeBank(other))->info().guid, guid);
    EXPECT_EQ(open(makeBank(sounds, {.guid = false}))->info().guid, std::nullopt);
}

TEST(Container, ReadsBanksOfANewerMinorVersionAndRefusesOtherMajorVersions)
{
    std::vector<uint8_t> bytes = makeBank(severalSounds());
    for (const int other : {1, 3}) {
        storeAt(bytes, 8, uint64_t(other), 2);
        EXPECT_EQ(failure(open(bytes)), ErrorCode::Version)
            << "the version is checked before any checksum, whose offset may have changed";
    }

    // A later minor version: an unknown flag, and 8 more bytes at the end of the header and of each row.
    std::vector<uint8_t> longer = makeBank({severalSounds()[0]});
    longer.insert(longer.begin() + 160 + bank::kSoundRecordBytes, 8, 0xee);
    longer.insert(longer.begin() + 152, 8, 0xee);
    storeAt(longer, 10, 7, 2);
    storeAt(longer, 12, 168, 4);
    storeAt(longer, 16, base::loadLittle<uint32_t>(&longer[16]) | 0x80000000, 4);
    storeAt(longer, 64, bank::kSoundRecordBytes + 8, 4);
    const auto shift = [&](size_t offset, uint64_t by) {
        storeAt(longer, offset, base::loadLittle<uint64_t>(&longer[offset]) + by, 8);
    };
    shift(56, 8);
    shift(112, 8);
    for (const size_t offset : {size_t(72), size_t(88), size_t(104), size_t(168 + 40), size_t(168 + 48)})
        shift(offset, 16);
    shift(base::loadLittle<uint64_t>(&longer[104]), 16);
    sealBank(&longer);
    const base::Result<BankReader> bank = open(longer);
    ASSERT_TRUE(bank);
    EXPECT_TRUE(*bank->sound(0) == severalSounds()[0].sound);
    EXPECT_TRUE(bank->find("drum"));
    EXPECT_TRUE(bank->verifyData(0));
}

TEST(Container, DetectsEveryFlippedBitAndEveryCut)
{
    const std::vector<uint8_t> bytes = makeBank({arbitrarySound("drum", 300, 1)});
    const auto intact = [](const std::vector<uint8_t>& mutant) {
        const base::Result<BankReader> bank = open(mutant);
        return bank.has_value() && bank->sound(0).has_value() && bank->verifyData(0).has_value();
    };
    ASSERT_TRUE(intact(bytes));
    const base::Result<BankReader> bank = open(bytes);
    const bank::SoundEntry entry = bank->entry(0);
    size_t unnoticed = 0;
    for (size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        std::vector<uint8_t> mutant = bytes;
        mutant[bit / 8] ^= uint8_t(1 << bit % 8);
        unnoticed += intact(mutant);
    }
    // Only the padding between the parts has no checksum.
    const size_t setupEnd = 1001;
    const size_t padding = bytes.size() - entry.dataBytes - entry.chunksBytes - setupEnd
        - base::loadLittle<uint64_t>(bytes.data() + 112) - 160;
    EXPECT_EQ(unnoticed, padding * 8);
    for (size_t size = 0; size < bytes.size(); ++size)
        EXPECT_FALSE(intact({bytes.begin(), bytes.begin() + ptrdiff_t(size)})) << size;
}

std::vector<uint8_t> chunk(const char* tag, const std::vector<uint64_t>& numbers)
{
    std::vector<uint8_t> made(tag, tag + 4);
    base::appendLittle(made, uint32_t(numbers.size() * 8));
    for (const uint64_t number : numbers)
        base::appendLittle(made, number);
    return made;
}

struct SerialisedSound : testing::Test
{
    const bank::Sound sound = arbitrarySound("", 500, 1).sound;
    const std::vector<uint8_t> bytes = bank::serialise(sound);
    const size_t chunksAt = bank::kSoundRecordBytes + 8 + sound.setup.size();

    [[nodiscard]] base::Result<bank::Sound> withChunks(const std::vector<uint8_t>& chunks) const
    {
        std::vector<uint8_t> made(bytes.begin(), bytes.begin() + ptrdiff_t(chunksAt));
        made.insert(made.end(), chunks.begin(), chunks.end());
        storeAt(made, 28, chunks.size(), 4);
        storeAt(made, 32, bank::checksum(chunks), 8);
        return bank::deserialise(made);
    }
};

TEST_F(SerialisedSound, IsReadUnchangedAndWithUnknownChunks)
{
    ASSERT_TRUE(bank::deserialise(bytes));
    EXPECT_TRUE(*bank::deserialise(bytes) == sound);
    std::vector<uint8_t> extended = chunk("LATE", {1, 2, 3});
    extended.insert(extended.end(), bytes.begin() + ptrdiff_t(chunksAt), bytes.end());
    ASSERT_TRUE(withChunks(extended));
    EXPECT_TRUE(*withChunks(extended) == sound);
}

TEST_F(SerialisedSound, IsRefusedWithImpossibleChunksOrRecordAndWhenItIsCut)
{
    std::vector<uint64_t> longSeam(70); // as long as its length field says
    longSeam[1] = bank::kMaximumCorrectedFrames + 1;
    const std::map<const char*, std::vector<std::vector<uint64_t>>> impossible = {
        {"LOOP", {{5, 5}, {5, 5001}, {5}}},
        {"SEEK", {{40, 10, 40, 20}, {40, 10, 50, 10}, {40, 500}, {40, 10, 50}}},
        {"SYNC", {{5001, 4}, {7, 4, 5, 4}, {1, uint64_t(1) << 31}}},
        {"SEAM", {{4'999, 2}, {1, 0, 0}, {0, 5'000, 0}, longSeam}},
        {"PEAK", {{0x7f800000}, {0xbf800000}}},
    };
    for (const auto& [tag, contents] : impossible) {
        for (const auto& numbers : contents)
            EXPECT_EQ(failure(withChunks(chunk(tag, numbers))), ErrorCode::Damaged)
                << tag << testing::PrintToString(numbers);
    }
    EXPECT_EQ(failure(withChunks({'L', 'O', 'O'})), ErrorCode::Damaged);
    EXPECT_EQ(failure(withChunks({'L', 'A', 'T', 'E', 1, 0, 0, 0})), ErrorCode::Damaged);
    for (size_t size = 0; size < bytes.size(); ++size)
        EXPECT_EQ(failure(bank::deserialise(std::span(bytes).first(size))), ErrorCode::Damaged);
    for (const auto& [offset, value] : {std::pair(1, 3), {1, 0}, {20, 101}}) {
        std::vector<uint8_t> mutant = bytes;
        mutant[size_t(offset)] = uint8_t(value);
        EXPECT_EQ(failure(bank::deserialise(mutant)), ErrorCode::Damaged) << offset << " " << value;
    }
}

TEST(EncryptedBank, OpensWithItsKeyAndHidesEverythingWithoutIt)
{
    std::vector<EncodedSound> sounds = severalSounds();
    sounds.push_back(arbitrarySound("long", 200'000, 3));
    const std::vector<uint8_t> plain = makeBank(sounds);
    const std::vector<uint8_t> bytes = makeBank(sounds, {}, "Sesam");
    EXPECT_EQ(bytes, makeBank(sounds, {}, "Sesam"));
    EXPECT_NE(bytes, makeBank(sounds, {}, "sesam"));
    for (const char* name : {"drum", "bass", "fail", "long"})
        EXPECT_FALSE(contains(bytes, base::textBytes(name))) << name;
    for (size_t offset = 0; offset + 16 <= plain.size(); offset += 1 + plain.size() / 200) {
        const std::span part = std::span(plain).subspan(offset, 16);
        EXPECT_TRUE(std::ranges::count(part, 0) == 16 || !contains(bytes, part)) << offset;
    }

    EXPECT_EQ(*bank::probe(*makeSource(bytes)), bank::Kind::Encrypted);
    EXPECT_TRUE(bank::checkLocked(*makeSource(bytes)));
    EXPECT_EQ(failure(open(bytes)), ErrorCode::KeyMissing);
    EXPECT_EQ(failure(bank::unlock(makeSource(bytes), "sesam")), ErrorCode::KeyWrong);
    EXPECT_EQ(failure(bank::unlock(makeSource(bytes), "")), ErrorCode::KeyWrong);
    EXPECT_EQ(failure(bank::unlock(makeSource(plain), "Sesam")), ErrorCode::Format);

    const auto unlocked = bank::unlock(makeSource(bytes), "Sesam");
    ASSERT_TRUE(unlocked);
    ASSERT_EQ((*unlocked)->size(), plain.size());
    std::mt19937 random;
    for (int i = 0; i < 500; ++i) {
        std::vector<uint8_t> part(1 + random() % 70'000);
        const size_t offset = random() % (plain.size() - part.size());
        ASSERT_TRUE((*unlocked)->readAt(offset, part));
        ASSERT_TRUE(std::equal(part.begin(), part.end(), plain.begin() + ptrdiff_t(offset)));
    }
}

// Unlocks a bank and reads all of it.
base::Result<> outcome(const std::vector<uint8_t>& bytes)
{
    const auto unlocked = bank::unlock(makeSource(bytes), "key");
    if (!unlocked)
        return unlocked.error();
    std::vector<uint8_t> all((*unlocked)->size());
    return (*unlocked)->readAt(0, all);
}

TEST(EncryptedBank, IsDamagedWhenItsPiecesAreMovedMixedOrCut)
{
    const std::vector<EncodedSound> sounds = {arbitrarySound("long", 150'000, 0)};
    const std::vector<uint8_t> bytes = makeBank(sounds, {}, "key");
    ASSERT_TRUE(outcome(bytes));

    constexpr ptrdiff_t kFirst = 128;
    constexpr ptrdiff_t kPiece = 65'536 + 16;
    std::vector<uint8_t> swapped = bytes;
    std::swap_ranges(swapped.begin() + kFirst, swapped.begin() + kFirst + kPiece, swapped.begin() + kFirst + kPiece);
    std::vector<EncodedSound> others = sounds;
    others[0].name = "lone";
    std::vector<uint8_t> mixed = makeBank(others, {}, "key");
    std::copy_n(bytes.begin(), kFirst + 2 * kPiece, mixed.begin());
    // The last piece is missing, and the header agrees with that.
    std::vector<uint8_t> shortened(bytes.begin(), bytes.begin() + kFirst + 2 * kPiece);
    storeAt(shortened, 24, 2 * 65'536, 8);
    storeAt(shortened, 32, shortened.size(), 8);
    resealEncrypted(shortened);
    const std::vector<uint8_t> cut(bytes.begin(), bytes.end() - 1);
    std::vector<uint8_t> greedy = bytes;
    storeAt(greedy, 44, 0x7fffffff, 4);
    resealEncrypted(greedy);
    const std::pair<const char*, std::vector<uint8_t>> mutants[] = {
        {"swapped", swapped}, {"mixed", mixed}, {"shortened", shortened}, {"cut", cut}, {"greedy", greedy}};
    for (const auto& [name, mutant] : mutants)
        EXPECT_EQ(failure(outcome(mutant)), ErrorCode::Damaged) << name;
}

// Anyone can compute the checksum of the header.
TEST(EncryptedBank, DistinguishesADamagedHeaderFromAWrongKey)
{
    const std::vector<uint8_t> bytes = makeBank({arbitrarySound("long", 150'000, 0)}, {}, "key");
    const auto expected = [](size_t at) {
        if (at < 10)
            return ErrorCode::Version;
        if (at == 16)
            return ErrorCode::Format; // not encrypted
        const bool isOfTheKey = at == 40 || at == 44 || at == 45 || (at >= 48 && at < 64) || (at >= 80 && at < 96);
        return isOfTheKey ? ErrorCode::KeyWrong : ErrorCode::Damaged;
    };
    for (size_t at = 8; at < 120; ++at) {
        std::vector<uint8_t> mutant = bytes;
        mutant[at] ^= 1;
        resealEncrypted(mutant);
        EXPECT_EQ(failure(outcome(mutant)), expected(at)) << at;
    }
}

// Drops large pieces; a hole is read as zeros.
class Hollow final : public base::ByteSink, public base::ByteSource
{
public:
    explicit Hollow(uint64_t hole = 0)
        : mHole(hole)
    { }

    base::Result<> write(std::span<const uint8_t> bytes) override
    {
        if (bytes.size() < 200'000)
            return mStored.write(bytes);
        mHoleAt = mStored.bytes().size();
        mHole += bytes.size();
        return {};
    }

    [[nodiscard]] uint64_t size() const override { return mStored.bytes().size() + mHole; }
    base::Result<> readAt(uint64_t offset, std::span<uint8_t> bytes) const override
    {
        std::ranges::fill(bytes, uint8_t(0));
        const bool isHole = offset >= mHoleAt && offset - mHoleAt < mHole;
        return isHole ? base::Result<>()
                      : base::MemorySource(mStored.bytes()).readAt(offset < mHoleAt ? offset : offset - mHole, bytes);
    }

private:
    base::MemorySink mStored;
    uint64_t mHoleAt = 0;
    uint64_t mHole;
};

// The data of the first sound is in another source.
struct HugeSounds final : MemorySounds
{
    using MemorySounds::MemorySounds;
    base::Result<bank::StoredSound> open(size_t index) override
    {
        base::Result<bank::StoredSound> stored = MemorySounds::open(index);
        if (index == 0)
            stored->dataSource = std::make_shared<Hollow>(uint64_t(1) << 40);
        return stored;
    }
};

TEST(Container, ReadsSoundsBeyondFourGigabytes)
{
    const EncodedSound small = arbitrarySound("small", 500, 0);
    bank::Sound huge = bank::emptySound();
    huge.sampleFormat = bank::SampleFormat::Pcm16;
    huge.dataBytes = 17000ull << 18; // 4.46 GB
    huge.sampleCount = huge.dataBytes / 2;
    bank::RunningChecksum checksum;
    const std::vector<uint8_t> piece(1 << 18);
    for (int i = 0; i < 17000; ++i)
        checksum.add(piece);
    huge.dataChecksum = checksum.value();

    bank::BankWriter writer({});
    writer.add("huge", huge);
    writer.add("small", small.sound);
    const auto file = std::make_shared<Hollow>();
    HugeSounds stored({{"huge", huge, {}}, small});
    ASSERT_TRUE(writer.write(*file, stored, {}));
    EXPECT_GT(writer.fileBytes(), uint64_t(4) << 30);
    const base::Result<BankReader> bank = BankReader::open(file);
    ASSERT_TRUE(bank);
    EXPECT_GT(bank->entry(1).dataOffset, uint64_t(4) << 30);
    EXPECT_TRUE(bank->verifyData(1));
    EXPECT_TRUE(*bank->sound(1) == small.sound);
    EXPECT_EQ(bank->entry(0).sampleCount, huge.sampleCount);
}

TEST(BankWriter, StopsOnRequestAndRefusesTooLargeTablesAndChangedSounds)
{
    const std::vector<EncodedSound> sounds = severalSounds();
    bank::BankWriter writer({});
    writer.add("a", sounds[0].sound);
    base::MemorySink sink;
    MemorySounds other({sounds[2]});
    EXPECT_EQ(failure(writer.write(sink, other, {})), ErrorCode::Damaged);

    // The sound changes between the pass for the salt and the pass that encrypts.
    class Changing final : public MemorySounds
    {
    public:
        using MemorySounds::MemorySounds;
        base::Result<bank::StoredSound> open(size_t index) override
        {
            mSounds[index].data.back() ^= mCalls++;
            return MemorySounds::open(index);
        }

    private:
        uint8_t mCalls = 0;
    };
    Changing stored({sounds[0]});
    EXPECT_EQ(failure(writer.writeEncrypted(sink, stored, "key", {})), ErrorCode::Damaged);
    EXPECT_EQ(failure(writer.writeEncrypted(sink, stored, "", {})), ErrorCode::Invalid);
    bank::BankWriter large({});
    for (int i = 0; i < 520; ++i)
        large.add(std::string(bank::kMaximumNameBytes + 9, 'n'), bank::emptySound());
    EXPECT_EQ(large.write(sink, stored, {}).error().text,
              "the names of the sounds take more space than a bank has for its tables");
    std::stop_source stop;
    stop.request_stop();
    EXPECT_EQ(failure(writer.write(sink, stored, stop.get_token())), ErrorCode::Cancelled);
}

} // namespace
