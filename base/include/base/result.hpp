// SPDX-License-Identifier: MIT
// The result type of the libraries and tools: a value, or a record that says what went wrong.
//
// At a C interface the record becomes a number. Each library defines its own mapping there.
#pragma once

#include <tl/expected.hpp>

#include <cstdint>
#include <string>
#include <utility>

namespace base {

enum class ErrorCode : uint8_t
{
    NotFound, // nothing has that name
    Io, // the operating system failed; Error::systemError says how
    Format, // the bytes have no format that is known here
    Version, // a newer version than the known ones
    Damaged, // a known format, but a checksum, length, offset or packet is wrong, or the end is missing
    Unsupported, // a known format and undamaged, but it can't be handled here
    TooManyChannels,
    NotSeekable, // can't be read at the requested position
    KeyMissing, // encrypted, but no key was given
    KeyWrong, // encrypted with another key
    Invalid, // an argument is out of range
    Codec, // a codec's library failed
    Engine, // the audio engine failed
    ModuleMissing, // no module for this codec
    ModuleBad, // the module for this codec is unusable
    CacheLost, // cache entries are being removed while they are needed
    NothingLeft, // every part of the work failed
    Memory, // not enough memory
    Cancelled, // a stop was requested
};

struct Error
{
    ErrorCode code = ErrorCode::Io;
    // A message for the log that names the file and the fault, without a full stop. Empty if only the code matters, or
    // if the caller provides the text.
    std::string text = {};
    int systemError = 0; // errno if a system call failed

    bool operator==(const Error&) const = default;
};

[[nodiscard]] inline Error cancelled()
{
    return {ErrorCode::Cancelled, "the build was cancelled"};
}

[[nodiscard]] inline Error outOfMemory()
{
    return {ErrorCode::Memory, "out of memory"};
}

// A T, or the error that prevented it. A function returns either of them directly.
template <typename T = void>
class [[nodiscard]] Result : public tl::expected<T, Error>
{
public:
    using tl::expected<T, Error>::expected;

    Result(Error error) // NOLINT(google-explicit-constructor): `return error;` is the point
        : tl::expected<T, Error>(tl::unexpect, std::move(error))
    { }
};

} // namespace base
