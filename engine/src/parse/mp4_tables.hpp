// SPDX-License-Identifier: MIT
// The tables of packets in an MPEG-4 or QuickTime file.
#pragma once

#include "parse/file_kind.hpp"

namespace engine {

// Whether the file can hold as many packets as its tables declare in total. FFmpeg's demuxer makes an entry for each
// declared packet, and a table of packets of equal size takes 20 bytes, whatever their number. False also for
// compressed tables, which QuickTime once wrote: their decompressed size is unknown.
[[nodiscard]] bool tablesFitFile(const RecognisedFile& file);

} // namespace engine
