// SPDX-License-Identifier: MIT
// Reads a bank: the header and the tables when it is opened, everything else on request.
//
// Nothing in the file is trusted: lengths and offsets are checked before they are used, and no allocation exceeds the
// size of the file. Several threads may use a reader at once if its source permits that.
//
// With ErrorCode::Damaged, Error::text says what is damaged, without the name of the file or the sound.
#pragma once

#include "bank/sound.hpp"

#include <array>
#include <memory>
#include <string_view>

namespace bank {

// The kind of a bank, from its first bytes.
enum class Kind
{
    Plain,
    Encrypted
};

// ErrorCode::Format, ErrorCode::Version, ErrorCode::Damaged (begins as a bank but is too short for a header),
// ErrorCode::Io.
base::Result<Kind> probe(const base::ByteSource& source);

// What the header contains.
struct BankInfo
{
    uint16_t majorVersion = 0;
    uint16_t minorVersion = 0;
    Codec format = Codec::Pcm;
    uint32_t quality = 0;
    uint32_t soundCount = 0;
    bool hasNames = false;
    std::optional<std::array<uint8_t, 16>> guid;
};

// A sound's row in the sound table, its name, and the offset of its data in the plain layout.
struct SoundEntry : EncodedFacts
{
    std::optional<uint32_t> setup; // index of the shared setup
    uint32_t chunksBytes = 0;
    uint64_t dataOffset = 0;
    std::string_view name; // valid as long as the reader
};

// One opened bank. Returns its contents as values; the encoded data is read from source().
class BankReader
{
public:
    // Opens the plain layout: that of an unencrypted file, or of an encrypted one through unlock(). Reads the header
    // and the tables, and verifies their checksums, every offset in them, and that no two sounds share a byte. Errors
    // of probe(), ErrorCode::KeyMissing for an encrypted file, ErrorCode::Damaged, ErrorCode::Memory.
    static base::Result<BankReader> open(std::shared_ptr<const base::ByteSource> source);

    BankReader(BankReader&&) noexcept;
    BankReader& operator=(BankReader&&) noexcept;
    ~BankReader();

    [[nodiscard]] const BankInfo& info() const;
    [[nodiscard]] const std::shared_ptr<const base::ByteSource>& source() const;

    // index is below info().soundCount (asserted).
    [[nodiscard]] SoundEntry entry(uint32_t index) const;

    // Reads everything about a sound, and verifies its chunks and its setup. ErrorCode::NotFound, ErrorCode::Damaged,
    // ErrorCode::Io.
    base::Result<Sound> sound(uint32_t index) const;

    // The same without the setup, which callers read once for all sounds that share it.
    base::Result<Sound> soundWithoutSetup(uint32_t index) const;
    base::Result<std::vector<uint8_t>> setup(uint32_t setupIndex) const;
    [[nodiscard]] uint32_t setupCount() const;
    [[nodiscard]] uint32_t setupBytes(uint32_t setupIndex) const; // setupIndex is below setupCount() (asserted)

    // The first sound of that name, compared byte by byte. ErrorCode::NotFound.
    base::Result<uint32_t> find(std::string_view name) const;

    // Reads all bytes of a sound and verifies their checksum. ErrorCode::NotFound, ErrorCode::Damaged, ErrorCode::Io.
    base::Result<> verifyData(uint32_t index) const;

    // Verifies that every sound is found by its name. open() doesn't check this: a wrong index of names only misleads
    // searches. ErrorCode::Damaged.
    base::Result<> verifyNames() const;

private:
    struct Tables;
    explicit BankReader(std::unique_ptr<Tables> tables);
    std::unique_ptr<Tables> mTables;
};

// Returns the plain layout of the encrypted bank in source. Pieces are read, authenticated and decrypted on demand, in
// any order; some are kept in memory. Several threads may use the returned source at once if they may use the given
// one. Deriving the key takes about 19 MiB and some tens of milliseconds. ErrorCode::KeyWrong, ErrorCode::Damaged,
// ErrorCode::Format (not encrypted), ErrorCode::Version, ErrorCode::Memory, ErrorCode::Io.
base::Result<std::shared_ptr<const base::ByteSource>> unlock(std::shared_ptr<const base::ByteSource> source,
                                                             std::string_view key);

// Checks what can be checked in an encrypted bank without its key: the header, its checksum and the size of the file.
// ErrorCode::Damaged, ErrorCode::Format, ErrorCode::Version, ErrorCode::Io.
base::Result<> checkLocked(const base::ByteSource& source);

} // namespace bank
