// SPDX-License-Identifier: MIT
#include "base/path.hpp"

#include <algorithm>

namespace base {

std::string_view baseName(std::string_view path)
{
    return path.substr(path.rfind('/') + 1);
}

std::string parentFolder(std::string_view path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return ".";
    return std::string(path.substr(0, std::max<size_t>(slash, 1)));
}

std::string_view withoutExtension(std::string_view path)
{
    const size_t dot = path.rfind('.');
    const size_t start = path.size() - baseName(path).size();
    return dot == std::string_view::npos || dot <= start ? path : path.substr(0, dot);
}

} // namespace base
