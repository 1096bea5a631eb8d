// What a build is asked to do.
#pragma once

#include "base/result.hpp"
#include "encode/sound_settings.hpp"
#include "tarnok.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarnok {

// The arguments of one build, checked (see checkRequest).
struct BuildRequest
{
    std::span<const TARNOK_SUBSOUND> subsounds;
    BuildSettings settings;
    std::optional<std::string> encryptionKey;
    std::string outputFile;
};

// Puts the arguments of Tarnok_Build together. ErrorCode::Invalid, with a text that names the argument, where no build
// can be made of them.
base::Result<BuildRequest> checkRequest(const TARNOK_SUBSOUND* subsounds, unsigned numSubsounds, TARNOK_FORMAT format,
                                        unsigned buildFlags, unsigned quality, const char* encryptionKey,
                                        const char* outputFileName);

// The files of a sound.
std::vector<std::string> sourcePaths(const TARNOK_SUBSOUND& subsound);

// The first of them without its folder, as it appears in messages.
std::string firstFile(const TARNOK_SUBSOUND& subsound);

// The name of a sound in its bank: that of its first file without folder and extension.
std::string_view soundName(const TARNOK_SUBSOUND& subsound);

} // namespace tarnok
