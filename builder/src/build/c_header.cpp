// SPDX-License-Identifier: MIT
#include "build/c_header.hpp"

#include "base/bytes.hpp"
#include "base/file.hpp"

#include <cstdio>
#include <unordered_map>

namespace builder {

namespace {

constexpr std::string_view kFirstLine =
    "/* Sounds of a bank by index. Generated together with the bank; changes are lost. */";

bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Doesn't use <cctype>, whose results depend on the program's locale.
std::string asIdentifier(std::string_view text, bool capitals)
{
    std::string identifier;
    for (const char c : text) {
        if (isLetter(c))
            identifier += char(capitals ? c & ~0x20 : c | 0x20);
        else
            identifier += c >= '0' && c <= '9' ? c : '_';
    }
    return identifier;
}

// A prefix that is a valid start of an identifier: leading underscores are reserved for the compiler.
std::string asPrefix(std::string_view bankName, bool capitals)
{
    std::string prefix = asIdentifier(bankName, capitals);
    if (prefix.empty() || !isLetter(prefix.front()))
        prefix.insert(0, capitals ? "BANK_" : "bank_");
    return prefix;
}

// Octal escapes always have three digits, so that a digit after one can't become part of it. Question marks are escaped
// because two of them start a trigraph.
std::string asLiteral(std::string_view text)
{
    std::string literal = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte >= 0x7f) {
            char escape[5];
            std::snprintf(escape, sizeof escape, "\\%03o", unsigned(byte));
            literal += escape;
        } else {
            if (c == '"' || c == '\\' || c == '?')
                literal += '\\';
            literal += c;
        }
    }
    return literal + "\"";
}

} // namespace

base::Result<> checkHeader(const std::string& path)
{
    const base::Result<base::OpenedFile> file = base::openRegular(path);
    if (!file)
        return file.error().code == base::ErrorCode::NotFound ? base::Result<>() : file.error();
    char start[kFirstLine.size()];
    const base::Result<size_t> length = base::readSome(file->descriptor.get(), base::asWritableBytes(std::span(start)));
    if (!length)
        return base::fileError("reading", path, length.error().systemError);
    if (*length == 0 || std::string_view(start, *length) == kFirstLine)
        return {};
    return base::Error{base::ErrorCode::Invalid,
                       path + ": this file was not generated with a bank and will not be replaced by its header"};
}

std::string cHeaderText(std::string_view bankName, std::span<const std::string_view> soundNames)
{
    const std::string prefix = asPrefix(bankName, true);
    const std::string guard = prefix + "_SOUNDS_H";
    const std::string count = prefix + "_COUNT";
    std::string text = std::string(kFirstLine) + "\n";
    text += "#ifndef " + guard + "\n#define " + guard + "\n\n";
    text += "#define " + count + " " + std::to_string(soundNames.size()) + "\n\n";

    std::unordered_map<std::string, unsigned> uses; // how often each identifier was requested
    for (size_t index = 0; index < soundNames.size(); ++index) {
        const std::string wanted = prefix + "_SOUND_" + asIdentifier(soundNames[index], true);
        std::string identifier = wanted;
        unsigned& useCount = uses[wanted];
        while (++useCount > 1) {
            identifier = wanted + "_" + std::to_string(useCount);
            if (uses.emplace(identifier, 1).second)
                break;
        }
        text += "#define " + identifier + " " + std::to_string(index) + "\n";
    }

    text += "\nstatic const char* const " + asPrefix(bankName, false) + "_names[" + count + "] = {";
    for (size_t index = 0; index < soundNames.size(); ++index)
        text += (index == 0 ? "\n    " : ",\n    ") + asLiteral(soundNames[index]);
    text += "\n};\n\n#endif\n";
    return text;
}

} // namespace builder
