// What the setup header of a Vorbis stream asks of whoever unpacks it.
//
// A few bytes of such a header declare tables of any size: an ordered codebook needs no bit for each of its entries.
// libvorbis (1.3.7) sorts the entries of a book on its stack, FFmpeg's decoder allocates for each book alike, and
// neither limits the sum. Every setup header passes through here before a library gets it, whichever container it
// comes from. docs/hostile-input.md says what else was looked at.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace kess {

// The largest of 53 distinct headers of common encoders: 6,561 entries in a book and 11,813 in all, 200 code words for
// the classes of residues, 1.3 MB.
inline constexpr uint64_t kMostVorbisEntriesOfBook = 65'536;
inline constexpr uint64_t kMostVorbisEntries = 262'144;
inline constexpr uint64_t kMostVorbisClassWords = 16'384;
inline constexpr uint64_t kMostVorbisSetupBytes = 16u << 20;

// The memory, in bytes, that libvorbis takes for the tables of a setup header and a decoder from them, an upper bound.
// packet is the whole third header of the stream (Vorbis I, 4.2.4). Nothing when it is damaged or beyond a limit above.
// Mappings and modes, whose sizes are fixed, are not looked at.
[[nodiscard]] std::optional<uint64_t> vorbisSetupBytes(const uint8_t* packet, size_t packetBytes);

} // namespace kess
