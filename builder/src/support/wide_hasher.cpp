// SPDX-License-Identifier: MIT
#include "support/wide_hasher.hpp"

#include "bank/vector_state.hpp"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace builder {

namespace {

// Constants of BLAKE2b (RFC 7693).
constexpr std::array<uint64_t, 8> kStart = {0x6a09e667f3bcc908, 0xbb67ae8584caa73b, 0x3c6ef372fe94f82b,
                                            0xa54ff53a5f1d36f1, 0x510e527fade682d1, 0x9b05688c2b3e6c1f,
                                            0x1f83d9abfb41bd6b, 0x5be0cd19137e2179};
constexpr uint8_t kOrder[12][16] = {
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}, {14, 10, 4, 8, 9, 15, 13, 6, 1, 12, 0, 2, 11, 7, 5, 3},
    {11, 8, 12, 0, 5, 2, 15, 13, 10, 14, 3, 6, 7, 1, 9, 4}, {7, 9, 3, 1, 13, 12, 11, 14, 2, 6, 5, 10, 4, 0, 15, 8},
    {9, 0, 5, 7, 2, 4, 10, 15, 14, 1, 11, 12, 6, 8, 3, 13}, {2, 12, 6, 10, 0, 11, 8, 3, 4, 13, 7, 5, 15, 14, 1, 9},
    {12, 5, 1, 15, 14, 13, 4, 10, 0, 7, 6, 3, 9, 2, 8, 11}, {13, 11, 7, 14, 12, 1, 3, 9, 5, 0, 15, 4, 8, 6, 2, 10},
    {6, 15, 14, 9, 11, 3, 0, 8, 12, 2, 13, 7, 1, 4, 10, 5}, {10, 2, 8, 4, 7, 6, 1, 5, 15, 11, 9, 14, 3, 12, 13, 0},
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}, {14, 10, 4, 8, 9, 15, 13, 6, 1, 12, 0, 2, 11, 7, 5, 3}};

using Lanes = uint64_t __attribute__((vector_size(32)));

#define ALWAYS_INLINE inline __attribute__((always_inline))

template <int Bits>
ALWAYS_INLINE void rotate(Lanes& value)
{
    value = (value >> Bits) | (value << (64 - Bits));
}

ALWAYS_INLINE void mix(Lanes& a, Lanes& b, Lanes& c, Lanes& d, const Lanes& x, const Lanes& y)
{
    a += b + x;
    d ^= a;
    rotate<32>(d);
    c += d;
    b ^= c;
    rotate<24>(b);
    a += b + y;
    d ^= a;
    rotate<16>(d);
    c += d;
    b ^= c;
    rotate<63>(b);
}

template <size_t Round>
ALWAYS_INLINE void mixRound(Lanes (&v)[16], const Lanes (&m)[16])
{
    constexpr const uint8_t(&s)[16] = kOrder[Round];
    mix(v[0], v[4], v[8], v[12], m[s[0]], m[s[1]]);
    mix(v[1], v[5], v[9], v[13], m[s[2]], m[s[3]]);
    mix(v[2], v[6], v[10], v[14], m[s[4]], m[s[5]]);
    mix(v[3], v[7], v[11], v[15], m[s[6]], m[s[7]]);
    mix(v[0], v[5], v[10], v[15], m[s[8]], m[s[9]]);
    mix(v[1], v[6], v[11], v[12], m[s[10]], m[s[11]]);
    mix(v[2], v[7], v[8], v[13], m[s[12]], m[s[13]]);
    mix(v[3], v[4], v[9], v[14], m[s[14]], m[s[15]]);
}

// The compression function, for four lanes at the same time.
ALWAYS_INLINE void compressRows(uint64_t* words, uint64_t counted, const std::byte* rows, size_t count, bool isLast)
{
    constexpr size_t kWords = WideHasher::kBlockBytes / sizeof(uint64_t);
    Lanes h[8];
    std::memcpy(h, words, sizeof h);
    for (size_t row = 0; row < count; ++row, rows += WideHasher::kRowBytes) {
        uint64_t block[WideHasher::kLanes][kWords];
        std::memcpy(block, rows, sizeof block);
        Lanes m[kWords];
        for (size_t word = 0; word < kWords; ++word)
            m[word] = Lanes{block[0][word], block[1][word], block[2][word], block[3][word]};
        counted += WideHasher::kBlockBytes;
        Lanes v[16];
        for (size_t i = 0; i < 8; ++i) {
            v[i] = h[i];
            v[i + 8] = Lanes{} + kStart[i];
        }
        v[12] ^= counted;
        if (isLast && row + 1 == count)
            v[14] = ~v[14];
        mixRound<0>(v, m);
        mixRound<1>(v, m);
        mixRound<2>(v, m);
        mixRound<3>(v, m);
        mixRound<4>(v, m);
        mixRound<5>(v, m);
        mixRound<6>(v, m);
        mixRound<7>(v, m);
        mixRound<8>(v, m);
        mixRound<9>(v, m);
        mixRound<10>(v, m);
        mixRound<11>(v, m);
        for (size_t i = 0; i < 8; ++i)
            h[i] ^= v[i] ^ v[i + 8];
    }
    std::memcpy(words, h, sizeof h);
}

