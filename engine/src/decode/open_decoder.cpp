#include "decode/decoders.hpp"

namespace kess {

KESS_RESULT openDecoder(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder)
{
    KESS_RESULT result = KESS_ERR_FORMAT;
    switch (kind.reader) {
    case Reader::Sndfile:
        result = openSndfile(file, kind, decoder);
        break;
    case Reader::Mpeg:
        result = openMpeg(file, kind, decoder);
        break;
    case Reader::Vorbis:
        result = openVorbis(file, kind, decoder);
        break;
    case Reader::Opus:
        result = openOpus(file, kind, decoder);
        break;
    case Reader::Foreign:
        return openForeign(file, kind, decoder);
    case Reader::Bank:
    case Reader::None:
        return KESS_ERR_FORMAT;
    }
    if (result == KESS_OK || result == KESS_ERR_TOOMANYCHANNELS || !kind.container)
        return result;
    // An encoding that this decoder lacks, inside a container that it knows.
    const KESS_RESULT foreign = openForeign(file, kind, decoder);
    const bool isFinal = foreign == KESS_OK || foreign == KESS_ERR_TOOMANYCHANNELS || foreign == KESS_ERR_MEMORY;
    return isFinal ? foreign : result;
}

} // namespace kess
