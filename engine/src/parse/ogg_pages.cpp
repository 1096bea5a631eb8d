// SPDX-License-Identifier: MIT
#include "parse/ogg_pages.hpp"

#include <cstdio>
#include <utility>

namespace engine {

namespace {

constexpr long kReadBytes = 8192;

} // namespace

OggPages::OggPages(Cursor cursor)
    : mCursor(std::move(cursor))
{
    ogg_sync_init(&mSync);
}

OggPages::~OggPages()
{
    ogg_sync_clear(&mSync);
}

bool OggPages::seek(uint64_t offset)
{
    ogg_sync_reset(&mSync);
    mOffset = offset;
    return mCursor.seek(static_cast<int64_t>(offset), SEEK_SET) >= 0;
}

bool OggPages::next(ogg_page* page, uint64_t* offset)
{
    for (;;) {
        const long got = ogg_sync_pageseek(&mSync, page);
        if (got > 0) {
            *offset = mOffset;
            mOffset += static_cast<uint64_t>(got);
            return true;
        }
        if (got < 0) {
            mOffset += static_cast<uint64_t>(-got);
            continue;
        }
        char* buffer = ogg_sync_buffer(&mSync, kReadBytes);
        if (!buffer)
            return false;
        const size_t count = mCursor.read(buffer, kReadBytes);
        if (count == 0 || ogg_sync_wrote(&mSync, static_cast<long>(count)) != 0)
            return false;
    }
}

std::span<const uint8_t> OggPages::rest() const
{
    return {mSync.data + mSync.returned, static_cast<size_t>(mSync.fill - mSync.returned)};
}

} // namespace engine
