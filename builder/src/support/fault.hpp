// What went wrong, and the result type in which it travels up to the C boundary.
#pragma once

#include "base/result.hpp"
#include "tarnok.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace tarnok {

// A failure: the number that the caller of the library gets, and a sentence for the person who reads the log. It names
// the file and the cause without the vocabulary of a programmer.
struct Fault
{
    TARNOK_RESULT code = TARNOK_OK;
    std::string text;
};

inline Fault cancelled()
{
    return {TARNOK_ERR_CANCELLED, "the build was cancelled"};
}

inline Fault invalid(std::string text)
{
    return {TARNOK_ERR_INVALID_PARAM, std::move(text)};
}

inline Fault outOfMemory()
{
    return {TARNOK_ERR_MEMORY, "out of memory"};
}

// What an error of an encoder or of the container means to the person who builds `what`, a sound or a bank.
Fault faultOf(const base::Error& error, std::string_view what);

// A value, or why there is none.
template <typename Value>
class [[nodiscard]] Result
{
public:
    Result(Value value)
        : mContent(std::in_place_index<0>, std::move(value))
    { }
    Result(Fault fault)
        : mContent(std::in_place_index<1>, std::move(fault))
    { }

    explicit operator bool() const { return mContent.index() == 0; }

    Value& operator*() { return std::get<0>(mContent); }
    Value* operator->() { return &std::get<0>(mContent); }
    const Value& operator*() const { return std::get<0>(mContent); }
    const Value* operator->() const { return &std::get<0>(mContent); }

    const Fault& fault() const { return std::get<1>(mContent); }

private:
    std::variant<Value, Fault> mContent;
};

// Success, or why not.
class [[nodiscard]] Status
{
public:
    Status() = default;
    Status(Fault fault)
        : mFault(std::move(fault))
    { }

    explicit operator bool() const { return !mFault; }
    const Fault& fault() const { return *mFault; }

private:
    std::optional<Fault> mFault;
};

} // namespace tarnok
