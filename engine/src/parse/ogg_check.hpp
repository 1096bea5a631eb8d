// SPDX-License-Identifier: MIT
// Checks Ogg files before a library reads them: how much work it would be to search them for pages.
#pragma once

#include "parse/file_kind.hpp"
#include "parse/input_file.hpp"

#include <cstdint>

namespace engine {

// ErrorCode::Damaged: too many page headers begin inside other pages. A library computes a checksum over the whole
// length that such a header declares, and then continues after its first bytes. So 28 bytes of a file make it read
// 65,000, in each search.
base::Result<> checkOggPages(const RecognisedFile& file);

// The same, and ErrorCode::Damaged if all links together have more than maximumComments comments, or too many first
// pages of streams. opusfile keeps the comments of every link, and compares the first pages of a link with each other.
base::Result<> checkOggStreams(const RecognisedFile& file, uint64_t maximumComments);

} // namespace engine
