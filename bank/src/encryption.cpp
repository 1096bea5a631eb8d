#include "encryption.hpp"

#include "bank/checksum.hpp"
#include "bank/reader.hpp"

#include <algorithm>

namespace bank {

namespace {

using layout::kEncryptedHeaderBytes;

constexpr size_t kKeyCheckOffset = 80;
constexpr size_t kKeyCheckBytes = std::tuple_size_v<decltype(EncryptedHeader::keyCheck)>;
constexpr size_t kChecksumBytes = 8;

// What a reader puts up with: enough for stronger parameters some day, too little to exhaust a game's memory.
constexpr uint32_t kMinimumPieceBytes = 4096;
constexpr uint32_t kMaximumPieceBytes = 1024 * 1024;
constexpr uint32_t kMinimumMemoryKiB = 8;
constexpr uint32_t kMaximumMemoryKiB = 64 * 1024;
constexpr uint32_t kMaximumPasses = 16;

// Keeps the digest apart from every other use of BLAKE2b on the same bytes.
constexpr std::string_view kDigestContext = "tnb content tag 1";
constexpr std::string_view kCheckContext = "tnb key check 1";
constexpr std::string_view kPieceContext = "tnb piece key 2";

void requireSodium()
{
    // Negative only where the system has no source of randomness, which nothing here uses; the call also selects the
    // code for this processor, and may be made from several threads.
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
    crypto_generichash_update(&state, bytesOf(context).data(), context.size());
    crypto_generichash_update(&state, message.data(), message.size());
    crypto_generichash_final(&state, hash->data(), Size);
    sodium_memzero(&state, sizeof state);
}

using Nonce = std::array<uint8_t, crypto_aead_xchacha20poly1305_ietf_NPUBBYTES>;

Nonce nonceOf(uint64_t piece)
{
    Nonce nonce{};
    storeLittle(nonce.data(), piece);
    return nonce;
}

uint64_t pieceCount(uint64_t plainBytes, uint32_t pieceBytes)
{
    return plainBytes / pieceBytes + (plainBytes % pieceBytes != 0);
}

// The plain layout of an encrypted file. A few pieces are kept, since a decoder reads packet after packet and several
// sounds may be read in turns.
class DecryptingSource final : public ByteSource
{
public:
    DecryptingSource(std::shared_ptr<const ByteSource> source, const EncryptedHeader& header,
                     std::shared_ptr<const PieceKeys> keys)
        : mSource(std::move(source))
        , mHeader(header)
        , mKeys(std::move(keys))
    { }

    [[nodiscard]] uint64_t size() const override { return mHeader.plainBytes; }

    Error readAt(uint64_t offset, std::span<uint8_t> bytes) const override
    {
        if (!rangeInside(offset, bytes.size(), size()))
            return Error::Damaged;
        while (!bytes.empty()) {
            const std::vector<uint8_t>* piece = nullptr;
            if (const Error error = fetch(offset / mHeader.pieceBytes, &piece); error != Error::None)
                return error;
            const size_t begin = static_cast<size_t>(offset % mHeader.pieceBytes);
            const size_t length = std::min(bytes.size(), piece->size() - begin);
            std::copy_n(piece->begin() + static_cast<ptrdiff_t>(begin), length, bytes.begin());
            bytes = bytes.subspan(length);
            offset += length;
        }
        return Error::None;
    }

private:
    static constexpr size_t kKept = 4;

    struct Kept
    {
        uint64_t index = 0;
        uint64_t used = 0;
        std::vector<uint8_t> plain; // empty: nothing kept here
    };

