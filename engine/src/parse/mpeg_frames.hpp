// The frame headers of MPEG audio, and of AAC in its bare form, which looks much like it.
#pragma once

#include "parse/source_file.hpp"

#include <cstdint>
#include <optional>

namespace kess {

struct FrameHeader
{
    uint32_t bytes = 0; // length of the frame, header included
    uint32_t signature = 0; // what all frames of one stream have in common
};

// One header of MPEG-1, 2 or 2.5 audio, layers I to III. Free format, whose frames don't tell their length, is not
// recognised. Tables: ISO/IEC 11172-3, 2.4.2.3, and 13818-3, 2.4.2.3.
[[nodiscard]] std::optional<FrameHeader> parseMpegFrame(uint32_t header);

// The length of the frames from begin on if they have free format: up to the next header like theirs, without the
// header and the padding.
[[nodiscard]] std::optional<uint32_t> freeFormatLength(const SourceFile& file, uint64_t begin, uint64_t end);

// One header of an ADTS frame from its first 6 bytes (ISO/IEC 13818-7, 6.2).
[[nodiscard]] std::optional<FrameHeader> parseAdtsFrame(const uint8_t* header);

// Where the sound begins: behind the ID3v2 tags that stand at offset.
[[nodiscard]] uint64_t skipLeadingTags(const SourceFile& file, uint64_t offset);

// Where the sound ends: before ID3v1 and APE tags.
[[nodiscard]] uint64_t endWithoutTrailingTags(const SourceFile& file);

// First frame of MPEG audio in [begin, end), proved by the frames that follow it. Junk of up to searchBytes may stand
// before it.
[[nodiscard]] std::optional<uint64_t> findMpegStart(const SourceFile& file, uint64_t begin, uint64_t end,
                                                    size_t searchBytes);

// How long an encoder says that the sound is: without the frame that says so, which holds no sound.
struct MpegLength
{
    uint64_t frames = 0;
    uint64_t bytes = 0; // of all frames, from that one on; 0 if it doesn't say
};

// What the frame at begin says, a Xing, Info or VBRI header. Nothing where it is a frame of sound.
[[nodiscard]] std::optional<MpegLength> lengthInFirstFrame(const SourceFile& file, uint64_t begin);

// Whether ADTS frames follow each other from begin on.
[[nodiscard]] bool startsWithAdts(const SourceFile& file, uint64_t begin, uint64_t end);

} // namespace kess
