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

// What was found in one sound.
struct SoundFindings
{
    std::vector<Finding> findings;
    base::Result<> completed; // or why the verification ended early
};

// Verifies several sounds at once. Memory doesn't grow with the length of a sound.
class BankVerification
{
public:
    // bank is unlocked and outlives the object. report is called by the thread that calls run(), in the order of the
    // sounds.
    BankVerification(BankFile& bank, ReportFinding report);

    // ErrorCode::Damaged: damage was reported. ErrorCode::NotSeekable: the medium failed. ErrorCode::Memory.
    base::Result<> run();

private:
    void report(const Finding& finding);

    BankFile& mBank;
    ReportFinding mReport;
    bool mDamaged = false;
    bool mStopped = false;
};

} // namespace engine
