// SPDX-License-Identifier: MIT
#include "parse/vorbis_setup_check.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <vector>

namespace engine {

namespace {

// The bits of a packet, the lowest of each byte first (Vorbis I, 2). Past the end they are 0, and the packet is
// damaged.
class BitReader
{
public:
    BitReader(const uint8_t* bytes, size_t count)
        : mBytes(bytes)
        , mBits(uint64_t{count} * 8)
    { }

    // At most 32 bits.
    uint32_t read(int count)
    {
        uint32_t value = 0;
        for (int i = 0; i < count; ++i, ++mPosition) {
            const uint32_t bit = mPosition < mBits ? mBytes[mPosition / 8] >> mPosition % 8 & 1 : 0;
            value |= bit << i;
        }
        return value;
    }

    void skip(uint64_t count) { mPosition += count; }

    [[nodiscard]] bool isPastEnd() const { return mPosition > mBits; }

private:
    const uint8_t* mBytes;
    uint64_t mBits;
    uint64_t mPosition = 0;
};

struct Book
{
    uint32_t dimensions = 0;
    uint32_t entries = 0;
};

// Parses a header and adds up. Each step returns false if the header is damaged or a limit is exceeded.
class SetupReader
{
public:
    SetupReader(const uint8_t* packet, size_t bytes)
        : mBits(packet, bytes)
    { }

    [[nodiscard]] bool read()
    {
        return readBooks() && readTimes() && readFloors() && readResidues() && mBytes <= kMaximumVorbisSetupBytes;
    }

    [[nodiscard]] uint64_t bytes() const { return mBytes; }

private:
    // What libvorbis allocates: structures and the first table per book; lengths, code words and indices per entry;
    // each value twice (as the integer of the header, as a float); and the classes per code word of a residue. The
    // allocator's overhead is included.
    static constexpr uint64_t kBytesOfBook = 1536;
    static constexpr uint64_t kBytesOfEntry = 32;
    static constexpr uint64_t kBytesOfValue = 12;
    static constexpr uint64_t kBytesOfClassWord = 40;
    static constexpr uint64_t kBytesOfClass = 4;

    [[nodiscard]] bool readBooks()
    {
        const uint32_t count = mBits.read(8) + 1;
        while (mBooks.size() < count) {
            if (!readBook())
                return false;
        }
        return true;
    }

    // With no dimensions, libvorbis would divide by zero or search for the number of values for ever.
    [[nodiscard]] bool readBook()
    {
        constexpr uint32_t kSync = 0x564342;
        const bool isBook = mBits.read(24) == kSync;
        const uint32_t dimensions = mBits.read(16);
        const Book book{dimensions, mBits.read(24)};
        mEntries += book.entries;
        if (!isBook || book.dimensions == 0 || book.entries > kMaximumVorbisEntriesOfBook
            || mEntries > kMaximumVorbisEntries)
            return false;
        mBooks.push_back(book);
        mBytes += kBytesOfBook + book.entries * kBytesOfEntry;
        return readLengths(book) && readValues(book) && !mBits.isPastEnd();
    }

    [[nodiscard]] bool readLengths(const Book& book)
    {
        constexpr uint32_t kMaximumWordBits = 32;
        if (mBits.read(1)) {
            uint32_t length = mBits.read(5) + 1;
            for (uint32_t done = 0; done < book.entries; ++length) {
                const uint32_t number = mBits.read(std::bit_width(book.entries - done));
                if (length > kMaximumWordBits || number > book.entries - done)
                    return false;
                done += number;
            }
            return true;
        }
        const bool isSparse = mBits.read(1);
        for (uint32_t i = 0; i < book.entries; ++i) {
            if (!isSparse || mBits.read(1))
                mBits.skip(5);
        }
        return true;
    }

    [[nodiscard]] bool readValues(const Book& book)
    {
        constexpr uint32_t kNone = 0;
        constexpr uint32_t kLattice = 1;
        constexpr uint32_t kList = 2;
        const uint32_t lookup = mBits.read(4);
        if (lookup == kNone)
            return true;
        if (lookup != kLattice && lookup != kList)
            return false;
        const uint64_t values = uint64_t{book.entries} * book.dimensions;
        mBits.skip(64); // the least value and the step between two
        const uint32_t bits = mBits.read(4) + 1;
        mBits.skip(1);
        mBits.skip(bits * (lookup == kList ? values : latticeSide(book)));
        mBytes += values * kBytesOfValue;
        return mBytes <= kMaximumVorbisSetupBytes;
    }

