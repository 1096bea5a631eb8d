// SPDX-License-Identifier: MIT
#include "support/remarks.hpp"

#include "base/utf8.hpp"

#include <cstring>
#include <utility>

namespace builder {

void Remarks::post(std::string text)
{
    const std::lock_guard lock(mMutex);
    if (mPosted.size() == kMaximumCount)
        text = "there are more remarks, which are not shown";
    if (mPosted.size() <= kMaximumCount && mPosted.insert(text).second)
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
    mPosted.clear();
    mWaiting.clear();
}

void copyCharacters(const std::string& text, char* buffer, size_t size)
{
    const std::string_view whole = base::cutAtCharacter(text, size - 1);
    std::memcpy(buffer, whole.data(), whole.size());
    buffer[whole.size()] = '\0';
}

} // namespace builder
