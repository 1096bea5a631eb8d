// A sound bank as the engine sees it: a list of sounds that can be found by index or by name, and decoded.
#pragma once

#include "decode/decoder.hpp"

#include <memory>
#include <string>
#include <string_view>

namespace bank {
class BankReader;
}

namespace kess {

class BankFile
{
public:
    // Opens the bank at path and checks its header and tables, without touching sample data. A locked (encrypted)
    // bank opens too. KESS_ERR_FORMAT: not a bank. KESS_ERR_VERSION: one of another version. KESS_ERR_FILE_BAD:
    // damaged; then fault, here and below, gets what is damaged, in words, unless it is null.
    [[nodiscard]] static KESS_RESULT open(const char* path, std::unique_ptr<BankFile>* bank,
                                          std::string* fault = nullptr);

    virtual ~BankFile() = default;

    [[nodiscard]] virtual bool encrypted() const = 0;
    [[nodiscard]] virtual bool locked() const = 0; // encrypted and no key given yet: the calls below are refused
    [[nodiscard]] virtual KESS_RESULT unlock(std::string_view key, std::string* fault = nullptr) = 0;

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
