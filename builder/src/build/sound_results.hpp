// What became of the sounds of a build.
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

namespace tarnok {

// Workers store their results side by side, each sound by one of them at a time.
class SoundResults
{
public:
    explicit SoundResults(size_t count);

    [[nodiscard]] size_t count() const { return mLocations.size(); }

    void setEncoded(size_t index, EncodedLocation location);
    void setFailed(size_t index, const base::Error& error);

    // Where an encoded sound is; null: it has failed, or is not encoded yet.
    [[nodiscard]] const EncodedLocation* find(size_t index) const;

    // Whether a bank can be made of the results. If not, the code is that of the first failed sound in the list and the
    // text names up to five. ErrorCode::NothingLeft: failed sounds are ignored, but there is no other.
    // ErrorCode::Memory: a sound has no result, not even a failure.
    [[nodiscard]] base::Result<> verdict(bool ignoreFailures) const;

private:
    [[nodiscard]] std::string failedSounds() const;

    std::vector<std::optional<EncodedLocation>> mLocations; // by sound
    std::vector<std::atomic<bool>> mIsEncoded; // so that other workers may read the location
    mutable std::mutex mMutex;
    size_t mFailedCount = 0;
    std::map<size_t, base::Error> mFirstErrors; // of the first failed sounds in the list
};

} // namespace tarnok
