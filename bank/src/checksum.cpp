// SPDX-License-Identifier: MIT
#include "bank/checksum.hpp"

#include "bank/vector_state.hpp"

#include <xxhash.h>

#include <new>

namespace bank {

uint64_t checksum(std::span<const uint8_t> bytes)
{
    return checksum(std::as_bytes(bytes));
}

uint64_t checksum(std::span<const std::byte> bytes)
{
    const uint64_t value = XXH3_64bits(bytes.data(), bytes.size());
    clearVectorState();
    return value;
}

void RunningChecksum::Free::operator()(XXH3_state_s* state) const
{
    XXH3_freeState(state);
}

RunningChecksum::RunningChecksum()
    : mState(XXH3_createState())
{
    if (!mState)
        throw std::bad_alloc();
    XXH3_64bits_reset(mState.get());
}

RunningChecksum::~RunningChecksum() = default;

void RunningChecksum::add(std::span<const uint8_t> bytes)
{
    XXH3_64bits_update(mState.get(), bytes.data(), bytes.size());
    clearVectorState();
}

uint64_t RunningChecksum::value() const
{
    const uint64_t value = XXH3_64bits_digest(mState.get());
    clearVectorState();
    return value;
}

} // namespace bank
