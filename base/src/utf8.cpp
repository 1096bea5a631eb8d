// SPDX-License-Identifier: MIT
#include "base/utf8.hpp"

#include <array>

namespace base {

Utf8Character firstCharacter(std::string_view text)
{
    if (text.empty())
        return {};
    const auto lead = uint8_t(text[0]);
    if (lead < 0x80)
        return {lead, 1};
    const size_t bytes = lead >= 0xc2 && lead <= 0xdf ? 2
        : lead >= 0xe0 && lead <= 0xef                ? 3
        : lead >= 0xf0 && lead <= 0xf4                ? 4
                                                      : 0;
    if (bytes == 0 || bytes > text.size())
        return {};
    uint32_t code = lead & (0xffu >> (bytes + 1));
    for (size_t i = 1; i < bytes; ++i) {
        const auto next = uint8_t(text[i]);
        if ((next & 0xc0) != 0x80)
            return {};
        code = code << 6 | (next & 0x3f);
    }
    constexpr std::array<uint32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
    if (code < kSmallest[bytes] || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff))
        return {};
    return {code, bytes};
}

bool isUtf8(std::string_view text)
{
    while (!text.empty()) {
        const size_t bytes = firstCharacter(text).bytes;
        if (bytes == 0)
            return false;
        text.remove_prefix(bytes);
    }
    return true;
}

std::string_view cutAtCharacter(std::string_view text, size_t maximumBytes)
{
    if (text.size() <= maximumBytes)
        return text;
    size_t end = maximumBytes;
    while (end > 0 && (uint8_t(text[end]) & 0xc0) == 0x80)
        --end;
    return text.substr(0, end > 0 ? end : maximumBytes);
}

} // namespace base
