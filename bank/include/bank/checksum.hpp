// SPDX-License-Identifier: MIT
// XXH3-64, the checksum of headers, tables, chunks and sample data. It detects damage, but not forgery.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

struct XXH3_state_s;

namespace bank {

[[nodiscard]] uint64_t checksum(std::span<const uint8_t> bytes);
[[nodiscard]] uint64_t checksum(std::span<const std::byte> bytes);

// The same checksum, of bytes that arrive in pieces.
class RunningChecksum
{
public:
    RunningChecksum();
    ~RunningChecksum();

    void add(std::span<const uint8_t> bytes);
    [[nodiscard]] uint64_t value() const;

private:
    struct Free
    {
        void operator()(XXH3_state_s* state) const;
    };
    std::unique_ptr<XXH3_state_s, Free> mState;
};

} // namespace bank
