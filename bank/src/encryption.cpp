// SPDX-License-Identifier: MIT
#include "encryption.hpp"

#include "bank/checksum.hpp"
#include "bank/reader.hpp"

#include <algorithm>
#include <cassert>
#include <condition_variable>
#include <mutex>

namespace bank {

using base::Error;
using base::ErrorCode;
using base::Result;

namespace {

// Parameters of Argon2id: OWASP recommends at least 19 MiB with two passes.
constexpr uint32_t kMemoryKiB = 19'456;
constexpr uint32_t kPasses = 2;

// What a reader accepts: leaves room for stronger parameters in the future, but can't exhaust a game's memory.
constexpr uint32_t kMinimumPieceBytes = 4096;
constexpr uint32_t kMaximumPieceBytes = 1024 * 1024;
constexpr uint32_t kMinimumMemoryKiB = 8;
constexpr uint32_t kMaximumMemoryKiB = 64 * 1024;
constexpr uint32_t kMaximumPasses = 16;

// Distinguishes the digest from every other use of BLAKE2b on the same bytes.
constexpr std::string_view kDigestContext = "tnb content tag 1";
constexpr std::string_view kCheckContext = "tnb key check 1";
constexpr std::string_view kPieceContext = "tnb piece key 2";

void requireSodium()
{
    // The result is negative only if the system has no source of randomness, which nothing here uses. The call also
    // selects the code for this processor. It may be made from several threads.
    static const int ready = sodium_init();
    (void)ready;
}

// BLAKE2b of context and message under key.
template <size_t Size>
void keyedHash(std::span<const uint8_t> key, std::string_view context, std::span<const uint8_t> message,
               std::array<uint8_t, Size>* hash)
{
    crypto_generichash_state state;
    crypto_generichash_init(&state, key.data(), key.size(), Size);
    crypto_generichash_update(&state, base::textBytes(context).data(), context.size());
    crypto_generichash_update(&state, message.data(), message.size());
    crypto_generichash_final(&state, hash->data(), Size);
    sodium_memzero(&state, sizeof state);
}

using Nonce = std::array<uint8_t, crypto_aead_xchacha20poly1305_ietf_NPUBBYTES>;

Nonce makeNonce(uint64_t piece)
{
    Nonce nonce{};
    base::storeLittle(nonce.data(), piece);
    return nonce;
}

uint64_t pieceCount(uint64_t plainBytes, uint32_t pieceBytes)
{
    return plainBytes / pieceBytes + (plainBytes % pieceBytes != 0);
}

// The plain layout of an encrypted file. Keeps some decrypted pieces, since a decoder reads packet by packet, and
// several sounds may be read alternately or on several threads.
class DecryptingSource final : public base::ByteSource
{
public:
    DecryptingSource(std::shared_ptr<const base::ByteSource> source, const EncryptedHeader& header,
                     std::shared_ptr<const PieceKeys> keys)
        : mSource(std::move(source))
        , mHeader(header)
        , mKeys(std::move(keys))
        , mSlots(static_cast<size_t>(std::min<uint64_t>(pieceCount(header.plainBytes, header.pieceBytes), kMostSlots)))
        , mMemory(std::make_unique_for_overwrite<uint8_t[]>(mSlots.size() * slotBytes()))
    { }

    [[nodiscard]] uint64_t size() const override { return mHeader.plainBytes; }

    Result<> readAt(uint64_t offset, std::span<uint8_t> bytes) const override
    {
        if (!base::rangeInside(offset, bytes.size(), size()))
            return Error{ErrorCode::Damaged};
        while (!bytes.empty()) {
            const size_t begin = static_cast<size_t>(offset % mHeader.pieceBytes);
            const size_t length = std::min(bytes.size(), static_cast<size_t>(mHeader.pieceBytes) - begin);
            if (const Result<> copied = copyFrom(offset / mHeader.pieceBytes, begin, bytes.first(length)); !copied)
                return copied.error();
            bytes = bytes.subspan(length);
            offset += length;
        }
        return {};
    }

private:
    static constexpr uint64_t kMostSlots = 16;

    // Room for a piece. The memory of a slot that was never used isn't touched.
    struct Slot
    {
        uint64_t piece = 0;
        uint64_t used = 0; // 0: the slot is empty
        int users = 0; // that read it, or the one that fills it
        bool isLoading = false;
    };

    [[nodiscard]] size_t slotBytes() const { return mHeader.pieceBytes + kTagBytes; }
    [[nodiscard]] uint8_t* memoryOf(const Slot& slot) const
    {
        return mMemory.get() + static_cast<size_t>(&slot - mSlots.data()) * slotBytes();
    }

