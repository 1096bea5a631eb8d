// SPDX-License-Identifier: MIT
#include "build/build_request.hpp"

#include "base/path.hpp"

#include <algorithm>

namespace builder {

namespace {

base::Error invalid(std::string text)
{
    return {base::ErrorCode::Invalid, std::move(text)};
}

} // namespace

base::Result<BuildRequest> checkRequest(const TARNOK_SUBSOUND* subsounds, unsigned numSubsounds, TARNOK_FORMAT format,
                                        unsigned buildFlags, unsigned quality, const char* encryptionKey,
                                        const char* outputFileName)
{
    if (!subsounds || numSubsounds == 0)
        return invalid("the list of sounds is empty");
    if (int(format) < 0 || size_t(format) >= bank::kCodecCount)
        return invalid("format " + std::to_string(int(format)) + " is unknown");
    if (quality > 100)
        return invalid("quality " + std::to_string(quality) + " is above 100");
    if (!outputFileName || !*outputFileName || base::baseName(outputFileName).empty())
        return invalid("the bank has no file name");
    if (encryptionKey && !*encryptionKey)
        return invalid("the encryption key is empty");

    BuildRequest request{
        {subsounds, numSubsounds}, {format, buildFlags, quality, nullptr}, std::nullopt, outputFileName, {}};
    if (encryptionKey)
        request.encryptionKey = encryptionKey;
    for (size_t index = 0; index < numSubsounds; ++index) {
        const TARNOK_SUBSOUND& subsound = subsounds[index];
        const auto isMissing = [](const char* name) {
            return !name || !*name;
        };
        if (subsound.numFiles == 0 || !subsound.fileNames
            || std::any_of(subsound.fileNames, subsound.fileNames + subsound.numFiles, isMissing))
            return invalid("sound " + std::to_string(index) + " has no file");
        if (!SoundSettings::isRate(subsound.desiredSampleRate))
            return invalid("sound " + std::to_string(index) + " has an invalid sample rate");
    }
    return request;
}

std::vector<std::string> sourcePaths(const TARNOK_SUBSOUND& subsound)
{
    return {subsound.fileNames, subsound.fileNames + subsound.numFiles};
}

std::string firstFile(const TARNOK_SUBSOUND& subsound)
{
    return std::string(base::baseName(subsound.fileNames[0]));
}

std::string_view soundName(const TARNOK_SUBSOUND& subsound)
{
    const std::string_view name = base::baseName(subsound.fileNames[0]);
    const size_t dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? name : name.substr(0, dot);
}

} // namespace builder
