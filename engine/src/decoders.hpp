// The decoders of plain sound files, each made from a file that recognise() has looked at.
//
// Results of the functions: KESS_ERR_FILE_BAD where the file is damaged, KESS_ERR_FORMAT where no decoder knows what is
// in it, KESS_ERR_TOOMANYCHANNELS.
#pragma once

#include "decoder.hpp"
#include "file_kind.hpp"
#include "source_file.hpp"

#include <memory>

namespace kess {

using FilePointer = std::shared_ptr<const SourceFile>;

// The decoder for the kind, whichever it is.
[[nodiscard]] KESS_RESULT openDecoder(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder);

[[nodiscard]] KESS_RESULT openSndfile(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder);
[[nodiscard]] KESS_RESULT openMpeg(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder);
[[nodiscard]] KESS_RESULT openVorbis(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder);
[[nodiscard]] KESS_RESULT openOpus(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder);

// Through the decoder module; KESS_ERR_FORMAT also when the module isn't there.
[[nodiscard]] KESS_RESULT openForeign(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder);

// Whether channels and rate are within what a sound can have: KESS_OK, KESS_ERR_FILE_BAD for none and for a rate that
// no sound has, KESS_ERR_TOOMANYCHANNELS.
[[nodiscard]] KESS_RESULT checkLimits(int channels, double sampleRate);

} // namespace kess
