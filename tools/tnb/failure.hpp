// The exit statuses of the tool, which scripts depend on, and the only exception: a status with its reason.
#pragma once

#include <stdexcept>
#include <string>

namespace tnb {

enum class Status
{
    Whole = 0, // everything requested was done, and no damage was found
    Damaged = 1, // a bank, or a requested sound, is damaged
    CannotRead = 2, // not a bank, no such file, key missing or wrong, a file not written, or wrong arguments
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
