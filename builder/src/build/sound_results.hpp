// SPDX-License-Identifier: MIT
// The results of the sounds of a build.
#pragma once

#include "base/result.hpp"
#include "cache/encoded_location.hpp"

#include <atomic>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace builder {

// Workers may store results at the same time, but not for the same sound.
class SoundResults
{
public:
    explicit SoundResults(size_t count);

    [[nodiscard]] size_t count() const { return mLocations.size(); }

    void setEncoded(size_t index, EncodedLocation location);
    void setFailed(size_t index, const base::Error& error);

    // The location of an encoded sound; null if it has failed or isn't encoded yet.
    [[nodiscard]] const EncodedLocation* find(size_t index) const;

    // Whether a bank can be made of the results. If not, the code is that of the first failed sound in the list, and
    // the text names up to five. ErrorCode::NothingLeft: failures are ignored, but all sounds have failed.
    // ErrorCode::Memory: a sound has no result, not even a failure.
    [[nodiscard]] base::Result<> verdict(bool ignoreFailures) const;

private:
    [[nodiscard]] std::string failedSounds() const;

    std::vector<std::optional<EncodedLocation>> mLocations; // by index of the sound
    std::vector<std::atomic<bool>> mIsEncoded; // so that other workers may read the location
    mutable std::mutex mMutex;
    size_t mFailedCount = 0;
    std::map<size_t, base::Error> mFirstErrors; // of the first failed sounds in the list, by index
};

} // namespace builder
