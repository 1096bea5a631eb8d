// SPDX-License-Identifier: MIT
// Verifies everything in a bank: what opening checks, every checksum, every packet, every seek point.
#pragma once

#include "banks/bank_file.hpp"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace engine {

struct Finding
{
    enum class Kind
    {
        Damage,
        NotVerified, // something couldn't be verified
        Remark // on something that is intact but could be better
    };

    int sound = -1; // its index, or -1 for the bank itself
    Kind kind = Kind::Damage;
    std::string text;
};

// Returns whether to continue.
using ReportFinding = std::function<bool(const Finding&)>;

// Reports to a caller of the library; callback may be null.
[[nodiscard]] ReportFinding reportTo(KESS_FINDING_CALLBACK callback, void* userData);

// Memory doesn't grow with the length of a sound.
class BankVerification
{
public:
    // bank is unlocked and outlives the object.
    BankVerification(BankFile& bank, ReportFinding report);

    // ErrorCode::Damaged: damage was reported. ErrorCode::NotSeekable: the medium failed. ErrorCode::Memory.
    base::Result<> run();

private:
    void verifySound(uint32_t index);
    const base::Result<>& verifySetup(uint32_t setup);
    [[nodiscard]] std::optional<bank::Sound> verifyStored(uint32_t index);
    [[nodiscard]] bool verifyPackets(uint32_t index, const bank::Sound& sound);
    void verifyDecoding(uint32_t index, const bank::Sound& sound);

    // Returns whether result is a success. Reports damage, and keeps any other failure.
    bool passes(const base::Result<>& result, uint32_t index);
    void report(const Finding& finding);
    [[nodiscard]] bool ended() const { return mStopped || !mFailure; }

    BankFile& mBank;
    const bank::BankReader& mReader;
    ReportFinding mReport;
    std::vector<std::optional<base::Result<>>> mSetups; // of those that were verified
    bool mDamaged = false;
    bool mStopped = false;
    base::Result<> mFailure;
};

} // namespace engine
