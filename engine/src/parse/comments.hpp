// SPDX-License-Identifier: MIT
// Comments as Vorbis stores them, which all formats of Xiph share (Vorbis I, 5.2).
//
// They are parsed here and not by the codec libraries: libsndfile passes on a few well-known comments only, and
// libvorbis and opusfile allocate memory for each comment, however many a hostile file declares.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace engine {

using Comments = std::map<std::string, std::string>; // by name in capitals; the first of each name

// block begins with the length of the vendor's name. Comments after a damaged one are missing.
[[nodiscard]] Comments parseComments(std::span<const uint8_t> block);

// The declared number of comments, but no more than block has room for: libraries refuse such a block.
[[nodiscard]] uint64_t countComments(std::span<const uint8_t> block);

} // namespace engine
