// SPDX-License-Identifier: MIT
// Files that chain several sounds. They are decoded as one sound, up to the first that has other channels or another
// rate.
#pragma once

#include <cstddef>
#include <string>

namespace engine {

// Reasons for chainRemark().
[[nodiscard]] inline std::string otherChannels(int channels, int first)
{
    return "has " + std::to_string(channels) + (channels == 1 ? " channel" : " channels") + " instead of "
        + std::to_string(first);
}

[[nodiscard]] inline std::string otherRate(long rate, long first)
{
    return "has " + std::to_string(rate) + " Hz instead of " + std::to_string(first);
}

// The remark on a chain of which only the first sounds are decoded. reason completes "the next one ...".
[[nodiscard]] inline std::string chainRemark(size_t decoded, const std::string& reason)
{
    const std::string first = decoded == 1 ? "only the first of its chained sounds is"
                                           : "only the first " + std::to_string(decoded) + " of its chained sounds are";
    return first + " read, because the next one " + reason;
}

} // namespace engine
