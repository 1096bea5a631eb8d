// Looks at everything in a bank: what opening has checked, each checksum, each packet, each place to seek to.
#pragma once

#include "banks/bank_decoders.hpp"
#include "banks/bank_file.hpp"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kess {

// Takes a finding, of the sound with that index or of the bank (-1): KESS_ERR_FILE_BAD for damage,
// KESS_ERR_UNSUPPORTED where something couldn't be looked at, KESS_OK for a remark. False: enough of it.
using TellFinding = std::function<bool(int sound, KESS_RESULT result, const std::string& text)>;

// Memory doesn't grow with the length of a sound.
class BankVerification
{
public:
    // bank is unlocked and outlives the object.
    BankVerification(BankFile& bank, TellFinding tell);

    // KESS_ERR_FILE_BAD: damage was told of. KESS_ERR_FILE_COULDNOTSEEK: the medium failed. KESS_ERR_MEMORY.
    [[nodiscard]] KESS_RESULT run();

private:
    void verifySound(uint32_t index);
    const base::Result<>& verifySetup(uint32_t setup);
    [[nodiscard]] bool verifyStored(uint32_t index, bank::Sound* sound);
    [[nodiscard]] bool verifyPackets(uint32_t index, const bank::Sound& sound);
    void verifyDecoding(uint32_t index, const bank::Sound& sound);

    // Whether result is a success; reports the damage, or keeps the failure, otherwise.
    bool passes(const base::Result<>& result, uint32_t index);
    bool passes(KESS_RESULT result, uint32_t index, const std::string& fault);
    void tell(int sound, KESS_RESULT result, const std::string& text);
    [[nodiscard]] bool ended() const { return mStopped || mFailure != KESS_OK; }

    BankFile& mBank;
    const bank::BankReader& mReader;
    TellFinding mTell;
    std::vector<std::optional<base::Result<>>> mSetups; // of those that were verified
    bool mDamaged = false;
    bool mStopped = false;
    KESS_RESULT mFailure = KESS_OK;
};

} // namespace kess
