// Reads a bank: its header and tables on opening, everything else when asked.
//
// Nothing in the file is trusted: lengths and offsets are checked before they are used, and no more memory is taken
// than the file could hold. One reader belongs to one thread at a time.
//
// Where a call takes a fault and that isn't null, it gets what is damaged, in words for people, with Error::Damaged.
#pragma once

#include "bank/sound.hpp"

#include <array>
#include <memory>
#include <string_view>

namespace bank {

// What the first bytes of a file tell.
enum class Kind
{
    Plain,
    Encrypted
};

// Error::NotABank, Error::Version, Error::Damaged (begins as a bank but is too short for a header), Error::Io.
Result<Kind> probe(const ByteSource& source, std::string* fault = nullptr);

// What the header tells.
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

// A sound's row of the table, its name, and where its parts lie in the plain layout.
struct SoundEntry
{
    Codec codec = Codec::Pcm;
    SampleFormat sampleFormat = SampleFormat::None;
    uint16_t channels = 0;
    uint32_t sampleRate = 0;
    uint64_t sampleCount = 0;
    uint32_t leadIn = 0;
    uint8_t quality = 0;
    std::optional<uint32_t> setup; // index of the shared setup
    uint32_t chunksBytes = 0;
    uint64_t dataOffset = 0;
    uint64_t dataBytes = 0;
    std::string_view name; // valid as long as the reader
};

// One opened bank. Gives what it holds as values; the encoded data is read from source().
class BankReader
{
public:
    // Opens the plain layout: of an unencrypted file, or of an encrypted one through unlock(). Reads the header and
    // the tables and verifies their checksums, every offset in them, and that no byte is in two sounds. Errors of
    // probe(), Error::KeyMissing for an encrypted file, Error::Damaged, Error::Memory.
    static Result<BankReader> open(std::shared_ptr<const ByteSource> source, std::string* fault = nullptr);

    BankReader(BankReader&&) noexcept;
    BankReader& operator=(BankReader&&) noexcept;
    ~BankReader();

    [[nodiscard]] const BankInfo& info() const;
    [[nodiscard]] const std::shared_ptr<const ByteSource>& source() const;

    // index is below info().soundCount (asserted).
    [[nodiscard]] SoundEntry entry(uint32_t index) const;

    // Everything about a sound: reads and verifies its chunks and its setup. Error::NotFound, Error::Damaged, Io.
    Result<Sound> sound(uint32_t index) const;

    // The same without the setup, which is best read once for all sounds that share it.
    Result<Sound> soundWithoutSetup(uint32_t index, std::string* fault = nullptr) const;
    Result<std::vector<uint8_t>> setup(uint32_t setupIndex, std::string* fault = nullptr) const;
    [[nodiscard]] uint32_t setupCount() const;
    [[nodiscard]] uint32_t setupBytes(uint32_t setupIndex) const; // setupIndex is below setupCount() (asserted)

    // The first sound of that name, compared byte by byte. Error::NotFound.
    Result<uint32_t> find(std::string_view name) const;

    // Reads all bytes of a sound and verifies their checksum. Error::NotFound, Error::Damaged, Error::Io.
    Error verifyData(uint32_t index, std::string* fault = nullptr) const;

    // Whether every sound is found by its name. Opening doesn't check that: a wrong index of names misleads a search,
    // and nothing else. Error::Damaged.
    Error verifyNames(std::string* fault = nullptr) const;

private:
    struct Tables;
    explicit BankReader(std::unique_ptr<Tables> tables);
    std::unique_ptr<Tables> mTables;
};

// Presents the plain layout of the encrypted bank in source. Pieces are read, authenticated and decrypted as they are
// asked for, in any order; a few are kept. The source given back belongs to one thread at a time. Takes about 19 MiB
// and some tens of milliseconds while the key is derived. Error::KeyWrong, Error::Damaged, Error::NotABank (not
// encrypted), Error::Version, Error::Memory, Error::Io.
Result<std::shared_ptr<const ByteSource>> unlock(std::shared_ptr<const ByteSource> source, std::string_view key,
                                                 std::string* fault = nullptr);

// Checks what an encrypted bank shows without its key: header, its checksum and the size of the file. Error::Damaged,
// Error::NotABank, Error::Version, Error::Io.
Error checkLocked(const ByteSource& source, std::string* fault = nullptr);

} // namespace bank
