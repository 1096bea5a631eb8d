// Length of a FLAC stream whose writer could not go back to fill it in.
#pragma once

#include "parse/source_file.hpp"

#include <cstdint>
#include <optional>

namespace kess {

// Samples of one channel up to the end of the last whole frame, found from the end of the stream at [begin, end)
// (RFC 9639, 9.1). Nothing when no frame is found there.
[[nodiscard]] std::optional<uint64_t> flacLength(const SourceFile& file, uint64_t begin, uint64_t end);

} // namespace kess
