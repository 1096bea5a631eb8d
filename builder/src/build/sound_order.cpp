// SPDX-License-Identifier: MIT
#include "build/sound_order.hpp"

#include "base/file.hpp"
#include "build/build_request.hpp"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <string_view>

#include <strings.h>

namespace builder {

namespace {

// The approximate ratio of the decoded size of a file to its size.
double expansion(std::string_view path)
{
    const std::string_view extension = path.substr(std::min(path.size(), path.rfind('.') + 1));
    const auto is = [extension](std::string_view other) {
        return extension.size() == other.size() && strncasecmp(extension.data(), other.data(), other.size()) == 0;
    };
    constexpr std::string_view kLossy[] = {"ogg", "opus", "mp3", "m4a", "aac", "wma", "spx", "mp2"};
    if (std::any_of(std::begin(kLossy), std::end(kLossy), is))
        return 10;
    return is("flac") ? 2 : 1;
}

} // namespace

std::vector<size_t> longestFirst(std::span<const TARNOK_SUBSOUND> subsounds, const std::stop_token& stop)
{
    std::vector<double> weights(subsounds.size());
    for (size_t index = 0; index < subsounds.size() && !stop.stop_requested(); ++index) {
        for (const std::string& path : sourcePaths(subsounds[index])) {
            if (const base::Result<base::FileStamp> stamp = base::readStamp(path))
                weights[index] += double(stamp->size) * expansion(path);
        }
    }
    std::vector<size_t> order(weights.size());
    std::iota(order.begin(), order.end(), size_t(0));
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t left, size_t right) { return weights[left] > weights[right]; });
    return order;
}

} // namespace builder
