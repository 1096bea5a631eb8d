// What a person should know of a build though nothing failed.
#pragma once

#include <deque>
#include <mutex>
#include <set>
#include <string>

namespace tarnok {

// Keeps remarks in the order in which they came, each text once in a build. Safe to use by several threads.
class Remarks
{
public:
    // Appends a sentence, UTF-8 without a line end. One that this build has made before is dropped, and so is what
    // comes after the first kMaximumCount; the last one then says that there are more.
    void post(std::string text);

    // The oldest remark that was not fetched yet; empty when there is none.
    std::string fetch();

    // Forgets what the build before has said.
    void beginBuild();

    static constexpr size_t kMaximumCount = 10'000; // in one build

private:
    std::mutex mMutex;
    std::set<std::string> mMade;
    std::deque<std::string> mWaiting;
};

// Copies text into buffer of `size` bytes, as many whole characters as fit, with a NUL at the end. size is at least 1.
void copyCharacters(const std::string& text, char* buffer, size_t size);

} // namespace tarnok