    Error fetch(uint64_t index, const std::vector<uint8_t>** plain) const
    {
        Kept* place = &mKept[0];
        for (Kept& kept : mKept) {
            if (!kept.plain.empty() && kept.index == index) {
                kept.used = ++mClock;
                *plain = &kept.plain;
                return Error::None;
            }
            if (kept.used < place->used)
                place = &kept;
        }

        const uint64_t begin = index * mHeader.pieceBytes;
        const size_t length = static_cast<size_t>(std::min<uint64_t>(mHeader.pieceBytes, size() - begin));
        mSealed.resize(length + kTagBytes);
        const uint64_t offset = mHeader.headerBytes + index * (static_cast<uint64_t>(mHeader.pieceBytes) + kTagBytes);
        if (const Error error = mSource->readAt(offset, mSealed); error != Error::None)
            return error;
        place->plain.resize(length);
        if (const Error error = mKeys->decrypt(index, mSealed, place->plain); error != Error::None) {
            place->plain.clear();
            place->used = 0;
            return error;
        }
        place->index = index;
        place->used = ++mClock;
        *plain = &place->plain;
        return Error::None;
    }

    std::shared_ptr<const ByteSource> mSource;
    EncryptedHeader mHeader;
    std::shared_ptr<const PieceKeys> mKeys;
    mutable std::array<Kept, kKept> mKept;
    mutable std::vector<uint8_t> mSealed;
    mutable uint64_t mClock = 0;
};

} // namespace

EncryptedHeader makeEncryptedHeader(uint64_t plainBytes, const ContentTag& tag)
{
    EncryptedHeader header;
    header.plainBytes = plainBytes;
    header.fileBytes = encryptedBytes(plainBytes);
    header.contentTag = tag;
    header.bound = boundPart(pack(header));
    return header;
}

uint64_t encryptedBytes(uint64_t plainBytes)
{
    return kEncryptedHeaderBytes + plainBytes + pieceCount(plainBytes, kPieceBytes) * kTagBytes;
}

std::vector<uint8_t> pack(const EncryptedHeader& header)
{
    std::vector<uint8_t> bytes(kEncryptedHeaderBytes);
    layout::Prefix prefix;
    prefix.headerBytes = header.headerBytes;
    prefix.flags = layout::kFlagEncrypted;
    prefix.fileBytes = header.fileBytes;
    layout::store(prefix, bytes.data());
    storeLittle(bytes.data() + 20, header.pieceBytes);
    storeLittle(bytes.data() + 24, header.plainBytes);
    storeLittle(bytes.data() + 40, header.passes);
    storeLittle(bytes.data() + 44, header.memoryKiB);
    std::copy(header.contentTag.begin(), header.contentTag.end(), bytes.begin() + 48);
    std::copy(header.keyCheck.begin(), header.keyCheck.end(), bytes.begin() + kKeyCheckOffset);
    storeLittle(bytes.data() + kEncryptedHeaderBytes - 8, checksum(std::span(bytes).first(kEncryptedHeaderBytes - 8)));
    return bytes;
}

std::vector<uint8_t> boundPart(std::span<const uint8_t> header)
{
    const std::span before = header.first(kKeyCheckOffset);
    const std::span after = header.subspan(kKeyCheckOffset + kKeyCheckBytes);
    std::vector<uint8_t> bound(before.begin(), before.end());
    bound.insert(bound.end(), after.begin(), after.end() - kChecksumBytes);
    return bound;
}

Result<EncryptedHeader> readEncryptedHeader(const ByteSource& source, std::string* fault)
{
    const Result<layout::Prefix> prefix = layout::readPrefix(source, fault);
    if (!prefix)
        return prefix.error();
    if (!(prefix->flags & layout::kFlagEncrypted))
        return Error::NotABank;
    const Result<std::vector<uint8_t>> bytes = layout::readHeader(source, *prefix, kEncryptedHeaderBytes, fault);
    if (!bytes)
        return bytes.error();

    EncryptedHeader header;
    header.headerBytes = prefix->headerBytes;
    header.fileBytes = prefix->fileBytes;
    header.pieceBytes = loadLittle<uint32_t>(bytes->data() + 20);
    header.plainBytes = loadLittle<uint64_t>(bytes->data() + 24);
    header.passes = loadLittle<uint32_t>(bytes->data() + 40);
    header.memoryKiB = loadLittle<uint32_t>(bytes->data() + 44);
    std::copy_n(bytes->begin() + 48, header.contentTag.size(), header.contentTag.begin());
    header.bound = boundPart(*bytes);
    std::copy_n(bytes->begin() + kKeyCheckOffset, header.keyCheck.size(), header.keyCheck.begin());

    if (header.pieceBytes < kMinimumPieceBytes || header.pieceBytes > kMaximumPieceBytes
        || header.memoryKiB < kMinimumMemoryKiB || header.memoryKiB > kMaximumMemoryKiB || header.passes == 0
        || header.passes > kMaximumPasses)
        return layout::damaged(fault, "the header describes an encryption that no bank has");
    if (header.plainBytes == 0 || header.plainBytes > header.fileBytes
        || header.fileBytes
            != header.headerBytes + header.plainBytes + pieceCount(header.plainBytes, header.pieceBytes) * kTagBytes)
        return layout::damaged(fault, "the header gives sizes that don't fit each other");
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
        return Error::Memory;

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
                                               nonceOf(piece).data(), mKey.data());
}

