// SPDX-License-Identifier: MIT
// Lays out a bank and writes it from start to end.
//
// The writer keeps the table row and the name of each sound in memory, a few hundred bytes. Chunks and encoded data
// stay where they are stored (a cache entry, a temporary file). They are copied when the bank is written, and each is
// compared with its checksum. The same sounds, names and settings give the same bytes.
//
//     BankWriter writer(settings);
//     for each sound: writer.add(name, sound);
//     writer.write(sink, stored, stop);             or writer.writeEncrypted(sink, stored, key, stop);
#pragma once

#include "bank/sound.hpp"

#include <memory>
#include <stop_token>
#include <string>
#include <string_view>

namespace bank {

// Settings of the whole bank.
struct BankSettings
{
    Codec format = Codec::Pcm; // of the whole bank; each sound also records its own
    uint32_t quality = 0; // 0 to 100, of the whole bank
    bool guid = true; // false: the bank has none
    bool names = true; // false: the bank has none, and its sounds are found by index only
};

// Where the serialised form of one sound and its encoded data are stored.
struct StoredSound
{
    std::shared_ptr<const base::ByteSource> source;
    uint64_t recordOffset = 0; // of the serialised form
    uint64_t dataOffset = 0; // of the encoded data, Sound::dataBytes long
    std::shared_ptr<const base::ByteSource> dataSource = nullptr; // where the data is stored if not in source
};

// Gives the writer access to the stored sounds.
class StoredSounds
{
public:
    virtual ~StoredSounds() = default;

    // Returns the sound that was added with that index. The writer opens one sound at a time, in rising order, and
    // releases it before the next. For an encrypted bank it reads all sounds twice.
    virtual base::Result<StoredSound> open(size_t index) = 0;
};

// Add the sounds in the order of the bank, then write it, as often as you like.
class BankWriter
{
public:
    explicit BankWriter(const BankSettings& settings);
    ~BankWriter();

    // Appends a sound; indices count from 0. name is UTF-8 without NUL (asserted). Names of more than 65,535 bytes are
    // cut between characters. Names need not be unique: a search finds the first of several equal names. Keeps only
    // what the tables need of sound.
    void add(std::string_view name, const Sound& sound);

    // Size in bytes of the file that write or writeEncrypted produces.
    [[nodiscard]] uint64_t fileBytes() const;
    [[nodiscard]] uint64_t encryptedFileBytes() const;

    // Writes the bank. Checks stop at least every 256 KiB. ErrorCode::Cancelled. ErrorCode::Invalid: the tables are
    // larger than readers accept. ErrorCode::Damaged: a stored sound isn't the one that was added. Passes on the errors
    // of sink and stored. After an error, what sink received is useless.
    base::Result<> write(base::ByteSink& sink, StoredSounds& stored, std::stop_token stop) const;

    // The same, encrypted with key (any bytes, at least one). Reads the stored sounds twice, first for the digest from
    // which the salt is taken. ErrorCode::Invalid: also for an empty key. ErrorCode::Damaged: also if a stored sound
    // has changed between the two passes. Deriving the key takes about 19 MiB of memory.
    base::Result<> writeEncrypted(base::ByteSink& sink, StoredSounds& stored, std::string_view key,
                                  const std::stop_token& stop) const;

private:
    struct Plan;
    std::unique_ptr<Plan> mPlan;
};

} // namespace bank
