// SPDX-License-Identifier: MIT
// Files that end before their sound ends.
#pragma once

#include "parse/file_kind.hpp"
#include "parse/sound_facts.hpp"

#include <cstdint>

namespace engine {

// The length in samples that the file would have if it contained all the data that its header declares. That is the
// length in facts for a complete file, and for a kind whose header declares none. An odd byte or a part of a frame may
// be missing at the end of a complete file. The result is approximate for compressed encodings. The header of Ogg
// declares no length; its missing and incomplete pages are counted (see lostOggSamples).
[[nodiscard]] uint64_t declaredSampleCount(const RecognisedFile& file, const SoundFacts& facts);

} // namespace engine
