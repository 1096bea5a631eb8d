// SPDX-License-Identifier: MIT
// Which sound of one bank is which sound of another one.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tnb {

struct SoundPair
{
    int oldIndex = 0;
    int newIndex = 0;
};

struct SoundPairs
{
    std::vector<int> removed; // indices in the old bank
    std::vector<int> added; // indices in the new bank
    std::vector<SoundPair> kept; // in the order of the new bank
};

// The name of each sound of a bank; nothing for a sound that can't be read, which is left out of all pairs.
using SoundNames = std::vector<std::optional<std::string>>;

// Pairs sounds by name. Of several sounds with the same name, the first of one bank belongs to the first of the other
// one, and so on.
[[nodiscard]] SoundPairs pairByName(const SoundNames& oldNames, const SoundNames& newNames);

// Pairs sounds by index, for banks without names.
[[nodiscard]] SoundPairs pairByIndex(const SoundNames& oldNames, const SoundNames& newNames);

} // namespace tnb
