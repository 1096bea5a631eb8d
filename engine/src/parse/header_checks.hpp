// What the headers of WAV and AIFF files tell that libsndfile doesn't: faults, another stream inside, the true length.
#pragma once

#include "parse/file_kind.hpp"
#include "parse/source_file.hpp"

#include <optional>

namespace kess {

// Whether channels and rate are within what a sound can have: KESS_OK, KESS_ERR_FILE_BAD for none and for a rate that
// no sound has, KESS_ERR_TOOMANYCHANNELS.
[[nodiscard]] KESS_RESULT checkLimits(int channels, double sampleRate);

// Looks at channels, rate and encoding of WAV and AIFF files. KESS_ERR_TOOMANYCHANNELS; KESS_ERR_FILE_BAD when the
// record that tells them isn't there or says nothing possible. KESS_OK for every other kind.
[[nodiscard]] KESS_RESULT checkHeader(const SourceFile& file, const FileKind& kind);

// MPEG audio or Ogg Vorbis inside a WAV file: where it lies and who reads it. Nothing for other files.
[[nodiscard]] std::optional<FileKind> streamInWav(const SourceFile& file, const FileKind& kind);

// Why a file with a good header can't be opened: KESS_ERR_FORMAT when its samples are there, so that it must be their
// encoding, else KESS_ERR_FILE_BAD.
[[nodiscard]] KESS_RESULT reasonForRefusal(const SourceFile& file, const FileKind& kind);

// The length that the header tells, where the samples end inside a block of an encoding that packs them (WAV), or where
// a byte of padding was counted as one (AIFF). decodable is what a decoder makes of the samples' bytes; the answer is
// never more, and doesn't count what it makes up after a block that is cut.
[[nodiscard]] uint64_t lengthInHeader(const SourceFile& file, const FileKind& kind, uint64_t decodable);

} // namespace kess
