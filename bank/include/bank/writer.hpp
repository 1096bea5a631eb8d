// Lays out a bank and writes it front to back.
//
// The writer holds of each sound its row of the table and its name, a few hundred bytes; chunks and encoded data stay
// where they are stored (an entry of a cache, a temporary file) and are copied when the bank is written, each compared
// with its checksum. The same sounds, names and settings give the same bytes.
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

// What belongs to the bank and not to a sound.
struct BankSettings
{
    Codec format = Codec::Pcm; // the format of the whole bank; each sound still tells its own
    uint32_t quality = 0; // 0 to 100, of the whole bank
    bool guid = true; // false: the bank carries none
    bool names = true; // false: the bank carries none and finds sounds by index alone
};

// Where the stored form of one sound (serialise) and its encoded data lie.
struct StoredSound
{
    std::shared_ptr<const base::ByteSource> source;
    uint64_t recordOffset = 0; // of the serialised form
    uint64_t dataOffset = 0; // of the encoded data, Sound::dataBytes long
    std::shared_ptr<const base::ByteSource> dataSource = nullptr; // where the data lies if not in source
};

// Hands the stored sounds to the writer.
class StoredSounds
{
public:
    virtual ~StoredSounds() = default;

    // The sound that was the index-th to be added. The writer asks for one at a time, in rising order, and lets go of
    // it before the next; for an encrypted bank it goes through all of them twice.
    virtual base::Result<StoredSound> open(size_t index) = 0;
};

// See above. Sounds are added in the order of the bank, then it is written, as often as wanted.
class BankWriter
{
public:
    explicit BankWriter(const BankSettings& settings);
    ~BankWriter();

    // Appends a sound; indices count from 0. name is UTF-8 without NUL (asserted), at most 65,535 bytes (longer ones
    // are cut at a character), and need not be unique: the first of equal names is the one that is found. Only what the
    // table needs of sound is kept.
    void add(std::string_view name, const Sound& sound);

    // Size of the file that write or writeEncrypted makes, in bytes.
    [[nodiscard]] uint64_t fileBytes() const;
    [[nodiscard]] uint64_t encryptedFileBytes() const;

    // Writes the bank. stop is looked at after at most 256 KiB of copying. ErrorCode::Cancelled; whatever sink or
    // stored returned; ErrorCode::Invalid: the tables are larger than readers accept; ErrorCode::Damaged: a stored
    // sound is not the one that was added. What sink got until then is of no use.
    base::Result<> write(base::ByteSink& sink, StoredSounds& stored, std::stop_token stop) const;

    // The same, encrypted with key (any bytes, at least one). Goes through the stored sounds twice, first for the
    // digest that the salt is made of. ErrorCode::Invalid: empty key. ErrorCode::Damaged also when a stored sound
    // changed between the two. Takes about 19 MiB of memory while the key is derived.
    base::Result<> writeEncrypted(base::ByteSink& sink, StoredSounds& stored, std::string_view key,
                                  const std::stop_token& stop) const;

private:
    struct Plan;
    std::unique_ptr<Plan> mPlan;
};

} // namespace bank
