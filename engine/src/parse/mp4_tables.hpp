// The tables of packets in an MPEG-4 or QuickTime file.
#pragma once

#include "parse/file_kind.hpp"
#include "parse/source_file.hpp"

namespace kess {

// Whether the file can hold as many packets as its tables declare, all together. FFmpeg's demuxer makes an entry for
// each declared packet, and a table of packets of equal size takes 20 bytes, whatever their number. False also for
// tables that are compressed, as QuickTime once wrote them: nobody knows how much comes out.
[[nodiscard]] bool tablesFitFile(const std::shared_ptr<const SourceFile>& file, const FileKind& kind);

} // namespace kess
