// The C header that goes with a bank.
#pragma once

#include "base/result.hpp"

#include <span>
#include <string>
#include <string_view>

namespace tarnok {

// The text of a header for C89 and everything after it: how many sounds the bank holds, a macro with the index of each,
// and a table of their names. For a bank "drums" with a sound "kick":
//
//     #define DRUMS_COUNT 1
//     #define DRUMS_SOUND_KICK 0
//     static const char* const drums_names[DRUMS_COUNT] = { "kick" };
//
// What C doesn't allow in an identifier becomes an underscore; of equal identifiers the later ones get a number.
std::string cHeaderText(std::string_view bankName, std::span<const std::string_view> soundNames);

// Whether a header may be written to path: there is no file, or an empty one, or one of these.
base::Result<> checkHeader(const std::string& path);

} // namespace tarnok
