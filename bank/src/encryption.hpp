// Encrypts the plain layout in pieces that can be read in any order.
//
// The key of a bank comes from the password by Argon2id with a salt, and everything must come out the same for the
// same input. So the salt is taken from the content tag, a BLAKE2b digest of the whole plain layout: two different
// contents have different tags, hence different keys, and no nonce is ever used for two plaintexts under one key. What
// this gives away is equality: whoever has two encrypted banks sees whether key and content are both the same, and
// whoever already has the complete plain layout can recognise it.
//
// The pieces' own key also covers the header, so that a piece fits one position (its nonce) of one file of one size,
// and no piece is accepted under a header that was changed.
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

// Without the key check, which derive() gives.
[[nodiscard]] EncryptedHeader makeEncryptedHeader(uint64_t plainBytes, const ContentTag& tag);
[[nodiscard]] uint64_t encryptedBytes(uint64_t plainBytes);

// ErrorCode::Damaged also for parameters that no writer of ours chooses, so that a file can't ask for gigabytes.
base::Result<EncryptedHeader> readEncryptedHeader(const base::ByteSource& source);

// Keys, wiped from memory when done with.
class PieceKeys
{
public:
    // ErrorCode::Memory: none for Argon2id.
    static base::Result<std::shared_ptr<const PieceKeys>> derive(const EncryptedHeader& header,
                                                                 std::string_view password);

    PieceKeys() = default;
    ~PieceKeys();
    PieceKeys(const PieceKeys&) = delete;
    PieceKeys& operator=(const PieceKeys&) = delete;

    // What the header of the right key holds.
    [[nodiscard]] const KeyCheck& check() const { return mCheck; }

    void encrypt(uint64_t piece, std::span<const uint8_t> plain, std::vector<uint8_t>* sealed) const;
    base::Result<> decrypt(uint64_t piece, std::span<const uint8_t> sealed, std::span<uint8_t> plain) const;

private:
    std::array<uint8_t, crypto_aead_xchacha20poly1305_ietf_KEYBYTES> mKey{};
    KeyCheck mCheck{};
};

// Digests what is written to it.
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

// Encrypts what is written to it into another sink. finish() writes the last piece, and returns ErrorCode::Damaged when
// what came through isn't what the tag was made of: under that key it must not be kept.
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
