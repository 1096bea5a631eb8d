// The decoders of plain sound files, each made from a file that recognise() has looked at.
//
// Results of the functions: KESS_ERR_FILE_BAD where the file is damaged, KESS_ERR_FORMAT where no decoder knows what is
// in it, KESS_ERR_TOOMANYCHANNELS.
#pragma once

#include "decode/decoder.hpp"
#include "parse/file_kind.hpp"
#include "parse/source_file.hpp"

namespace kess {

// The decoder for the kind, whichever it is.
[[nodiscard]] KESS_RESULT openDecoder(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder);

[[nodiscard]] KESS_RESULT openSndfile(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder);
[[nodiscard]] KESS_RESULT openMpeg(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder);
[[nodiscard]] KESS_RESULT openVorbis(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder);
[[nodiscard]] KESS_RESULT openOpus(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder);

// Through the decoder module; KESS_ERR_FORMAT also when the module isn't there.
[[nodiscard]] KESS_RESULT openForeign(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder);

} // namespace kess
