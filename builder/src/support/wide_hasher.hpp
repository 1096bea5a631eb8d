// SPDX-License-Identifier: MIT
// Hashes whole files at three times the speed of sequential BLAKE2b.
#pragma once

#include "support/content_hash.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace builder {

// A hash tree of two levels. A collision would require a collision in BLAKE2b. Blocks of 128 bytes are distributed to
// four lanes in turn; each lane is a BLAKE2b-256 with the personalisation kPersonal. The four lanes are computed at
// the same time, in the lanes of vector registers. The root is a ContentHasher. It hashes the hashes of the lanes (none
// if there is less than one row of four blocks), then the bytes after the last full row as a text, then the total
// length.
class WideHasher
{
public:
    static constexpr size_t kLanes = 4;
    static constexpr size_t kBlockBytes = 128;
    static constexpr size_t kRowBytes = kLanes * kBlockBytes;
    static constexpr char kPersonal[17] = "tarnok lane 1\0\0\0";

    // The code that computes the lanes. All variants give the same hash.
    enum class Code
    {
        Plain,
        Avx2,
        Avx512
    };
    static Code best();

    explicit WideHasher(Code code = best());

    void add(std::span<const std::byte> bytes);
    ContentHash digest() const;

private:
    // Indexed by word of the BLAKE2b state, then by lane.
    struct State
    {
        alignas(32) std::array<std::array<uint64_t, kLanes>, 8> words;
        uint64_t counted = 0; // bytes of each lane
    };

    void compress(State* state, const std::byte* rows, size_t count, bool isLast) const;

    Code mCode;
    State mState;
    uint64_t mTotal = 0;
    // Contains at least one row once there is one, because the last block of each lane is compressed differently.
    std::array<std::byte, 2 * kRowBytes> mPending;
    size_t mPendingBytes = 0;
};

} // namespace builder
