// SPDX-License-Identifier: MIT
#include "parse/ogg_check.hpp"

#include "parse/comments.hpp"
#include "parse/ogg_packets.hpp"
#include "parse/ogg_pages.hpp"

#include <ogg/ogg.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

namespace engine {

namespace {

constexpr size_t kHeaderBytes = 27;
constexpr size_t kMaximumFirstPages = 4096;

// Headers inside other pages: damage causes one of them, and four bytes of sound look like one in 4 GB. A library may
// find all of them again in each link.
constexpr uint64_t kMaximumStrays = 1024;
constexpr uint64_t kMaximumStraysInLinks = 8192;

constexpr uint64_t kMaximumCommentPacketBytes = 16u << 20;
constexpr uint64_t kMaximumCommentBytes = 64u << 20;
constexpr size_t kMaximumHeaderPages = 65536; // pages read for the comments of all streams

base::Error tooManyPages()
{
    return {base::ErrorCode::Damaged, "too many of its pages begin inside other pages"};
}

// Finds everything in a file that could be taken for the header of a page, by its first four bytes.
class PageSearch
{
public:
    explicit PageSearch(const RecognisedFile& file)
        : mFile(*file.file)
        , mBegin(file.kind.begin)
        , mEnd(file.kind.end)
    { }

    // Returns false if a limit is exceeded.
    [[nodiscard]] bool run()
    {
        constexpr size_t kBlock = 256u << 10;
        constexpr std::array<char, 4> kCapture{'O', 'g', 'g', 'S'};
        std::vector<char> block(kBlock);
        for (uint64_t from = mBegin; from < mEnd;) {
            const auto wanted = static_cast<size_t>(std::min<uint64_t>(kBlock, mEnd - from));
            const size_t got = mFile.readAt(from, block.data(), wanted);
            const char* const end = block.data() + got;
            const char* at = block.data();
            while (const void* found = memmem(at, static_cast<size_t>(end - at), kCapture.data(), kCapture.size())) {
                at = static_cast<const char*>(found);
                if (!count(from + static_cast<uint64_t>(at - block.data())))
                    return false;
                at += kCapture.size();
            }
            if (got < wanted || from + got == mEnd)
                return true;
            from += got - (kCapture.size() - 1);
        }
        return true;
    }

    // Offsets from the start of the range.
    [[nodiscard]] const std::vector<uint64_t>& firstPages() const { return mFirstPages; }

private:
    bool count(uint64_t offset)
    {
        std::array<uint8_t, kHeaderBytes + 255> header{};
        if (mFile.readAt(offset, header.data(), header.size()) < kHeaderBytes)
            return true;
        if (offset < mPageEnd) {
            ++mStrays;
        } else {
            const size_t segments = header[26];
            mPageEnd = offset + kHeaderBytes + segments;
            for (size_t i = 0; i < segments; ++i)
                mPageEnd += header[kHeaderBytes + i];
        }
        // checkOggStreams refuses more of them, and nothing else counts them.
        if (header[5] & 2 && mFirstPages.size() <= kMaximumFirstPages)
            mFirstPages.push_back(offset - mBegin);
        return mStrays <= kMaximumStrays && mStrays * mFirstPages.size() <= kMaximumStraysInLinks;
    }

    const InputFile& mFile;
    uint64_t mBegin;
    uint64_t mEnd;
    uint64_t mPageEnd = 0;
    uint64_t mStrays = 0;
    std::vector<uint64_t> mFirstPages;
};

// Adds up the comments of all streams. It reads their pages with the same library as the decoders.
class CommentSum
{
public:
    explicit CommentSum(OggPages& pages)
        : mPages(pages)
    {
        ogg_stream_init(&mStream, 0);
    }
    ~CommentSum() { ogg_stream_clear(&mStream); }
    CommentSum(const CommentSum&) = delete;
    CommentSum& operator=(const CommentSum&) = delete;

    // Adds those of the stream whose first page is at that offset. Returns false if a limit is exceeded.
    [[nodiscard]] bool add(uint64_t firstPage)
    {
        ogg_page page;
        uint64_t offset = 0;
        if (!mPages.seek(firstPage) || !mPages.next(&page, &offset) || !ogg_page_bos(&page))
            return true;
        const int serial = ogg_page_serialno(&page);
        ogg_stream_reset_serialno(&mStream, serial);
        ogg_packet packet;
        if (ogg_stream_pagein(&mStream, &page) != 0 || ogg_stream_packetout(&mStream, &packet) != 1)
            return true;
        return addSecondPacket(serial, commentOffset(recogniseOggCodec(asBytes(packet))));
    }

    [[nodiscard]] uint64_t count() const { return mCount; }

private:
    static std::span<const uint8_t> asBytes(const ogg_packet& packet)
    {
        return {packet.packet, static_cast<size_t>(packet.bytes)};
    }

    // The comments begin at that offset of the packet.
    [[nodiscard]] bool addSecondPacket(int serial, size_t commentsBegin)
    {
        ogg_page page;
        uint64_t offset = 0;
        ogg_packet packet;
        uint64_t bytes = 0;
        bool isAmongFirst = true;
        while (mPages.next(&page, &offset)) {
            if (++mPagesRead > kMaximumHeaderPages)
                return false;
            if (ogg_page_bos(&page) && !isAmongFirst)
                return true; // the next link
            isAmongFirst = ogg_page_bos(&page);
            if (ogg_page_serialno(&page) != serial)
                continue;
            bytes += static_cast<uint64_t>(page.body_len);
            if (bytes > kMaximumCommentPacketBytes || ogg_stream_pagein(&mStream, &page) != 0)
                return false;
            const int got = ogg_stream_packetout(&mStream, &packet);
            if (got == 0)
                continue;
            if (got > 0) {
                const std::span<const uint8_t> all = asBytes(packet);
                mCount += countComments(all.subspan(std::min(commentsBegin, all.size())));
                mBytes += static_cast<uint64_t>(packet.bytes);
            }
            return mBytes <= kMaximumCommentBytes;
        }
        return true;
    }

    OggPages& mPages;
    ogg_stream_state mStream;
    size_t mPagesRead = 0;
    uint64_t mCount = 0;
    uint64_t mBytes = 0;
};

} // namespace

base::Result<> checkOggPages(const RecognisedFile& file)
{
    if (!PageSearch(file).run())
        return tooManyPages();
    return {};
}

base::Result<> checkOggStreams(const RecognisedFile& file, uint64_t maximumComments)
{
    PageSearch search(file);
    if (!search.run() || search.firstPages().size() > kMaximumFirstPages)
        return tooManyPages();
    OggPages pages(file.cursor());
    CommentSum comments(pages);
    for (const uint64_t page : search.firstPages()) {
        if (!comments.add(page) || comments.count() > maximumComments)
            return base::Error{base::ErrorCode::Damaged, "it has too many comments"};
    }
    return {};
}

} // namespace engine
