// SPDX-License-Identifier: MIT
// The pages of an Ogg stream, read with libogg.
#pragma once

#include "parse/cursor.hpp"

#include <ogg/ogg.h>

#include <cstdint>
#include <span>

namespace engine {

class OggPages
{
public:
    explicit OggPages(Cursor cursor);
    ~OggPages();
    OggPages(const OggPages&) = delete;
    OggPages& operator=(const OggPages&) = delete;

    // Continues at a byte offset, which is the start of a page.
    [[nodiscard]] bool seek(uint64_t offset);

    // Reads the next whole page with a correct checksum and stores its offset. Returns false at the end. The page is
    // valid until the next call.
    [[nodiscard]] bool next(ogg_page* page, uint64_t* offset);

    // At the end: the bytes after the last whole page, where another page may begin. Valid until the next call.
    [[nodiscard]] std::span<const uint8_t> rest() const;

private:
    Cursor mCursor;
    ogg_sync_state mSync;
    uint64_t mOffset = 0; // of the first byte that libogg still holds
};

} // namespace engine
