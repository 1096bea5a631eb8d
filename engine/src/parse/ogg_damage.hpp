// SPDX-License-Identifier: MIT
// How much of an Ogg file is missing, according to its pages.
#pragma once

#include "parse/cursor.hpp"

#include <cstdint>

namespace engine {

// The samples that the streams have lost: with missing pages (as the page numbers show), damaged pages, and a last page
// that is cut short. Where the positions of the pages don't show how many, at least 1 for each. 0 for a complete file.
// A file that ends after a complete page counts as complete, even without the mark of its end. A file may begin in the
// middle of a stream, as recordings of streams do.
[[nodiscard]] uint64_t lostOggSamples(Cursor cursor);

} // namespace engine
