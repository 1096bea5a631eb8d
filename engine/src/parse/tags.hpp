// SPDX-License-Identifier: MIT
// Loop points and sync points that sound files store beside their samples.
#pragma once

#include "parse/file_kind.hpp"
#include "parse/sound_facts.hpp"

namespace engine {

// Fills facts.loop and facts.syncPoints from WAV `smpl`, `cue ` and `LIST adtl`, AIFF `INST` and `MARK`, and the
// comments of FLAC and Ogg. Rate and length must be known already: sync points outside the sound are left out, since a
// wrong one is no reason to refuse a sound. A loop that ends after the sound is cut at the sound's end.
void readTags(const RecognisedFile& file, SoundFacts& facts);

} // namespace engine
