// SPDX-License-Identifier: MIT
// The fields of a bank: headers, rows of the tables, chunks. docs/tnb-format.md describes them for readers in other
// languages.
#pragma once

#include "bank/sound.hpp"

#include <array>
#include <string_view>

namespace bank::layout {

// A transfer as text changes at least one of these: the byte above 127, the two kinds of line ends, or the end-of-file
// character.
inline constexpr std::array<uint8_t, 8> kMagic = {0x89, 'T', 'N', 'B', '\r', '\n', 0x1a, '\n'};
inline constexpr uint16_t kMajorVersion = 2;
inline constexpr uint16_t kMinorVersion = 0;

inline constexpr uint32_t kFlagEncrypted = 1;
inline constexpr uint32_t kFlagGuid = 2;
inline constexpr uint32_t kFlagNames = 4;

// The prefix and the checksum that a plain and an encrypted header have in common.
inline constexpr size_t kPrefixBytes = 40;
inline constexpr size_t kChecksumBytes = 8;
inline constexpr size_t kMaximumHeaderBytes = 4096;

// A reader keeps the tables in memory. This is enough for 150,000 sounds with names of a hundred bytes.
inline constexpr uint64_t kMaximumTablesBytes = 32 << 20;

inline constexpr size_t kHeaderBytes = 160;
inline constexpr size_t kEncryptedHeaderBytes = 128;
inline constexpr size_t kNameIndexBytes = 16;
inline constexpr size_t kSetupRowBytes = 24;
inline constexpr size_t kSerialisedHeadBytes = kSoundRecordBytes + 8;
inline constexpr uint64_t kDataAlignment = 32;
inline constexpr uint32_t kNoSetup = 0xffffffff;

[[nodiscard]] constexpr uint64_t alignedUp(uint64_t offset, uint64_t alignment)
{
    return (offset + alignment - 1) / alignment * alignment;
}

// The fields that have the same offset in both kinds of header.
struct Prefix
{
    uint16_t majorVersion = kMajorVersion;
    uint16_t minorVersion = kMinorVersion;
    uint32_t headerBytes = 0;
    uint32_t flags = 0;
    uint64_t fileBytes = 0;
};

// The header of a plain layout.
struct Header
{
    Prefix prefix;
    uint32_t format = 0;
    uint32_t quality = 0;
    uint32_t soundCount = 0;
    std::array<uint8_t, 16> guid{};
    uint64_t rowsOffset = 0;
    uint32_t rowBytes = 0;
    uint32_t setupCount = 0;
    uint64_t nameIndexOffset = 0;
    uint32_t nameIndexCount = 0;
    uint64_t namesOffset = 0;
    uint64_t namesBytes = 0;
    uint64_t setupRowsOffset = 0;
    uint64_t tablesBytes = 0;
    uint64_t tablesChecksum = 0;
};

// Digest of the plain layout. Its first 16 bytes are the salt of an encrypted bank.
using ContentTag = std::array<uint8_t, 32>;
using KeyCheck = std::array<uint8_t, 16>;

// The header of an encrypted bank; the pieces follow it.
struct EncryptedHeader
{
    Prefix prefix;
    uint32_t pieceBytes = 0;
    uint64_t plainBytes = 0;
    uint32_t passes = 0; // of Argon2id
    uint32_t memoryKiB = 0; // of Argon2id
    ContentTag contentTag{};
    KeyCheck keyCheck{};

    // The bytes of the header that the key of the pieces depends on: all except key check and checksum. Not a field of
    // the file.
    std::vector<uint8_t> bound;
};

// A row of the sound table. A serialised sound begins with one, in which setup, offsets and name are zero.
struct Row : EncodedFacts
{
    uint32_t setup = 0;
    uint32_t chunksBytes = 0;
    uint64_t chunksChecksum = 0;
    uint64_t chunksOffset = 0;
    uint64_t dataOffset = 0;
    uint32_t nameOffset = 0;
    uint32_t nameBytes = 0;

    bool operator==(const Row&) const = default;
};

// The location of a setup in the bank, its checksum and its size.
struct SetupRow
{
    uint64_t offset = 0;
    uint64_t checksum = 0;
    uint32_t bytes = 0;
};

// An entry of the index of names, which is sorted by hash, then by sound.
struct NameIndexRow
{
    uint64_t hash = 0; // nameHash()
    uint32_t sound = 0;

    auto operator<=>(const NameIndexRow&) const = default;
};

// In the following functions, a pointer points to as many bytes as the record has.
[[nodiscard]] Prefix loadPrefix(const uint8_t* bytes);

// store() and pack() of a header also write the checksum at its end.
void store(const Header& header, uint8_t* bytes);
[[nodiscard]] Header loadHeader(const uint8_t* bytes);

[[nodiscard]] std::vector<uint8_t> pack(const EncryptedHeader& header);
// bytes: the whole header, at least kEncryptedHeaderBytes; later minor versions may append fields.
[[nodiscard]] EncryptedHeader loadEncryptedHeader(std::span<const uint8_t> bytes);

void store(const Row& row, uint8_t* bytes);
[[nodiscard]] Row loadRow(const uint8_t* bytes);

void store(const SetupRow& row, uint8_t* bytes);
[[nodiscard]] SetupRow loadSetupRow(const uint8_t* bytes);

void store(const NameIndexRow& row, uint8_t* bytes);
[[nodiscard]] NameIndexRow loadNameIndexRow(const uint8_t* bytes);

// ErrorCode::Damaged with what as its text.
[[nodiscard]] base::Error damaged(std::string_view what);

// The error to report when reading what (a plural noun) has failed with error, although its range is inside the source.
[[nodiscard]] base::Error unreadable(const base::Error& error, std::string_view what);

// Reads the first bytes of a bank. ErrorCode::Format, ErrorCode::Version, ErrorCode::Damaged, ErrorCode::Io.
base::Result<Prefix> readPrefix(const base::ByteSource& source);

// Reads the whole header, at least minimum bytes long, whose size is in prefix. Verifies its checksum, which is its
// last eight bytes, and the size of the file.
base::Result<std::vector<uint8_t>> readHeader(const base::ByteSource& source, const Prefix& prefix, size_t minimum);

// Checks a row without the rest of the bank: channels, rate, and whether its data can hold its length. Returns what is
// wrong, or null. The reader checks the offsets.
[[nodiscard]] const char* findFault(const Row& row);
[[nodiscard]] inline bool plausible(const Row& row)
{
    return !findFault(row);
}

// The chunks of a sound.
[[nodiscard]] std::vector<uint8_t> packChunks(const Sound& sound);

// Fills in the members of *sound that are stored in chunks; the others must be set. ErrorCode::Damaged.
base::Result<> unpackChunks(std::span<const uint8_t> chunks, Sound* sound);

// Conversion between a sound and its row.
[[nodiscard]] Row makeRow(const Sound& sound, std::span<const uint8_t> chunks);
[[nodiscard]] Sound makeSound(const Row& row);

// FNV-1a, 64 bits, of the bytes of a name: the order of the name index.
[[nodiscard]] uint64_t nameHash(std::span<const uint8_t> name);

} // namespace bank::layout
