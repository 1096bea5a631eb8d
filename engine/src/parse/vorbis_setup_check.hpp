// SPDX-License-Identifier: MIT
// How much memory the setup header of a Vorbis stream requires.
//
// A few bytes of such a header declare tables of any size: an ordered codebook needs no bit for each of its entries.
// libvorbis (1.3.7) sorts the entries of a book on its stack, FFmpeg's decoder allocates memory for each book, and
// neither limits the sum. Every setup header is checked here before a library gets it, whatever its container.
// docs/hostile-input.md lists the other fields that were examined.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace engine {

// The largest of 53 distinct headers of common encoders: 6,561 entries in a book and 11,813 in all, 200 code words for
// the classes of residues, 1.3 MB.
inline constexpr uint64_t kMaximumVorbisEntriesOfBook = 65'536;
inline constexpr uint64_t kMaximumVorbisEntries = 262'144;
inline constexpr uint64_t kMaximumVorbisClassWords = 16'384;
inline constexpr uint64_t kMaximumVorbisSetupBytes = 16u << 20;

// An upper bound, in bytes, of the memory that libvorbis uses for the tables of a setup header and for a decoder.
// packet is the whole third header of the stream (Vorbis I, 4.2.4). nullopt if it is damaged or exceeds a limit above.
// Mappings and modes have fixed sizes and are ignored.
[[nodiscard]] std::optional<uint64_t> vorbisSetupBytes(const uint8_t* packet, size_t packetBytes);

} // namespace engine
