// SPDX-License-Identifier: MIT
// Parses the start of an Opus packet (RFC 6716).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace builder {

// Finds out for each stream of a multistream packet whether its block is stationary. A decoder records the last two
// loudnesses from stationary blocks, and fills gaps in the spectra of later transients with them. Every stream must
// have one CELT frame, as our encoder makes them; stationary has one entry per stream. False if the packet has another
// form.
[[nodiscard]] bool findStationary(std::span<const uint8_t> packet, std::span<bool> stationary);

} // namespace builder
