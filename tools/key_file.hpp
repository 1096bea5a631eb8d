// SPDX-License-Identifier: MIT
// The key of an encrypted bank, read from a file, where other users of the machine can't see it.
#pragma once

#include <fstream>
#include <iostream>
#include <string>

// Stores the first line of a file in *key, without what editors add invisibly: a byte order mark, and blanks at the
// end. "-" means standard input. Returns the reason for a failure, or an empty text.
inline std::string readKeyFile(const std::string& file, std::string* key)
{
    std::ifstream stream;
    if (file != "-")
        stream.open(file, std::ios::binary);
    std::istream& input = file == "-" ? std::cin : stream;
    constexpr size_t kMaximumBytes = 1 << 20; // devices have lines without an end
    std::string line;
    char c = 0;
    while (line.size() <= kMaximumBytes && input.get(c) && c != '\n')
        line += c;
    if (line.size() > kMaximumBytes)
        return "the first line of " + file + " is too long for a key";
    if (line.empty() && c != '\n')
        return "can't read the key from " + file;
    if (line.starts_with("\xff\xfe") || line.starts_with("\xfe\xff"))
        return file + " is in UTF-16; a key is read in UTF-8";
    if (line.starts_with("\xef\xbb\xbf"))
        line.erase(0, 3);
    line.erase(line.find_last_not_of(" \t\r") + 1);
    if (line.empty())
        return "no key in the first line of " + file;
    if (line.find('\0') != std::string::npos)
        return "a zero byte in the first line of " + file;
    *key = std::move(line);
    return "";
}
