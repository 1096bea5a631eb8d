// SPDX-License-Identifier: MIT
// WAV, AIFF and Amiga files, reduced to what decoding needs.
#pragma once

#include "parse/file_kind.hpp"
#include "parse/sound_facts.hpp"

#include <optional>

namespace engine {

// The file as libsndfile reads it: a new header with the format, followed by the samples. The library's own search
// through the chunks of a damaged file may never end (version 1.2.0: lists of information in WAV files; 100 kB of empty
// chunks in Amiga files). Other kinds of files are passed on unchanged. nullopt if the samples or their format are
// missing.
[[nodiscard]] std::optional<Cursor> plainView(const RecognisedFile& file);

// The range of a file whose bytes are the samples as they are delivered. facts are those of the opened sound.
[[nodiscard]] std::optional<RawSamples> rawSamples(const RecognisedFile& file, const SoundFacts& facts);

} // namespace engine
