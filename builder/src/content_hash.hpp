// Names content by what it is: the hash under which the cache knows sources and encoded sounds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

struct XXH3_state_s;

namespace tarnok {

// 128 bits of XXH3. Chance collisions can be left out of account (2^-64 among four thousand million sounds); nobody is
// kept from constructing one, so the cache directory is for people who trust each other.
struct ContentHash
{
    uint64_t high = 0;
    uint64_t low = 0;

    auto operator<=>(const ContentHash&) const = default;
    std::string hex() const; // 32 digits
};

// Makes the hash of what is added, piece by piece.
class ContentHasher
{
public:
    ContentHasher();
    ~ContentHasher();

    void add(std::span<const std::byte> bytes);

    // A number or a text as a field of its own: fields that stand side by side can't be taken for each other.
    void addNumber(uint64_t number);
    void addText(std::string_view text);

    ContentHash digest() const;

private:
    struct Free
    {
        void operator()(XXH3_state_s* state) const;
    };
    std::unique_ptr<XXH3_state_s, Free> mState;
};

} // namespace tarnok
