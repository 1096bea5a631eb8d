// SPDX-License-Identifier: MIT
// The parts of a path, as text.
#pragma once

#include <string>
#include <string_view>

namespace base {

// The last part of a path, as it appears in messages.
[[nodiscard]] std::string_view baseName(std::string_view path);

// The folder that contains path; "." for a name without folder.
[[nodiscard]] std::string parentFolder(std::string_view path);

// path without the extension of its last part. A dot at the start of a name doesn't begin an extension.
[[nodiscard]] std::string_view withoutExtension(std::string_view path);

} // namespace base
