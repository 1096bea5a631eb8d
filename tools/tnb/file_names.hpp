// Names of files for sounds, whatever the sounds are called.
#pragma once

#include <string>
#include <vector>

namespace tnb {

// A name with the ending .wav for each sound, in the same order. None leads out of a folder, is hidden, or is longer
// than file systems take; no two are equal, upper and lower case of ASCII letters taken for the same. A sound gets the
// same name whichever of the others are extracted with it.
[[nodiscard]] std::vector<std::string> fileNames(const std::vector<std::string>& soundNames);

} // namespace tnb
