// SPDX-License-Identifier: MIT
// The C header that accompanies a bank.
#pragma once

#include "base/result.hpp"

#include <span>
#include <string>
#include <string_view>

namespace builder {

// The text of a header for C89 and later: the number of sounds, a macro with the index of each, and a table of their
// names. For a bank "drums" with a sound "kick":
//
//     #define DRUMS_COUNT 1
//     #define DRUMS_SOUND_KICK 0
//     static const char* const drums_names[DRUMS_COUNT] = { "kick" };
//
// Characters that C doesn't allow in an identifier become underscores. If identifiers are equal, a number is appended
// to the later ones.
std::string cHeaderText(std::string_view bankName, std::span<const std::string_view> soundNames);

// Checks whether a header may be written to path: there is no file, an empty file, or a generated header.
base::Result<> checkHeader(const std::string& path);

} // namespace builder
