// How the functions of the container and of the encoders fail: one enumeration, and a value or one of it.
#pragma once

#include <cassert>
#include <utility>
#include <variant>

namespace bank {

enum class [[nodiscard]] Error{
    None = 0,
    Io, // reading or writing failed; the source or sink that was given knows the cause
    NotABank, // the bytes don't begin as a bank does
    Version, // a bank of another major version
    Damaged, // a checksum, length, offset or packet is wrong, or the file was cut
    KeyMissing, // the bank is encrypted and was asked for its contents without a key
    KeyWrong, // the key is not the one that the bank was encrypted with
    NotFound, // no sound of that index or name
    Invalid, // an argument out of its range
    TooMany, // more sounds, or longer names of them, than a bank holds
    Unsupported, // the codec can't take this (channels, rate), or isn't in this library
    Encoder, // an encoder library failed
    Memory, // there is none left
    Cancelled, // somebody asked to stop
};

// A T, or why there is none.
template <typename T>
class [[nodiscard]] Result
{
public:
    Result(T value) // NOLINT(google-explicit-constructor): `return value;` is the point
        : mState(std::in_place_index<0>, std::move(value))
    { }
    Result(Error error) // NOLINT(google-explicit-constructor)
        : mState(std::in_place_index<1>, error)
    {
        assert(error != Error::None);
    }

    [[nodiscard]] bool ok() const { return mState.index() == 0; }
    [[nodiscard]] explicit operator bool() const { return ok(); }
    [[nodiscard]] Error error() const { return ok() ? Error::None : *std::get_if<1>(&mState); }

    // Only when ok().
    [[nodiscard]] T& value() { return *std::get_if<0>(&mState); }
    [[nodiscard]] const T& value() const { return *std::get_if<0>(&mState); }
    T& operator*() { return value(); }
    const T& operator*() const { return value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }

private:
    std::variant<T, Error> mState;
};

} // namespace bank
