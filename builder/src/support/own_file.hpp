// Files of ours in folders where others may put files, too: what isn't ours is neither removed nor replaced.
#pragma once

#include "base/file_descriptor.hpp"

#include <span>
#include <string>

namespace tarnok {

// The first bytes of each kind of file that the library keeps.
using Magic = std::span<const char, 8>;

// Opens a file for reading, without following a link and without waiting for a pipe. Empty when that fails.
base::FileDescriptor openOwn(const std::string& path);

// Whether a file is one of ours, or may be one that has been damaged: it begins with our magic but for one byte, or
// ends within it.
bool startsWithMagic(int descriptor, Magic magic);

// Whether there is something at path that somebody else has put there and would miss.
bool isForeign(const std::string& path, Magic magic);

} // namespace tarnok
