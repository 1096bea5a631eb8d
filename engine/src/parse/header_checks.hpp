// SPDX-License-Identifier: MIT
// What the headers of WAV and AIFF files say and libsndfile doesn't report: faults, another stream inside, the true
// length.
#pragma once

#include "parse/file_kind.hpp"

#include <optional>

namespace engine {

// Whether channels and rate are within the limits of a sound. ErrorCode::Damaged for no channels and for an impossible
// rate, ErrorCode::TooManyChannels.
base::Result<> checkLimits(int channels, double sampleRate);

// Checks channels and rate of WAV and AIFF files. ErrorCode::TooManyChannels; ErrorCode::Damaged if the header is
// missing or impossible. Success for every other kind.
base::Result<> checkHeader(const RecognisedFile& file);

// MPEG audio or Ogg Vorbis inside a WAV file: its range and reader. nullopt for other files.
[[nodiscard]] std::optional<FileKind> streamInWav(const RecognisedFile& file);

// Why a file with a good header can't be opened: ErrorCode::Format if it has samples, so that their encoding must be
// the reason, otherwise ErrorCode::Damaged.
[[nodiscard]] base::Error refusal(const RecognisedFile& file);

// The length of a sound according to its header, at most decodable, the number of samples that a decoder produces. They
// differ where the samples end inside a block of a compressed encoding (WAV), or where a padding byte was counted as a
// sample (AIFF). Samples that a decoder makes up after an incomplete block aren't counted.
[[nodiscard]] uint64_t lengthInHeader(const RecognisedFile& file, uint64_t decodable);

} // namespace engine
