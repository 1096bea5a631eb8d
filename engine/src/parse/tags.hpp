// Loop points and sync points that sound files carry beside their samples.
#pragma once

#include "parse/file_kind.hpp"
#include "parse/sound_facts.hpp"
#include "parse/source_file.hpp"

namespace kess {

// Fills facts->loop and facts->syncPoints from what the file says: WAV `smpl`, `cue ` and `LIST adtl`, AIFF `INST` and
// `MARK`, and the comments of FLAC and Ogg. Rate and length must be known already: sync points outside the sound are
// left out, since a wrong one is no reason to refuse a sound. A loop that ends after the sound ends with it.
void readTags(const SourceFile& file, const FileKind& kind, SoundFacts* facts);

// How many comments the streams of an Ogg file say that they have, of the stream that has most.
[[nodiscard]] uint64_t commentCount(const SourceFile& file);

} // namespace kess
