// What a person should know of a build that is no failure.
#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <utility>

namespace tarnok {

// Keeps remarks in the order in which they were made, until somebody fetches them.
class Remarks
{
public:
    void add(std::string text)
    {
        const std::lock_guard lock(mMutex);
        mWaiting.push_back(std::move(text));
    }

    // The oldest one, or null. It stays as it is until the next call.
    const char* fetch()
    {
        const std::lock_guard lock(mMutex);
        if (mWaiting.empty())
            return nullptr;
        mFetched = std::move(mWaiting.front());
        mWaiting.pop_front();
        return mFetched.c_str();
    }

    // Forgets what nobody fetched.
    void clear()
    {
        const std::lock_guard lock(mMutex);
        mWaiting.clear();
    }

private:
    std::mutex mMutex;
    std::deque<std::string> mWaiting;
    std::string mFetched;
};

} // namespace tarnok
