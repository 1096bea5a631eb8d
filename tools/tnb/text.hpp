// Text for a terminal: made harmless, and in columns.
#pragma once

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace tnb {

// How many bytes the character at the start of text has; 0 if there is none, or it isn't valid UTF-8, or it could move
// a terminal's cursor or turn the direction of text.
[[nodiscard]] size_t harmlessBytes(std::string_view text);

// text with everything escaped (\n, \x1b, ...) that isn't valid UTF-8 or could move a terminal's cursor: names come
// from files that nobody vouches for.
[[nodiscard]] std::string printable(std::string_view text);

// Writes JSON, which is valid, with the same characters of its strings escaped as JSON escapes them (\u009b, ...).
// Each of its lines begins with so many blanks. Long text would take several times its memory as a string.
void writeJson(std::ostream& stream, std::string_view json, size_t blanks);

// 1234567 as 1,234,567.
[[nodiscard]] std::string grouped(unsigned long long number);

// value with so many digits behind the point.
[[nodiscard]] std::string fixed(double value, int digits);

enum class Align
{
    Left,
    Right
};

// Rows of cells, shown in columns as wide as their widest cell. Cells are UTF-8; wide characters count as two. Rows are
// measured, all of them, and then shown: to keep them would take many times the memory of what they were made from.
class Table
{
public:
    struct Column
    {
        std::string title;
        Align align;
    };

    explicit Table(std::vector<Column> columns);

    // As many cells as there are columns, here and below.
    void measure(const std::vector<std::string>& cells);

    [[nodiscard]] std::string titles() const;
    [[nodiscard]] std::string line(const std::vector<std::string>& cells) const;

private:
    std::vector<Column> mColumns;
    std::vector<size_t> mWidths;
};

} // namespace tnb
