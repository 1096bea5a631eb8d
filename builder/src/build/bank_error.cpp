#include "build/bank_error.hpp"

#include <string>

namespace tarnok {

base::Error describeError(bank::Error error, std::string_view subject)
{
    using base::ErrorCode;
    const auto described = [subject](ErrorCode code, const char* text) {
        return base::Error{code, std::string(subject) + ": " + text};
    };
    switch (error) {
    case bank::Error::Cancelled:
        return base::cancelled();
    case bank::Error::Io:
        return described(ErrorCode::Io, "an encoded sound that was put aside can't be read again");
    case bank::Error::Memory:
        return described(ErrorCode::Memory, "out of memory");
    case bank::Error::Unsupported:
        return described(ErrorCode::Unsupported, "the chosen format can't hold this number of channels or this rate");
    case bank::Error::Damaged:
        return described(ErrorCode::CacheLost, "the encoded sound was changed while the bank was written");
    case bank::Error::TooMany:
        return described(ErrorCode::Invalid, "so many sounds with such long names are more than a bank holds");
    case bank::Error::Invalid:
        return described(ErrorCode::Invalid, "a setting is out of its range");
    default:
        return described(ErrorCode::Codec, "the encoder failed");
    }
}

} // namespace tarnok
