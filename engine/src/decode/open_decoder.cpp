// SPDX-License-Identifier: MIT
#include "decode/decoders.hpp"

namespace engine {

namespace {

using base::ErrorCode;

base::Result<DecoderPointer> openByLibrary(const RecognisedFile& file)
{
    switch (file.kind.reader) {
    case Reader::Sndfile:
        return openSndfile(file);
    case Reader::Mpeg:
        return openMpeg(file);
    case Reader::Vorbis:
        return openVorbis(file);
    case Reader::Opus:
        return openOpus(file);
    case Reader::Module:
        return openModule(file);
    case Reader::Bank:
    case Reader::None:
        break;
    }
    return base::Error{ErrorCode::Format, "it isn't a sound file"};
}

} // namespace

base::Result<DecoderPointer> openDecoder(const RecognisedFile& file)
{
    base::Result<DecoderPointer> opened = openByLibrary(file);
    if (opened || opened.error().code == ErrorCode::TooManyChannels || file.kind.reader == Reader::Module
        || !file.kind.container)
        return opened;
    // The library may know the container but not the encoding inside.
    base::Result<DecoderPointer> byModule = openModule(file);
    const bool isFinal =
        byModule || byModule.error().code == ErrorCode::TooManyChannels || byModule.error().code == ErrorCode::Memory;
    return isFinal ? std::move(byModule) : std::move(opened);
}

} // namespace engine
