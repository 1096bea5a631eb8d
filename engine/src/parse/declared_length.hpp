// Files that end before their sound does.
#pragma once

#include "parse/file_kind.hpp"
#include "parse/sound_facts.hpp"
#include "parse/source_file.hpp"

#include <cstdint>
#include <memory>

namespace kess {

// The length in samples that the file would have if all the data that its header tells of were there: that of facts for
// a whole file and for a kind whose header tells none. An odd byte or a part of a frame may be missing at the end of a
// whole file. For encodings that pack samples the answer is about right; in Ogg, whose header reports no length, it is
// by the pages that are missing or cut (see lostOggSamples).
[[nodiscard]] uint64_t declaredSampleCount(const std::shared_ptr<const SourceFile>& file, const FileKind& kind,
                                           const SoundFacts& facts);

} // namespace kess
