// SPDX-License-Identifier: MIT
#include "sound_pairs.hpp"

#include <algorithm>
#include <string_view>
#include <unordered_map>

namespace tnb {

SoundPairs pairByName(const SoundNames& oldNames, const SoundNames& newNames)
{
    // The indices of each name, the next one to be paired last.
    std::unordered_map<std::string_view, std::vector<int>> unpaired;
    for (size_t i = oldNames.size(); i-- > 0;) {
        if (oldNames[i])
            unpaired[*oldNames[i]].push_back(static_cast<int>(i));
    }
    SoundPairs pairs;
    for (size_t i = 0; i < newNames.size(); ++i) {
        if (!newNames[i])
            continue;
        const auto index = static_cast<int>(i);
        const auto found = unpaired.find(*newNames[i]);
        if (found == unpaired.end() || found->second.empty()) {
            pairs.added.push_back(index);
        } else {
            pairs.kept.push_back({found->second.back(), index});
            found->second.pop_back();
        }
    }
    for (const auto& [name, indices] : unpaired)
        pairs.removed.insert(pairs.removed.end(), indices.begin(), indices.end());
    std::sort(pairs.removed.begin(), pairs.removed.end());
    return pairs;
}

SoundPairs pairByIndex(const SoundNames& oldNames, const SoundNames& newNames)
{
    SoundPairs pairs;
    for (size_t i = 0; i < std::max(oldNames.size(), newNames.size()); ++i) {
        const auto index = static_cast<int>(i);
        if (i >= newNames.size())
            pairs.removed.push_back(index);
        else if (i >= oldNames.size())
            pairs.added.push_back(index);
        else if (oldNames[i] && newNames[i])
            pairs.kept.push_back({index, index});
    }
    return pairs;
}

} // namespace tnb
