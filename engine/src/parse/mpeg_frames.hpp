// SPDX-License-Identifier: MIT
// The frame headers of MPEG audio, and of AAC in its bare form, which looks much like it.
#pragma once

#include "parse/input_file.hpp"

#include <cstdint>
#include <optional>

namespace engine {

struct FrameHeader
{
    uint32_t bytes = 0; // length of the frame, header included
    uint32_t signature = 0; // what all frames of one stream have in common
};

// One header of MPEG-1, 2 or 2.5 audio, layers I to III. Free format, whose frames don't contain their length, isn't
// recognised. Tables: ISO/IEC 11172-3, 2.4.2.3, and 13818-3, 2.4.2.3.
[[nodiscard]] std::optional<FrameHeader> parseMpegFrame(uint32_t header);

// The length of the frames from begin on if they have free format: the distance to the next matching header, without
// header and padding.
[[nodiscard]] std::optional<uint32_t> freeFormatLength(const InputFile& file, uint64_t begin, uint64_t end);

// One header of an ADTS frame from its first 6 bytes (ISO/IEC 13818-7, 6.2).
[[nodiscard]] std::optional<FrameHeader> parseAdtsFrame(const uint8_t* header);

// The start of the sound: after the ID3v2 tags at offset.
[[nodiscard]] uint64_t skipLeadingTags(const InputFile& file, uint64_t offset);

// The end of the sound: before ID3v1 and APE tags.
[[nodiscard]] uint64_t endWithoutTrailingTags(const InputFile& file);

// The first frame of MPEG audio in [begin, end), confirmed by the frames that follow it. Up to searchBytes of other
// data may precede it.
[[nodiscard]] std::optional<uint64_t> findMpegStart(const InputFile& file, uint64_t begin, uint64_t end,
                                                    size_t searchBytes);

// The length that an encoder has stored, without the frame that stores it, which contains no sound.
struct MpegLength
{
    uint64_t frames = 0;
    uint64_t bytes = 0; // of all frames, including that one; 0 if not stored
};

// Reads the frame at begin as a Xing, Info or VBRI header. nullopt if it is a frame of sound.
[[nodiscard]] std::optional<MpegLength> lengthInFirstFrame(const InputFile& file, uint64_t begin);

// Whether there is a sequence of ADTS frames at begin.
[[nodiscard]] bool startsWithAdts(const InputFile& file, uint64_t begin, uint64_t end);

} // namespace engine
