// SPDX-License-Identifier: MIT
#include "build/sound_results.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace builder {

namespace {

// Number of failed sounds that the report on the bank names.
constexpr size_t kErrorsInReport = 5;

} // namespace

SoundResults::SoundResults(size_t count)
    : mLocations(count)
    , mIsEncoded(count)
{ }

void SoundResults::setEncoded(size_t index, EncodedLocation location)
{
    mLocations[index] = std::move(location);
    mIsEncoded[index] = true;
}

void SoundResults::setFailed(size_t index, const base::Error& error)
{
    mIsEncoded[index] = false;
    mLocations[index].reset();
    const std::lock_guard lock(mMutex);
    ++mFailedCount;
    mFirstErrors.emplace(index, error);
    if (mFirstErrors.size() > kErrorsInReport)
        mFirstErrors.erase(std::prev(mFirstErrors.end()));
}

const EncodedLocation* SoundResults::find(size_t index) const
{
    return mIsEncoded[index] ? &*mLocations[index] : nullptr;
}

base::Result<> SoundResults::verdict(bool ignoreFailures) const
{
    const std::lock_guard lock(mMutex);
    const auto encoded = size_t(std::count(mIsEncoded.begin(), mIsEncoded.end(), true));
    if (encoded + mFailedCount < count())
        return base::outOfMemory();
    if (mFailedCount == 0)
        return {};
    if (!ignoreFailures)
        return base::Error{mFirstErrors.begin()->second.code, failedSounds()};
    if (encoded == 0)
        return base::Error{base::ErrorCode::NothingLeft, failedSounds()};
    return {};
}

// A summary: each failure was reported when it happened, which may be long ago.
std::string SoundResults::failedSounds() const
{
    std::string text = mFailedCount == count()
        ? "none of the sounds could be built"
        : std::to_string(mFailedCount) + " of " + std::to_string(count()) + " sounds could not be built";
    for (const auto& [index, error] : mFirstErrors)
        text += "\n  " + std::to_string(index) + ": " + error.text;
    if (mFailedCount > mFirstErrors.size())
        text += "\n  and " + std::to_string(mFailedCount - mFirstErrors.size()) + " more";
    return text;
}

} // namespace builder
