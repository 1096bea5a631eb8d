// What the head of an Opus packet says about the block that it holds (RFC 6716).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tarnok {

// Whether the block of each stream of a multistream packet is stationary: a transient one leaves a decoder's record of
// the last two loudnesses as it was, which fills the gaps in the spectra of the transients to come. Every stream
// has one CELT frame, as our encoder makes them; stationary has an entry for each. False: the packet isn't such a one.
[[nodiscard]] bool findStationary(std::span<const uint8_t> packet, std::span<bool> stationary);

} // namespace tarnok
