// How the tool ends: statuses that scripts go by, and the one exception that carries one of them with its reason.
#pragma once

#include <stdexcept>
#include <string>

namespace tnb {

enum class Status
{
    Whole = 0, // everything wanted was done, and nothing wrong was met
    Damaged = 1, // a bank, or a sound wanted from it, is damaged
    CannotRead = 2, // no bank, no such file, key missing or wrong, nothing written, or wrong arguments
};

class Failure : public std::runtime_error
{
public:
    Failure(Status status, const std::string& reason)
        : std::runtime_error(reason)
        , mStatus(status)
    { }

    [[nodiscard]] Status status() const { return mStatus; }

private:
    Status mStatus;
};

} // namespace tnb
