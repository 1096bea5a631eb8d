// Names content by what it is: the hash under which the cache knows sources and encoded sounds.
#pragma once

#include <sodium/crypto_generichash.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tarnok {

// 256 bits of BLAKE2b. Nobody can make two contents that meet, so a file from outside can't pass for another one in
// the cache. (XXH3, which checks for damage elsewhere, is faster, but two WAV files of one XXH3-128 have been
// made.) Files are hashed by WideHasher.
struct ContentHash
{
    std::array<uint8_t, 32> bytes{};

    auto operator<=>(const ContentHash&) const = default;
    std::string hex() const; // 64 digits
};

// Whether name consists of so many hexadecimal digits, as hex() writes them, and the suffix.
bool isHashName(std::string_view name, size_t digits, std::string_view suffix = {});

// Makes the hash of what is added, piece by piece.
class ContentHasher
{
public:
    ContentHasher();

    void add(std::span<const std::byte> bytes);

    // A number or a text as a field of its own: fields that stand side by side can't be taken for each other.
    void addNumber(uint64_t number);
    void addText(std::string_view text);

    ContentHash digest() const;

private:
    crypto_generichash_state mState;
};

} // namespace tarnok
