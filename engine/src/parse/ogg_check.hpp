// What an Ogg file would cost the libraries that search it for pages, before they get it.
#pragma once

#include "parse/file_kind.hpp"
#include "parse/source_file.hpp"

#include <cstdint>

namespace kess {

// Whether few enough page headers begin inside other pages. A library computes a checksum over the whole length
// that such a header declares, and goes on after its first bytes: 28 bytes ask it for 65,000, again at each search.
[[nodiscard]] bool oggPagesAreBearable(const FilePointer& file, const FileKind& kind);

// The same, and whether all links together have no more than mostComments comments, and few enough first pages of
// streams. opusfile keeps the comments of every link, and compares the first pages of a link with each other.
[[nodiscard]] bool oggIsBearable(const FilePointer& file, const FileKind& kind, uint64_t mostComments);

} // namespace kess
