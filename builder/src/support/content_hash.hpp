// SPDX-License-Identifier: MIT
// The hash by which the cache identifies sources and encoded sounds.
#pragma once

#include <sodium/crypto_generichash.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace builder {

// 256 bits of BLAKE2b. Nobody can construct two contents with the same hash, so a file from outside can't be mistaken
// for another one in the cache. (XXH3, which detects damage elsewhere, is faster, but two WAV files with the same
// XXH3-128 have been constructed.) WideHasher hashes files.
struct ContentHash
{
    std::array<uint8_t, 32> bytes{};

    auto operator<=>(const ContentHash&) const = default;
    std::string hex() const; // 64 digits
};

// Whether name consists of this number of hexadecimal digits, as written by hex(), followed by the suffix.
bool isHashName(std::string_view name, size_t digits, std::string_view suffix = {});

// Computes the hash of everything that is added.
class ContentHasher
{
public:
    ContentHasher();

    void add(std::span<const std::byte> bytes);

    // Adds a number or a text as a separate field. Different sequences of fields never give the same input to the hash.
    void addNumber(uint64_t number);
    void addText(std::string_view text);

    ContentHash digest() const;

private:
    crypto_generichash_state mState;
};

} // namespace builder
