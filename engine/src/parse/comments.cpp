// SPDX-License-Identifier: MIT
#include "parse/comments.hpp"

#include "base/bytes.hpp"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

namespace engine {

namespace {

constexpr size_t kMaximumComments = 65536;
constexpr size_t kMaximumCommentBytes = 1024; // longer ones are skipped
constexpr size_t kLengthBytes = 4;

// Reads numbers and texts from the front of a block.
class BlockReader
{
public:
    explicit BlockReader(std::span<const uint8_t> block)
        : mRest(block)
    { }

    [[nodiscard]] size_t bytesLeft() const { return mRest.size(); }

    std::optional<uint32_t> number()
    {
        if (mRest.size() < kLengthBytes)
            return std::nullopt;
        const auto value = base::loadLittle<uint32_t>(mRest.data());
        mRest = mRest.subspan(kLengthBytes);
        return value;
    }

    // A text that is preceded by its length.
    std::optional<std::string_view> text()
    {
        const std::optional<uint32_t> bytes = number();
        if (!bytes || *bytes > mRest.size())
            return std::nullopt;
        const std::string_view text(reinterpret_cast<const char*>(mRest.data()), *bytes);
        mRest = mRest.subspan(*bytes);
        return text;
    }

private:
    std::span<const uint8_t> mRest;
};

std::string inCapitals(std::string_view text)
{
    std::string capitals(text);
    for (char& character : capitals) {
        if (character >= 'a' && character <= 'z')
            character = char(character - 'a' + 'A');
    }
    return capitals;
}

} // namespace

Comments parseComments(std::span<const uint8_t> block)
{
    Comments comments;
    BlockReader reader(block);
    if (!reader.text())
        return comments;
    const uint32_t count = reader.number().value_or(0);
    for (uint32_t i = 0; i < count && comments.size() < kMaximumComments; ++i) {
        const std::optional<std::string_view> comment = reader.text();
        if (!comment)
            break;
        const size_t equals = comment->find('=');
        if (equals != comment->npos && comment->size() <= kMaximumCommentBytes)
            comments.emplace(inCapitals(comment->substr(0, equals)), comment->substr(equals + 1));
    }
    return comments;
}

uint64_t countComments(std::span<const uint8_t> block)
{
    BlockReader reader(block);
    if (!reader.text())
        return 0;
    const uint64_t count = reader.number().value_or(0);
    return std::min<uint64_t>(count, reader.bytesLeft() / kLengthBytes);
}

} // namespace engine
