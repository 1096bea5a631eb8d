// SPDX-License-Identifier: MIT
#include "file_names.hpp"

#include "text.hpp"

#include <algorithm>
#include <unordered_set>

namespace tnb {

namespace {

constexpr std::string_view kEnding = ".wav";

// File names have at most 255 bytes; this leaves room for the ending and for a number after equal names.
constexpr size_t kMaximumStemBytes = 200;

// Folder separators here and on other systems, and characters that other systems refuse in names.
constexpr std::string_view kRefused = "/\\:*?\"<>|";

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

std::string safeStem(std::string_view name)
{
    std::string stem;
    while (!name.empty()) {
        const size_t bytes = harmlessBytes(name);
        if (stem.size() + std::max<size_t>(bytes, 1) > kMaximumStemBytes)
            break;
        const bool keeps = bytes > 0 && kRefused.find(name[0]) == std::string_view::npos;
        stem += keeps ? name.substr(0, bytes) : "_";
        name.remove_prefix(std::max<size_t>(bytes, 1));
    }
    if (lowered(stem).ends_with(kEnding))
        stem.resize(stem.size() - kEnding.size());
    while (!stem.empty() && (stem.back() == ' ' || stem.back() == '.'))
        stem.pop_back();
    if (!stem.empty() && stem.front() == '.')
        stem.front() = '_';
    return stem;
}

} // namespace

std::vector<std::string> fileNames(const std::vector<std::string>& soundNames)
{
    std::unordered_set<std::string> taken;
    std::vector<std::string> names;
    for (size_t i = 0; i < soundNames.size(); ++i) {
        const std::string stem = safeStem(soundNames[i]);
        const std::string numbered = (stem.empty() ? "sound" : stem) + "-" + std::to_string(i);
        std::string name = stem.empty() ? numbered : stem;
        // Another sound may already have the numbered name.
        for (int attempt = 0; !taken.insert(lowered(name)).second; ++attempt)
            name = attempt == 0 ? numbered : numbered + "-" + std::to_string(attempt);
        names.push_back(name.append(kEnding));
    }
    return names;
}

} // namespace tnb
