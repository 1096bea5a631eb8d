// SPDX-License-Identifier: MIT
// The first packets of an Ogg file: the codecs of its streams, and the comments.
#pragma once

#include "parse/input_file.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace engine {

enum class OggCodec
{
    Unknown,
    Vorbis,
    Opus,
    Speex,
    Flac
};

// The codec of the stream that begins with packet.
[[nodiscard]] OggCodec recogniseOggCodec(std::span<const uint8_t> packet);

// How many bytes precede the comments in the second packet of a stream.
[[nodiscard]] size_t commentOffset(OggCodec codec);

// The codecs of the logical streams of the first link, in the file's order (RFC 3533, 6: all first pages come first).
// Streams that aren't sound, such as video, are Unknown.
[[nodiscard]] std::vector<OggCodec> oggCodecs(const InputFile& file);

// The block of comments of the first stream that is sound. Empty if it is damaged or larger than 16 MiB.
[[nodiscard]] std::vector<uint8_t> oggComments(const InputFile& file);

} // namespace engine
