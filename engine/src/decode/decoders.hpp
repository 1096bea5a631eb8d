// SPDX-License-Identifier: MIT
// The decoders of sound files.
//
// The functions fail with ErrorCode::Damaged; ErrorCode::Format if no decoder knows the content;
// ErrorCode::TooManyChannels.
#pragma once

#include "decode/decoder.hpp"
#include "parse/file_kind.hpp"

namespace engine {

// Opens the decoder for the kind of the file.
base::Result<DecoderPointer> openDecoder(const RecognisedFile& file);

base::Result<DecoderPointer> openSndfile(const RecognisedFile& file);
base::Result<DecoderPointer> openMpeg(const RecognisedFile& file);
base::Result<DecoderPointer> openVorbis(const RecognisedFile& file);
base::Result<DecoderPointer> openOpus(const RecognisedFile& file);

// Uses the decoder module. ErrorCode::Format also if the module is missing.
base::Result<DecoderPointer> openModule(const RecognisedFile& file);

} // namespace engine
