// SPDX-License-Identifier: MIT
// The length of a FLAC stream whose writer couldn't go back to store it in the header.
#pragma once

#include "parse/input_file.hpp"

#include <cstdint>
#include <optional>

namespace engine {

// The samples of one channel up to the end of the last whole frame, searched from the end of the stream in [begin, end)
// (RFC 9639, 9.1). nullopt if no frame is found.
[[nodiscard]] std::optional<uint64_t> flacLength(const InputFile& file, uint64_t begin, uint64_t end);

} // namespace engine
