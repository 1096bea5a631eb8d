// Faults of a header that libsndfile doesn't tell apart.
#pragma once

#include "file_kind.hpp"
#include "source_file.hpp"

namespace kess {

// Looks at channels, rate and encoding of WAV and AIFF files. KESS_ERR_TOOMANYCHANNELS; KESS_ERR_FILE_BAD when the
// record that tells them isn't there or says nothing possible. KESS_OK for every other kind.
[[nodiscard]] KESS_RESULT checkHeader(const SourceFile& file, const FileKind& kind);

} // namespace kess
