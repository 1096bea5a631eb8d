// Loop points and sync points that sound files carry beside their samples.
#pragma once

#include "decoder.hpp"
#include "file_kind.hpp"
#include "source_file.hpp"

namespace kess {

// Fills facts->loop and facts->syncPoints from what the file says: WAV `smpl`, `cue ` and `LIST adtl`, AIFF `INST` and
// `MARK`, and the comments of FLAC and Ogg. Rate and length must be known already: what lies outside the sound is left
// out, since a wrong sync point is no reason to refuse a sound.
void readTags(const SourceFile& file, const FileKind& kind, SoundFacts* facts);

} // namespace kess
