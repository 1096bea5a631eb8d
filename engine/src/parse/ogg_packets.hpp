// Header packets of an Ogg file, without a codec: which streams it holds, and their comments.
#pragma once

#include "parse/source_file.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace kess {

enum class OggCodec
{
    Unknown,
    Vorbis,
    Opus,
    Speex,
    Flac
};

// By the first packet of a stream.
[[nodiscard]] OggCodec oggCodecOf(std::span<const uint8_t> packet);

// The codecs of the logical streams of the first link, in the file's order (RFC 3533, 6: all first pages come first).
// Streams that aren't sound, such as video, are Unknown.
[[nodiscard]] std::vector<OggCodec> oggCodecs(const SourceFile& file);

// The packet with the comments of the first stream that is sound, which is its second one, from behind its signature
// on; empty when it is damaged or larger than a sane one.
[[nodiscard]] std::vector<uint8_t> oggComments(const SourceFile& file);

// The same of each stream of the first link that is sound.
[[nodiscard]] std::vector<std::vector<uint8_t>> allOggComments(const SourceFile& file);

} // namespace kess
