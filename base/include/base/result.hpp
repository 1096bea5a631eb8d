// How functions of the libraries and tools fail: one record that says what went wrong, and a value or that record.
//
// At a C interface the record becomes that interface's number; see the boundary of each library for the mapping.
#pragma once

#include <tl/expected.hpp>

#include <cstdint>
#include <string>
#include <utility>

namespace base {

enum class ErrorCode : uint8_t
{
    NotFound, // there is nothing of that name
    Io, // the operating system failed; Error::systemError says how
    Format, // the bytes are of no kind that is known here
    Version, // of a newer version than is known here
    Damaged, // begins as it should, but a checksum, length, offset or packet is wrong, or the end is missing
    Unsupported, // known and whole, but it can't be handled here
    TooManyChannels,
    NotSeekable, // can't be read at the position that was asked for
    KeyMissing, // encrypted, and no key was given
    KeyWrong, // encrypted with another key
    Invalid, // an argument is out of its range
    Codec, // a codec's library failed
    Engine, // the audio engine failed
    ModuleMissing, // no module for this codec
    ModuleBad, // the module for this codec can't be used
    CacheLost, // somebody removes what the cache holds while it is needed
    NothingLeft, // every part of the work failed
    Memory, // there is none left
    Cancelled, // somebody asked to stop
};

struct Error
{
    ErrorCode code = ErrorCode::Io;
    // For the person who reads the log: names the file and the fault, without a full stop. Empty where only the code
    // matters, or where the caller knows the words.
    std::string text = {};
    int systemError = 0; // errno, where a system call failed

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

// A T, or the error because of which there is none. Functions return either one as it is.
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