    // Copies a part of a piece. The lock isn't held while a piece is read, decrypted or copied, so that threads that
    // need different pieces don't wait for each other.
    Result<> copyFrom(uint64_t piece, size_t begin, std::span<uint8_t> bytes) const
    {
        std::unique_lock lock(mMutex);
        Slot* slot = nullptr;
        while (!(slot = take(piece)))
            mChanged.wait(lock);
        const Use use{*this, lock, *slot};
        if (slot->isLoading) {
            lock.unlock();
            const Result<> loaded = load(piece, memoryOf(*slot));
            lock.lock();
            slot->isLoading = false;
            if (!loaded) {
                slot->used = 0;
                return loaded.error();
            }
            mChanged.notify_all();
        }
        slot->used = ++mClock;
        lock.unlock();
        std::copy_n(memoryOf(*slot) + begin, bytes.size(), bytes.begin());
        return {};
    }

    // The slot with the piece, or one in which it must be loaded by the caller. Null: wait for a change.
    [[nodiscard]] Slot* take(uint64_t piece) const
    {
        Slot* oldest = nullptr;
        for (Slot& slot : mSlots) {
            const bool isFilled = slot.used > 0 || slot.isLoading;
            if (isFilled && slot.piece == piece) {
                if (slot.isLoading)
                    return nullptr;
                ++slot.users;
                return &slot;
            }
            if (slot.users == 0 && (!oldest || slot.used < oldest->used))
                oldest = &slot;
        }
        if (oldest)
            *oldest = {piece, 0, 1, true};
        return oldest;
    }

    // The use of a slot; it ends even if loading throws.
    struct Use
    {
        const DecryptingSource& source;
        std::unique_lock<std::mutex>& lock;
        Slot& slot;

        ~Use()
        {
            if (!lock.owns_lock())
                lock.lock();
            slot.isLoading = false;
            if (--slot.users == 0)
                source.mChanged.notify_all();
        }
    };

    // Decrypts in place.
    Result<> load(uint64_t piece, uint8_t* memory) const
    {
        const uint64_t begin = piece * mHeader.pieceBytes;
        const size_t length = static_cast<size_t>(std::min<uint64_t>(mHeader.pieceBytes, size() - begin));
        const std::span sealed(memory, length + kTagBytes);
        const uint64_t offset =
            mHeader.prefix.headerBytes + piece * (static_cast<uint64_t>(mHeader.pieceBytes) + kTagBytes);
        if (const Result<> result = mSource->readAt(offset, sealed); !result)
            return result.error();
        return mKeys->decrypt(piece, sealed, sealed.first(length));
    }

