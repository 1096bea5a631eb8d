// SPDX-License-Identifier: MIT
// UTF-8 as in the table of well-formed byte sequences (Unicode 15, table 3-7): no surrogates, no overlong forms.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace base {

struct Utf8Character
{
    uint32_t code = 0;
    size_t bytes = 0; // 0: the text does not begin with a well-formed character
};

// The character at the start of text.
[[nodiscard]] Utf8Character firstCharacter(std::string_view text);

[[nodiscard]] bool isUtf8(std::string_view text);

// As many whole characters of text as fit into maximumBytes. If text isn't UTF-8, it may be cut anywhere.
[[nodiscard]] std::string_view cutAtCharacter(std::string_view text, size_t maximumBytes);

} // namespace base
