// What is missing from an Ogg file, by its pages.
#pragma once

#include "parse/source_file.hpp"

#include <cstdint>

namespace kess {

// Samples that the streams of sound have lost: with pages missing between others (as their numbers show) or damaged,
// and with a last page that is cut short. As far as the positions on the pages don't show how many, at least 1 for
// each; 0 for a whole file. A file that ends after a whole page is taken for whole even without the mark of its end,
// and one may begin in the middle: that is how streams are recorded.
[[nodiscard]] uint64_t lostOggSamples(Cursor cursor);

} // namespace kess
