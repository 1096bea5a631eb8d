#include "bank_decoders.hpp"

namespace kess {

KESS_RESULT makeKadpcmDecoder(BankSound, DecoderPointer*)
{
    return KESS_ERR_UNSUPPORTED;
}

} // namespace kess
