// SPDX-License-Identifier: MIT
// Encrypts the plain layout in pieces that can be read in any order.
//
// Argon2id derives the key of a bank from the password and a salt. The same input must give the same bank, so the salt
// can't be random: it is taken from the content tag, a BLAKE2b digest of the whole plain layout. Different contents
// have different tags and thus different keys, so no nonce is used for two plaintexts under one key. This reveals
// equality: whoever has two encrypted banks can see whether both key and content are the same, and whoever has the
// complete plain layout can recognise it.
//
// The key of the pieces also depends on the header. So a piece is valid only at one position (its nonce) in one file of
// one size, and no piece is accepted under a modified header.
#pragma once

#include "layout.hpp"

#include <sodium.h>

#include <memory>
#include <string_view>

namespace bank {

inline constexpr uint32_t kPieceBytes = 64 * 1024;
inline constexpr size_t kTagBytes = crypto_aead_xchacha20poly1305_ietf_ABYTES; // 16, after each piece

using layout::ContentTag;
using layout::EncryptedHeader;
using layout::KeyCheck;

// Makes the header without the key check, which needs PieceKeys::derive().
[[nodiscard]] EncryptedHeader makeEncryptedHeader(uint64_t plainBytes, const ContentTag& tag);
[[nodiscard]] uint64_t encryptedBytes(uint64_t plainBytes);

// ErrorCode::Damaged: also for extreme parameters, so that a file can't demand gigabytes of memory.
base::Result<EncryptedHeader> readEncryptedHeader(const base::ByteSource& source);

// The keys of a bank. The destructor wipes the key of the pieces from memory.
class PieceKeys
{
public:
    // ErrorCode::Memory: there isn't enough for Argon2id.
    static base::Result<std::shared_ptr<const PieceKeys>> derive(const EncryptedHeader& header,
                                                                 std::string_view password);

    PieceKeys() = default;
    ~PieceKeys();
    PieceKeys(const PieceKeys&) = delete;
    PieceKeys& operator=(const PieceKeys&) = delete;

    // The key check that the header contains if this is the right key.
    [[nodiscard]] const KeyCheck& check() const { return mCheck; }

    void encrypt(uint64_t piece, std::span<const uint8_t> plain, std::vector<uint8_t>* sealed) const;
    base::Result<> decrypt(uint64_t piece, std::span<const uint8_t> sealed, std::span<uint8_t> plain) const;

private:
    std::array<uint8_t, crypto_aead_xchacha20poly1305_ietf_KEYBYTES> mKey{};
    KeyCheck mCheck{};
};

// Computes the digest of what is written to it.
class DigestSink final : public base::ByteSink
{
public:
    DigestSink();
    base::Result<> write(std::span<const uint8_t> bytes) override;
    [[nodiscard]] ContentTag tag() const;
    [[nodiscard]] uint64_t bytes() const { return mBytes; }

private:
    crypto_generichash_state mState;
    uint64_t mBytes = 0;
};

// Encrypts what is written to it into another sink. finish() writes the last piece. It returns ErrorCode::Damaged if
// the written bytes don't have the digest in tag: the file must then be discarded, since it isn't the content that the
// key belongs to.
class EncryptingSink final : public base::ByteSink
{
public:
    EncryptingSink(base::ByteSink& sink, std::shared_ptr<const PieceKeys> keys, const ContentTag& tag);
    base::Result<> write(std::span<const uint8_t> bytes) override;
    base::Result<> finish();

private:
    base::Result<> flush();

    base::ByteSink& mSink;
    std::shared_ptr<const PieceKeys> mKeys;
    ContentTag mTag;
    DigestSink mDigest;
    std::vector<uint8_t> mPlain;
    std::vector<uint8_t> mSealed;
    uint64_t mPiece = 0;
};

} // namespace bank
