// SPDX-License-Identifier: MIT
// The arguments of one build.
#pragma once

#include "base/result.hpp"
#include "encode/sound_settings.hpp"
#include "tarnok.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace builder {

// The arguments of one build, validated by checkRequest().
struct BuildRequest
{
    std::span<const TARNOK_SUBSOUND> subsounds;
    BuildSettings settings;
    std::optional<std::string> encryptionKey;
    std::string outputFile;
    std::string headerFile = {}; // empty: beside the bank
};

// Validates the arguments of Tarnok_Build. ErrorCode::Invalid, with a text that names the argument, if they can't be
// built.
base::Result<BuildRequest> checkRequest(const TARNOK_SUBSOUND* subsounds, unsigned numSubsounds, TARNOK_FORMAT format,
                                        unsigned buildFlags, unsigned quality, const char* encryptionKey,
                                        const char* outputFileName);

// The paths of a sound's files.
std::vector<std::string> sourcePaths(const TARNOK_SUBSOUND& subsound);

// The name of the first file without its folder, for messages.
std::string firstFile(const TARNOK_SUBSOUND& subsound);

// The name of a sound in its bank: the name of its first file without folder and extension.
std::string_view soundName(const TARNOK_SUBSOUND& subsound);

} // namespace builder
