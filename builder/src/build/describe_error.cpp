// SPDX-License-Identifier: MIT
#include "build/describe_error.hpp"

#include <string>

namespace builder {

base::Error describeError(const base::Error& error, std::string_view subject)
{
    using base::ErrorCode;
    const auto described = [subject](ErrorCode code, const std::string& text) {
        return base::Error{code, std::string(subject) + ": " + text};
    };
    if (error.code == ErrorCode::Cancelled)
        return base::cancelled();
    if (error.code == ErrorCode::Invalid)
        return described(error.code, error.text.empty() ? "a setting is out of range" : error.text);
    if (!error.text.empty())
        return error;
    switch (error.code) {
    case ErrorCode::Io:
        return described(error.code, "a temporary file with an encoded sound can't be read");
    case ErrorCode::Memory:
        return described(error.code, "out of memory");
    case ErrorCode::Unsupported:
        return described(error.code, "the chosen format doesn't support this number of channels or this sample rate");
    case ErrorCode::Damaged:
        return described(ErrorCode::CacheLost, "the encoded sound was changed while the bank was written");
    default:
        return described(ErrorCode::Codec, "the encoder failed");
    }
}

} // namespace builder
