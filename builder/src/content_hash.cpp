#include "content_hash.hpp"

#include "bank/vector_state.hpp"

#include <xxhash.h>

#include <bit>
#include <cstdio>
#include <new>

namespace tarnok {

static_assert(std::endian::native == std::endian::little, "fields are hashed as they lie in memory");

std::string ContentHash::hex() const
{
    char digits[33];
    std::snprintf(digits, sizeof digits, "%016llx%016llx", static_cast<unsigned long long>(high),
                  static_cast<unsigned long long>(low));
    return digits;
}

ContentHasher::ContentHasher()
    : mState(XXH3_createState())
{
    if (!mState)
        throw std::bad_alloc();
    XXH3_128bits_reset(mState.get());
}

ContentHasher::~ContentHasher() = default;

void ContentHasher::add(std::span<const std::byte> bytes)
{
    XXH3_128bits_update(mState.get(), bytes.data(), bytes.size());
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
    const XXH128_hash_t hash = XXH3_128bits_digest(mState.get());
    bank::clearVectorState();
    return {hash.high64, hash.low64};
}

void ContentHasher::Free::operator()(XXH3_state_s* state) const
{
    XXH3_freeState(state);
}

} // namespace tarnok
