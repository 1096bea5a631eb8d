// SPDX-License-Identifier: MIT
// An opened bank: a list of sounds that can be found by index or by name, and decoded.
#pragma once

#include "banks/bank_decoders.hpp"
#include "parse/medium.hpp"

#include "bank/reader.hpp"

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string_view>

namespace engine {

// Sound indices are below soundCount() (asserted). Once the bank is unlocked, several threads may use it at once.
class BankFile
{
public:
    // Opens the bank in medium and checks its header and tables, without reading sample data. A locked (encrypted) bank
    // opens too. ErrorCode::Format: not a bank. ErrorCode::Version: a bank of another version. ErrorCode::Damaged.
    static base::Result<std::unique_ptr<BankFile>> open(MediumPointer medium);

    BankFile(const BankFile&) = delete;
    BankFile& operator=(const BankFile&) = delete;

    [[nodiscard]] bool encrypted() const { return mEncrypted; }

    // Whether the bank is encrypted and has no key yet. The calls after unlock() then fail with ErrorCode::KeyMissing.
    [[nodiscard]] bool locked() const { return !mReader; }

    // ErrorCode::KeyWrong. ErrorCode::Damaged.
    base::Result<> unlock(std::string_view key);

    // Fills all members but cbsize. What a locked bank doesn't show stays zero.
    void describe(KESS_BANKINFO& info) const;

    // The container, for a closer look; null while the bank is locked.
    [[nodiscard]] const bank::BankReader* reader() const { return mReader ? &*mReader : nullptr; }

    [[nodiscard]] int soundCount() const { return mReader ? int(mReader->info().soundCount) : 0; }
    base::Result<std::shared_ptr<BankSound>> sound(int index) const;

    // ErrorCode::NotFound.
    base::Result<int> find(std::string_view name) const;

    // Compares the encoded data of a sound of this bank with its checksum.
    base::Result<> verifyData(const BankSound& sound) const;

    // ErrorCode::Unsupported: the sound can't be decoded here.
    static base::Result<> checkCodec(const BankSound& sound);

    // A decoder of a sound of this bank. It shares file and tables with the bank, and may outlive it. Errors of
    // checkCodec(). ErrorCode::Damaged.
    base::Result<DecoderPointer> decoder(const std::shared_ptr<BankSound>& sound);

private:
    explicit BankFile(MediumPointer medium);

    base::Result<> openTables(std::shared_ptr<const base::ByteSource> plain);
    base::Result<> prepare(BankSound& sound);
    base::Result<> prepareOpus(BankSound& sound) const;
    base::Result<> prepareVorbis(BankSound& sound);
    base::Result<VorbisSetupPointer> vorbisSetup(uint32_t index);

    std::shared_ptr<const base::ByteSource> mFile;
    bool mEncrypted = false;
    std::optional<bank::BankReader> mReader;

    // Of the following, and of sounds that are being prepared.
    std::mutex mPreparing;
    std::map<uint32_t, std::weak_ptr<const VorbisSetup>> mVorbisSetups;
    std::set<uint32_t> mBadVorbisSetups; // damaged ones; remembered, because reading one again would take as long as
                                         // reading an intact one
    // Keeps the latest setup alive, so that opening and releasing sound after sound doesn't unpack a shared setup each
    // time.
    VorbisSetupPointer mLastVorbisSetup;
};

} // namespace engine
