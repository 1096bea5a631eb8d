#include "bank_decoders.hpp"

namespace kess {

KESS_RESULT makeKadpcmDecoder(BankSound, std::span<const uint8_t>, DecoderPointer*)
{
    return KESS_ERR_UNSUPPORTED;
}

} // namespace kess
