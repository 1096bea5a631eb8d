#include "support/remarks.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tarnok {

void Remarks::post(std::string text)
{
    const std::lock_guard lock(mMutex);
    if (mMade.size() == kMost)
        text = "there are more remarks, which are left out";
    if (mMade.size() <= kMost && mMade.insert(text).second)
        mWaiting.push_back(std::move(text));
}

std::string Remarks::fetch()
{
    const std::lock_guard lock(mMutex);
    if (mWaiting.empty())
        return {};
    std::string text = std::move(mWaiting.front());
    mWaiting.pop_front();
    return text;
}

void Remarks::beginBuild()
{
    const std::lock_guard lock(mMutex);
    mMade.clear();
    mWaiting.clear();
}

void copyCharacters(const std::string& text, char* room, size_t size)
{
    size_t count = std::min(text.size(), size - 1);
    const auto continues = [&text](size_t index) {
        return index < text.size() && (static_cast<unsigned char>(text[index]) & 0xc0u) == 0x80;
    };
    while (count > 0 && continues(count))
        --count;
    std::memcpy(room, text.data(), count);
    room[count] = '\0';
}

} // namespace tarnok
