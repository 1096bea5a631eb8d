// SPDX-License-Identifier: MIT
#include "support/content_hash.hpp"

#include "bank/vector_state.hpp"

#include <sodium/core.h>

#include <bit>

namespace builder {

static_assert(std::endian::native == std::endian::little, "fields are hashed as they are in memory");

std::string ContentHash::hex() const
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string digits;
    for (const uint8_t byte : bytes) {
        digits += kDigits[byte >> 4];
        digits += kDigits[byte & 15];
    }
    return digits;
}

bool isHashName(std::string_view name, size_t digits, std::string_view suffix)
{
    return name.size() == digits + suffix.size() && name.ends_with(suffix)
        && name.find_first_not_of("0123456789abcdef") >= digits;
}

ContentHasher::ContentHasher()
{
    // Selects the code for this processor. Fails only without a source of randomness, which isn't used here.
    static const int ready = sodium_init();
    (void)ready;
    crypto_generichash_init(&mState, nullptr, 0, sizeof(ContentHash::bytes));
}

void ContentHasher::add(std::span<const std::byte> bytes)
{
    crypto_generichash_update(&mState, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    bank::clearVectorState();
}

void ContentHasher::addNumber(uint64_t number)
{
    add(std::as_bytes(std::span(&number, 1)));
}

void ContentHasher::addText(std::string_view text)
{
    addNumber(text.size());
    add(std::as_bytes(std::span(text)));
}

ContentHash ContentHasher::digest() const
{
    crypto_generichash_state state = mState;
    ContentHash hash;
    crypto_generichash_final(&state, hash.bytes.data(), hash.bytes.size());
    bank::clearVectorState();
    return hash;
}

} // namespace builder