void compressPlain(uint64_t* words, uint64_t counted, const std::byte* rows, size_t count, bool isLast)
{
    compressRows(words, counted, rows, count, isLast);
}

__attribute__((target("avx2"))) void compressAvx2(uint64_t* words, uint64_t counted, const std::byte* rows,
                                                  size_t count, bool isLast)
{
    compressRows(words, counted, rows, count, isLast);
}

// Rotates with one instruction, and keeps a whole state and block in registers.
__attribute__((target("avx2,avx512f,avx512vl"))) void compressAvx512(uint64_t* words, uint64_t counted,
                                                                     const std::byte* rows, size_t count, bool isLast)
{
    compressRows(words, counted, rows, count, isLast);
}

} // namespace

WideHasher::Code WideHasher::best()
{
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl"))
        return Code::Avx512;
    return __builtin_cpu_supports("avx2") ? Code::Avx2 : Code::Plain;
}

WideHasher::WideHasher(Code code)
    : mCode(code)
{
    for (size_t word = 0; word < kStart.size(); ++word)
        mState.words[word].fill(kStart[word]);
    constexpr uint64_t kParameters = 0x01010000 | sizeof(ContentHash::bytes); // a sequential hash without a key
    uint64_t personal[2];
    std::memcpy(personal, kPersonal, sizeof personal);
    for (size_t lane = 0; lane < kLanes; ++lane) {
        mState.words[0][lane] ^= kParameters;
        mState.words[6][lane] ^= personal[0];
        mState.words[7][lane] ^= personal[1];
    }
}

void WideHasher::add(std::span<const std::byte> bytes)
{
    mTotal += bytes.size();
    const auto keep = [&](size_t count) {
        std::copy_n(bytes.begin(), count, mPending.begin() + ptrdiff_t(mPendingBytes));
        mPendingBytes += count;
        bytes = bytes.subspan(count);
    };
    if (mPendingBytes + bytes.size() < mPending.size()) {
        keep(bytes.size());
        return;
    }
    keep((kRowBytes - mPendingBytes % kRowBytes) % kRowBytes);
    const size_t rows = (mPendingBytes + bytes.size()) / kRowBytes - 1;
    const size_t before = std::min(rows, mPendingBytes / kRowBytes);
    compress(&mState, mPending.data(), before, false);
    mPendingBytes -= before * kRowBytes;
    std::copy_n(mPending.begin() + ptrdiff_t(before * kRowBytes), mPendingBytes, mPending.begin());
    compress(&mState, bytes.data(), rows - before, false);
    bytes = bytes.subspan((rows - before) * kRowBytes);
    keep(bytes.size());
}

ContentHash WideHasher::digest() const
{
    ContentHasher root;
    size_t hashed = 0;
    if (mPendingBytes >= kRowBytes) {
        State state = mState;
        compress(&state, mPending.data(), 1, true);
        hashed = kRowBytes;
        for (size_t lane = 0; lane < kLanes; ++lane) {
            for (size_t word = 0; word < sizeof(ContentHash::bytes) / sizeof(uint64_t); ++word)
                root.addNumber(state.words[word][lane]);
        }
    }
    root.addText({reinterpret_cast<const char*>(mPending.data()) + hashed, mPendingBytes - hashed});
    root.addNumber(mTotal);
    return root.digest();
}

void WideHasher::compress(State* state, const std::byte* rows, size_t count, bool isLast) const
{
    if (count == 0)
        return;
    const auto code = mCode == Code::Avx512 ? compressAvx512 : mCode == Code::Avx2 ? compressAvx2 : compressPlain;
    code(state->words.front().data(), state->counted, rows, count, isLast);
    state->counted += count * kBlockBytes;
    bank::clearVectorState();
}

} // namespace builder
