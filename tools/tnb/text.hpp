// SPDX-License-Identifier: MIT
// Text for a terminal: escaping and columns.
#pragma once

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace tnb {

// The number of bytes of the first character of text. 0 if text is empty, the character isn't valid UTF-8, or it could
// move a terminal's cursor or change the direction of text.
[[nodiscard]] size_t harmlessBytes(std::string_view text);

// Returns text with every byte escaped (\x1b, ...) that isn't part of a harmless character: names come from untrusted
// files.
[[nodiscard]] std::string printable(std::string_view text);

// Writes json, which must be valid, and escapes the characters that aren't harmless (\u009b, ...). Each line is
// indented by that many blanks. It writes to a stream because strings of long text would take several times its memory.
void writeJson(std::ostream& stream, std::string_view json, size_t blanks);

// 1234567 as 1,234,567.
[[nodiscard]] std::string grouped(unsigned long long number);

// value with that many digits after the decimal point.
[[nodiscard]] std::string fixed(double value, int digits);

enum class Align
{
    Left,
    Right
};

// Formats rows of cells in columns as wide as their widest cell. Cells are UTF-8; wide characters count as two. First
// measure all rows, then format them one by one: keeping the rows would take many times the memory of their source.
class Table
{
public:
    struct Column
    {
        std::string title;
        Align align;
    };

    explicit Table(std::vector<Column> columns);

    // measure() and line() take one cell per column.
    void measure(const std::vector<std::string>& cells);

    [[nodiscard]] std::string titles() const;
    [[nodiscard]] std::string line(const std::vector<std::string>& cells) const;

private:
    std::vector<Column> mColumns;
    std::vector<size_t> mWidths;
};

} // namespace tnb
