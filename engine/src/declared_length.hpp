// Files that end before their sound does.
#pragma once

#include "decoder.hpp"
#include "file_kind.hpp"
#include "source_file.hpp"

#include <cstdint>

namespace kess {

// The length in samples that the file would have if all the data that its header tells of were there: that of facts for
// a whole file and for a kind whose header tells none. An odd byte or a part of a frame may be missing at the end of a
// whole file. For encodings that pack samples the answer is about right.
[[nodiscard]] uint64_t declaredSampleCount(const SourceFile& file, const FileKind& kind, const SoundFacts& facts);

} // namespace kess
