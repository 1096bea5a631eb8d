// A sound bank as the engine sees it: a list of sounds that can be found by index or by name, and decoded.
#pragma once

#include "decode/decoder.hpp"

#include "base/result.hpp"

#include <memory>
#include <string>
#include <string_view>

namespace bank {
class BankReader;
}

namespace kess {

// What an error of the container is to the engine's callers.
[[nodiscard]] KESS_RESULT resultOf(const base::Error& error);
[[nodiscard]] KESS_RESULT resultOf(const base::Result<>& result);

class BankFile
{
public:
    // Opens the bank at path and checks its header and tables, without touching sample data. A locked (encrypted)
    // bank opens too. ErrorCode::NotFound, ErrorCode::Io; ErrorCode::Format: not a bank. ErrorCode::Version: one of
    // another version. ErrorCode::Damaged: Error::text says what is damaged.
    static base::Result<std::unique_ptr<BankFile>> open(const char* path);

    virtual ~BankFile() = default;

    [[nodiscard]] virtual bool encrypted() const = 0;
    [[nodiscard]] virtual bool locked() const = 0; // encrypted and no key given yet: the calls below are refused

    // ErrorCode::KeyWrong, ErrorCode::Damaged, ErrorCode::Memory, ErrorCode::Io.
    virtual base::Result<> unlock(std::string_view key) = 0;

    // Fills all but cbsize; what a locked bank doesn't show stays zero.
    virtual void describe(KESS_BANKINFO* info) const = 0;

    // What stands in the bank, for those who look closer; null while it is locked.
    [[nodiscard]] virtual const bank::BankReader* reader() const = 0;

    [[nodiscard]] virtual int soundCount() const = 0;
    [[nodiscard]] virtual KESS_RESULT facts(int index, SoundFacts* facts) const = 0;
    [[nodiscard]] virtual KESS_RESULT find(std::string_view name, int* index) const = 0;

    // Whether the encoded data match their checksum.
    [[nodiscard]] virtual KESS_RESULT verifyData(int index) const = 0;

    // A decoder of one sound. KESS_ERR_UNSUPPORTED: its codec isn't decoded here. It shares the file with the bank and
    // must not outlive it.
    [[nodiscard]] virtual KESS_RESULT decoder(int index, DecoderPointer* decoder) = 0;

protected:
    BankFile() = default;
    BankFile(const BankFile&) = delete;
    BankFile& operator=(const BankFile&) = delete;
};

} // namespace kess