Error PieceKeys::decrypt(uint64_t piece, std::span<const uint8_t> sealed, std::span<uint8_t> plain) const
{
    assert(plain.size() + kTagBytes == sealed.size());
    const int failed = crypto_aead_xchacha20poly1305_ietf_decrypt(
        plain.data(), nullptr, nullptr, sealed.data(), sealed.size(), nullptr, 0, nonceOf(piece).data(), mKey.data());
    return failed ? Error::Damaged : Error::None;
}

DigestSink::DigestSink()
{
    requireSodium();
    crypto_generichash_init(&mState, nullptr, 0, std::tuple_size_v<ContentTag>);
    crypto_generichash_update(&mState, bytesOf(kDigestContext).data(), kDigestContext.size());
}

Error DigestSink::write(std::span<const uint8_t> bytes)
{
    crypto_generichash_update(&mState, bytes.data(), bytes.size());
    mBytes += bytes.size();
    return Error::None;
}

ContentTag DigestSink::tag() const
{
    ContentTag tag;
    crypto_generichash_state state = mState;
    crypto_generichash_final(&state, tag.data(), tag.size());
    return tag;
}

EncryptingSink::EncryptingSink(ByteSink& sink, std::shared_ptr<const PieceKeys> keys, const ContentTag& tag)
    : mSink(sink)
    , mKeys(std::move(keys))
    , mTag(tag)
{
    mPlain.reserve(kPieceBytes);
}

Error EncryptingSink::write(std::span<const uint8_t> bytes)
{
    (void)mDigest.write(bytes);
    while (!bytes.empty()) {
        const size_t length = std::min(bytes.size(), static_cast<size_t>(kPieceBytes) - mPlain.size());
        mPlain.insert(mPlain.end(), bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(length));
        bytes = bytes.subspan(length);
        if (mPlain.size() == kPieceBytes) {
            if (const Error error = flush(); error != Error::None)
                return error;
        }
    }
    return Error::None;
}

Error EncryptingSink::finish()
{
    if (mDigest.tag() != mTag)
        return Error::Damaged;
    return mPlain.empty() ? Error::None : flush();
}

Error EncryptingSink::flush()
{
    mKeys->encrypt(mPiece++, mPlain, &mSealed);
    mPlain.clear();
    return mSink.write(mSealed);
}

Error checkLocked(const ByteSource& source, std::string* fault)
{
    return readEncryptedHeader(source, fault).error();
}

Result<std::shared_ptr<const ByteSource>> unlock(std::shared_ptr<const ByteSource> source, std::string_view key,
                                                 std::string* fault)
{
    const Result<EncryptedHeader> header = readEncryptedHeader(*source, fault);
    if (!header)
        return header.error();
    Result<std::shared_ptr<const PieceKeys>> keys = PieceKeys::derive(*header, key);
    if (!keys)
        return keys.error();
    if (sodium_memcmp((*keys)->check().data(), header->keyCheck.data(), header->keyCheck.size()) != 0)
        return Error::KeyWrong;
    return std::shared_ptr<const ByteSource>(std::make_shared<DecryptingSource>(std::move(source), *header, *keys));
}

} // namespace bank
