#include "support/fault.hpp"

namespace tarnok {

Fault faultOf(bank::Error error, std::string_view what)
{
    const std::string name(what);
    switch (error) {
    case bank::Error::Cancelled:
        return cancelled();
    case bank::Error::Io:
        return {TARNOK_ERR_FILE_OS, name + ": an encoded sound that was put aside can't be read again"};
    case bank::Error::Memory:
        return {TARNOK_ERR_MEMORY, name + ": out of memory"};
    case bank::Error::Unsupported:
        return {TARNOK_ERR_INVALID_FORMAT,
                name + ": the chosen format can't hold this number of channels or this rate"};
    case bank::Error::Damaged:
        return {TARNOK_ERR_CACHE_CHUNK_MISSING, name + ": the encoded sound was changed while the bank was written"};
    case bank::Error::TooMany:
        return invalid(name + ": so many sounds with such long names are more than a bank holds");
    case bank::Error::Invalid:
        return invalid(name + ": a setting is out of its range");
    default:
        return {TARNOK_ERR_ENCODER, name + ": the encoder failed"};
    }
}

} // namespace tarnok
