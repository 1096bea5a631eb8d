// WAV, AIFF and Amiga files reduced to what decoding needs.
#pragma once

#include "parse/file_kind.hpp"
#include "parse/sound_facts.hpp"
#include "parse/source_file.hpp"

#include <memory>
#include <optional>

namespace kess {

// The file as libsndfile gets to see it: a new header with the format, and the samples behind it. The library's own way
// through the chunks of a damaged file may never end (version 1.2.0: lists of information in WAV files; 100 kB of empty
// chunks in Amiga files). Other kinds of files are shown as they are. Nothing when the samples or their format are
// missing.
[[nodiscard]] std::optional<Cursor> plainView(const std::shared_ptr<const SourceFile>& file, const FileKind& kind);

// Where the samples of a file stand in the form in which they are delivered, if facts are what was found of it.
[[nodiscard]] std::optional<RawSamples> rawSamples(const SourceFile& file, const FileKind& kind,
                                                   const SoundFacts& facts);

} // namespace kess
