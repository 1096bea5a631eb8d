// SPDX-License-Identifier: MIT
// Identifies our own files in folders that may contain files of others, which are neither removed nor replaced.
#pragma once

#include "base/file_descriptor.hpp"

#include <span>
#include <string>

namespace builder {

// The first bytes of a file. Each kind of file that the library stores has its own.
using Magic = std::span<const char, 8>;

// Opens a file for reading, without following a link or waiting for a pipe. Empty on failure.
base::FileDescriptor openOwn(const std::string& path);

// Whether a file is one of ours, or may be a damaged one: it starts with our magic, in which one byte may differ, or is
// shorter than the magic and starts like it.
bool startsWithMagic(int descriptor, Magic magic);

// Whether path exists and isn't a file of ours, so that it must be left alone.
bool isForeign(const std::string& path, Magic magic);

} // namespace builder
