// UTF-8, by the table of well-formed byte sequences (Unicode 15, table 3-7): neither surrogates nor over-long forms.
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

// As many whole characters of text as fit into maximumBytes. text should be UTF-8; of other text, as many bytes.
[[nodiscard]] std::string_view cutAtCharacter(std::string_view text, size_t maximumBytes);

} // namespace base