    // The largest n for which n to the power of the dimensions is at most the number of entries (Vorbis I, 9.2.3).
    static uint64_t latticeSide(const Book& book)
    {
        uint64_t side = 0;
        while (powerUpTo(side + 1, book.dimensions, book.entries) <= book.entries)
            ++side;
        return side;
    }

    // base to the power of exponent if that isn't above maximum, otherwise some number above maximum.
    static uint64_t powerUpTo(uint64_t base, uint32_t exponent, uint64_t maximum)
    {
        uint64_t power = 1;
        for (uint32_t i = 0; i < exponent && base > 1 && power <= maximum; ++i)
            power *= base;
        return power;
    }

    [[nodiscard]] bool readTimes()
    {
        mBits.skip(16 * uint64_t{mBits.read(6) + 1});
        return !mBits.isPastEnd();
    }

    [[nodiscard]] bool readFloors()
    {
        const uint32_t count = mBits.read(6) + 1;
        for (uint32_t i = 0; i < count; ++i) {
            const uint32_t type = mBits.read(16);
            if (type > 1)
                return false;
            type == 0 ? skipFloorOfLines() : skipFloorOfPosts();
        }
        return !mBits.isPastEnd();
    }

    // Type 0.
    void skipFloorOfLines()
    {
        mBits.skip(8 + 16 + 16 + 6 + 8);
        mBits.skip(8 * uint64_t{mBits.read(4) + 1});
    }

    // Type 1.
    void skipFloorOfPosts()
    {
        std::array<uint32_t, 31> classes{};
        std::array<uint32_t, 16> dimensions{};
        const uint32_t partitions = mBits.read(5);
        uint32_t classCount = 0;
        for (uint32_t i = 0; i < partitions; ++i) {
            classes[i] = mBits.read(4);
            classCount = std::max(classCount, classes[i] + 1);
        }
        for (uint32_t i = 0; i < classCount; ++i) {
            dimensions[i] = mBits.read(3) + 1;
            const uint32_t subclassBits = mBits.read(2);
            mBits.skip((subclassBits > 0 ? 8 : 0) + (uint64_t{8} << subclassBits));
        }
        mBits.skip(2);
        const uint32_t postBits = mBits.read(4);
        for (uint32_t i = 0; i < partitions; ++i)
            mBits.skip(uint64_t{postBits} * dimensions[classes[i]]);
    }

    [[nodiscard]] bool readResidues()
    {
        const uint32_t count = mBits.read(6) + 1;
        for (uint32_t i = 0; i < count; ++i) {
            if (!readResidue())
                return false;
        }
        return true;
    }

    [[nodiscard]] bool readResidue()
    {
        mBits.skip(16 + 24 + 24 + 24);
        const uint32_t classes = mBits.read(6) + 1;
        const uint32_t book = mBits.read(8);
        uint64_t stages = 0;
        for (uint32_t i = 0; i < classes; ++i) {
            const uint32_t low = mBits.read(3);
            const uint32_t high = mBits.read(1) ? mBits.read(5) : 0;
            stages += static_cast<uint64_t>(std::popcount(low) + std::popcount(high));
        }
        mBits.skip(8 * stages);
        if (mBits.isPastEnd() || book >= mBooks.size())
            return false;
        const auto [dimensions, entries] = mBooks[book];
        const uint64_t words = powerUpTo(classes, dimensions, entries);
        mClassWords += words;
        mBytes += words * (kBytesOfClassWord + dimensions * kBytesOfClass);
        return words <= entries && mClassWords <= kMaximumVorbisClassWords && mBytes <= kMaximumVorbisSetupBytes;
    }

    BitReader mBits;
    std::vector<Book> mBooks;
    uint64_t mEntries = 0;
    uint64_t mClassWords = 0;
    uint64_t mBytes = 0;
};

} // namespace

std::optional<uint64_t> vorbisSetupBytes(const uint8_t* packet, size_t packetBytes)
{
    static constexpr std::array<uint8_t, 7> kSignature{5, 'v', 'o', 'r', 'b', 'i', 's'};
    if (packetBytes < kSignature.size() || std::memcmp(packet, kSignature.data(), kSignature.size()) != 0)
        return std::nullopt;
    SetupReader reader(packet + kSignature.size(), packetBytes - kSignature.size());
    if (!reader.read())
        return std::nullopt;
    return reader.bytes();
}

} // namespace engine
