// SPDX-License-Identifier: MIT
#include "text.hpp"

#include "base/utf8.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cwchar>

namespace tnb {

namespace {

using Character = base::Utf8Character;
using base::firstCharacter;

// Not harmless: controls, line and paragraph separators, and characters that change the direction of text.
bool isHarmless(uint32_t code)
{
    return code >= 0x20 && !(code >= 0x7f && code <= 0x9f) && code != 0x061c && code != 0x200e && code != 0x200f
        && !(code >= 0x2028 && code <= 0x202e) && !(code >= 0x2066 && code <= 0x2069);
}

size_t displayWidth(std::string_view text)
{
    size_t width = 0;
    while (!text.empty()) {
        const Character character = firstCharacter(text);
        const int columns = wcwidth(static_cast<wchar_t>(character.code));
        width += columns >= 0 ? static_cast<size_t>(columns) : 1;
        text.remove_prefix(std::max<size_t>(character.bytes, 1));
    }
    return width;
}

} // namespace

size_t harmlessBytes(std::string_view text)
{
    const Character character = text.empty() ? Character() : firstCharacter(text);
    return character.bytes > 0 && isHarmless(character.code) ? character.bytes : 0;
}

std::string printable(std::string_view text)
{
    std::string shown;
    while (!text.empty()) {
        const size_t bytes = harmlessBytes(text);
        if (bytes > 0) {
            shown += text.substr(0, bytes);
        } else {
            constexpr char kDigits[] = "0123456789abcdef";
            const auto byte = static_cast<uint8_t>(text[0]);
            shown += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
        }
        text.remove_prefix(std::max<size_t>(bytes, 1));
    }
    return shown;
}

void writeJson(std::ostream& stream, std::string_view json, size_t blanks)
{
    const std::string space(blanks, ' ');
    stream << space;
    size_t written = 0;
    for (size_t at = 0; at < json.size();) {
        const Character character = firstCharacter(json.substr(at));
        const size_t next = at + std::max<size_t>(character.bytes, 1);
        if (json[at] == '\n' || !isHarmless(character.code)) {
            stream << json.substr(written, at - written);
            written = next;
            char escape[7] = ""; // characters that aren't harmless have at most four hexadecimal digits
            if (json[at] != '\n')
                std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(character.code));
            stream << (json[at] == '\n' ? '\n' + space : escape);
        }
        at = next;
    }
    stream << json.substr(written);
}

std::string grouped(unsigned long long number)
{
    std::string digits = std::to_string(number);
    for (size_t end = digits.size(); end > 3; end -= 3)
        digits.insert(end - 3, 1, ',');
    return digits;
}

std::string fixed(double value, int digits)
{
    std::array<char, 400> text{};
    std::snprintf(text.data(), text.size(), "%.*f", digits, value);
    return text.data();
}

Table::Table(std::vector<Column> columns)
    : mColumns(std::move(columns))
{
    for (const Column& column : mColumns)
        mWidths.push_back(displayWidth(column.title));
}

void Table::measure(const std::vector<std::string>& cells)
{
    for (size_t i = 0; i < cells.size(); ++i)
        mWidths[i] = std::max(mWidths[i], displayWidth(cells[i]));
}

std::string Table::titles() const
{
    std::vector<std::string> cells;
    for (const Column& column : mColumns)
        cells.push_back(column.title);
    return line(cells);
}

std::string Table::line(const std::vector<std::string>& cells) const
{
    std::string line;
    for (size_t i = 0; i < cells.size(); ++i) {
        const std::string space(mWidths[i] - displayWidth(cells[i]), ' ');
        line += i > 0 ? "  " : "";
        line += mColumns[i].align == Align::Right ? space + cells[i] : cells[i] + space;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line + '\n';
}

} // namespace tnb
