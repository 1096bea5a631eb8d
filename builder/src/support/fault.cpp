#include "support/fault.hpp"

namespace tarnok {

Fault faultOf(const base::Error& error, std::string_view what)
{
    const std::string name(what);
    switch (error.code) {
    case base::ErrorCode::Cancelled:
        return cancelled();
    case base::ErrorCode::Io:
        return {TARNOK_ERR_FILE_OS, name + ": an encoded sound that was put aside can't be read again"};
    case base::ErrorCode::Memory:
        return {TARNOK_ERR_MEMORY, name + ": out of memory"};
    case base::ErrorCode::Unsupported:
        return {TARNOK_ERR_INVALID_FORMAT,
                name + ": the chosen format can't hold this number of channels or this rate"};
    case base::ErrorCode::Damaged:
        return {TARNOK_ERR_CACHE_CHUNK_MISSING, name + ": the encoded sound was changed while the bank was written"};
    case base::ErrorCode::Invalid:
        return invalid(name + ": " + (error.text.empty() ? "a setting is out of its range" : error.text));
    case base::ErrorCode::ModuleMissing:
        return {TARNOK_ERR_ENCODER_LIBRARY_NOT_FOUND, error.text};
    case base::ErrorCode::ModuleBad:
        return {TARNOK_ERR_ENCODER_LIBRARY_BAD, error.text};
    default:
        return {TARNOK_ERR_ENCODER, name + ": the encoder failed"};
    }
}

} // namespace tarnok
