// The parts of a path, as text.
#pragma once

#include <string>
#include <string_view>

namespace base {

// The last part of a path, as it appears in messages.
[[nodiscard]] std::string_view baseName(std::string_view path);

// The folder that holds path: "." for a bare name.
[[nodiscard]] std::string folderOf(std::string_view path);

// path without the extension of its last part. A dot at the beginning of a name does not begin an extension.
[[nodiscard]] std::string_view withoutExtension(std::string_view path);

} // namespace base