    std::shared_ptr<const base::ByteSource> mSource;
    EncryptedHeader mHeader;
    std::shared_ptr<const PieceKeys> mKeys;
    mutable std::mutex mMutex; // of the slots and the clock
    mutable std::condition_variable mChanged;
    mutable std::vector<Slot> mSlots;
    std::unique_ptr<uint8_t[]> mMemory;
    mutable uint64_t mClock = 0;
};

} // namespace

EncryptedHeader makeEncryptedHeader(uint64_t plainBytes, const ContentTag& tag)
{
    EncryptedHeader header;
    header.prefix.headerBytes = layout::kEncryptedHeaderBytes;
    header.prefix.flags = layout::kFlagEncrypted;
    header.prefix.fileBytes = encryptedBytes(plainBytes);
    header.pieceBytes = kPieceBytes;
    header.plainBytes = plainBytes;
    header.passes = kPasses;
    header.memoryKiB = kMemoryKiB;
    header.contentTag = tag;
    return layout::loadEncryptedHeader(pack(header));
}

uint64_t encryptedBytes(uint64_t plainBytes)
{
    return layout::kEncryptedHeaderBytes + plainBytes + pieceCount(plainBytes, kPieceBytes) * kTagBytes;
}

Result<EncryptedHeader> readEncryptedHeader(const base::ByteSource& source)
{
    const Result<layout::Prefix> prefix = layout::readPrefix(source);
    if (!prefix)
        return prefix.error();
    if (!(prefix->flags & layout::kFlagEncrypted))
        return Error{ErrorCode::Format};
    const Result<std::vector<uint8_t>> bytes = layout::readHeader(source, *prefix, layout::kEncryptedHeaderBytes);
    if (!bytes)
        return bytes.error();

    EncryptedHeader header = layout::loadEncryptedHeader(*bytes);
    if (header.pieceBytes < kMinimumPieceBytes || header.pieceBytes > kMaximumPieceBytes
        || header.memoryKiB < kMinimumMemoryKiB || header.memoryKiB > kMaximumMemoryKiB || header.passes == 0
        || header.passes > kMaximumPasses)
        return layout::damaged("the encryption parameters in the header are impossible");
    const uint64_t fileBytes = header.prefix.fileBytes;
    if (header.plainBytes == 0 || header.plainBytes > fileBytes
        || fileBytes
            != header.prefix.headerBytes + header.plainBytes
                + pieceCount(header.plainBytes, header.pieceBytes) * kTagBytes)
        return layout::damaged("the sizes in the header contradict each other");
    return header;
}

Result<std::shared_ptr<const PieceKeys>> PieceKeys::derive(const EncryptedHeader& header, std::string_view password)
{
    requireSodium();
    static_assert(crypto_pwhash_SALTBYTES <= std::tuple_size_v<ContentTag>);
    std::array<uint8_t, 32> master{};
    if (crypto_pwhash(master.data(), master.size(), password.data(), password.size(), header.contentTag.data(),
                      header.passes, static_cast<size_t>(header.memoryKiB) * 1024, crypto_pwhash_ALG_ARGON2ID13)
        != 0)
        return Error{ErrorCode::Memory};

    auto keys = std::make_shared<PieceKeys>();
    keyedHash(master, kCheckContext, {}, &keys->mCheck);
    keyedHash(master, kPieceContext, header.bound, &keys->mKey);
    sodium_memzero(master.data(), master.size());
    return std::shared_ptr<const PieceKeys>(std::move(keys));
}

PieceKeys::~PieceKeys()
{
    sodium_memzero(mKey.data(), mKey.size());
}

void PieceKeys::encrypt(uint64_t piece, std::span<const uint8_t> plain, std::vector<uint8_t>* sealed) const
{
    sealed->resize(plain.size() + kTagBytes);
    crypto_aead_xchacha20poly1305_ietf_encrypt(sealed->data(), nullptr, plain.data(), plain.size(), nullptr, 0, nullptr,
                                               makeNonce(piece).data(), mKey.data());
}

Result<> PieceKeys::decrypt(uint64_t piece, std::span<const uint8_t> sealed, std::span<uint8_t> plain) const
{
    assert(plain.size() + kTagBytes == sealed.size());
    const int failed = crypto_aead_xchacha20poly1305_ietf_decrypt(
        plain.data(), nullptr, nullptr, sealed.data(), sealed.size(), nullptr, 0, makeNonce(piece).data(), mKey.data());
    if (failed)
        return Error{ErrorCode::Damaged};
    return {};
}

DigestSink::DigestSink()
{
    requireSodium();
    crypto_generichash_init(&mState, nullptr, 0, std::tuple_size_v<ContentTag>);
    crypto_generichash_update(&mState, base::textBytes(kDigestContext).data(), kDigestContext.size());
}

Result<> DigestSink::write(std::span<const uint8_t> bytes)
{
    crypto_generichash_update(&mState, bytes.data(), bytes.size());
    mBytes += bytes.size();
    return {};
}

ContentTag DigestSink::tag() const
{
    ContentTag tag;
    crypto_generichash_state state = mState;
    crypto_generichash_final(&state, tag.data(), tag.size());
    return tag;
}

EncryptingSink::EncryptingSink(base::ByteSink& sink, std::shared_ptr<const PieceKeys> keys, const ContentTag& tag)
    : mSink(sink)
    , mKeys(std::move(keys))
    , mTag(tag)
{
    mPlain.reserve(kPieceBytes);
}

Result<> EncryptingSink::write(std::span<const uint8_t> bytes)
{
    (void)mDigest.write(bytes);
    while (!bytes.empty()) {
        const size_t length = std::min(bytes.size(), static_cast<size_t>(kPieceBytes) - mPlain.size());
        mPlain.insert(mPlain.end(), bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(length));
        bytes = bytes.subspan(length);
        if (mPlain.size() == kPieceBytes) {
            if (const Result<> result = flush(); !result)
                return result.error();
        }
    }
    return {};
}

Result<> EncryptingSink::finish()
{
    if (mDigest.tag() != mTag)
        return Error{ErrorCode::Damaged};
    return mPlain.empty() ? Result<>() : flush();
}

Result<> EncryptingSink::flush()
{
    mKeys->encrypt(mPiece++, mPlain, &mSealed);
    mPlain.clear();
    return mSink.write(mSealed);
}

Result<> checkLocked(const base::ByteSource& source)
{
    if (const Result<EncryptedHeader> header = readEncryptedHeader(source); !header)
        return header.error();
    return {};
}

Result<std::shared_ptr<const base::ByteSource>> unlock(std::shared_ptr<const base::ByteSource> source,
                                                       std::string_view key)
{
    const Result<EncryptedHeader> header = readEncryptedHeader(*source);
    if (!header)
        return header.error();
    const Result<std::shared_ptr<const PieceKeys>> keys = PieceKeys::derive(*header, key);
    if (!keys)
        return keys.error();
    if (sodium_memcmp((*keys)->check().data(), header->keyCheck.data(), header->keyCheck.size()) != 0)
        return Error{ErrorCode::KeyWrong};
    return std::make_shared<const DecryptingSource>(std::move(source), *header, *keys);
}

} // namespace bank
