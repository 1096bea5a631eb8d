// SPDX-License-Identifier: MIT
// Sentences for the user about what didn't fail in a build but should be known.
#pragma once

#include <deque>
#include <mutex>
#include <set>
#include <string>

namespace builder {

// A queue of remarks, in which each text appears once per build. Safe to use from several threads.
class Remarks
{
public:
    // Appends a sentence in UTF-8 without a line end. Dropped if this build has posted the same text before. After
    // kMaximumCount remarks one is added that says that there are more, and all further ones are dropped.
    void post(std::string text);

    // The oldest remark that was not fetched yet; empty if there is none.
    std::string fetch();

    // Discards the remarks of the previous build.
    void beginBuild();

    static constexpr size_t kMaximumCount = 10'000; // in one build

private:
    std::mutex mMutex;
    std::set<std::string> mPosted;
    std::deque<std::string> mWaiting;
};

// Copies as many whole characters of text as fit into a buffer of `size` bytes, followed by a NUL. size is at least 1.
void copyCharacters(const std::string& text, char* buffer, size_t size);

} // namespace builder
