#include "decoders.hpp"

namespace kess {

KESS_RESULT openForeign(const FilePointer&, const FileKind&, DecoderPointer*)
{
    return KESS_ERR_FORMAT;
}

} // namespace kess
