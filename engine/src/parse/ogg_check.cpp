#include "parse/ogg_check.hpp"

#include "parse/bytes.hpp"
#include "parse/vorbis_stream.hpp"

#include <ogg/ogg.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

namespace kess {

namespace {

constexpr size_t kHeaderBytes = 27;
constexpr size_t kMaxFirstPages = 4096;

// Headers inside other pages: damage makes one of them, and four bytes of sound look like one in 4 GB. A library may
// meet all of them again in each link.
constexpr uint64_t kMaxStrays = 1024;
constexpr uint64_t kMaxStraysInLinks = 8192;

constexpr uint64_t kMaxCommentPacket = 16u << 20;
constexpr uint64_t kMaxCommentBytes = 64u << 20;
constexpr size_t kMaxHeaderPages = 65536; // pages looked at for the comments of all streams

// Finds everything in a file that could be taken for the header of a page, by its first four bytes.
class PageSearch
{
public:
    PageSearch(const SourceFile& file, const FileKind& kind)
        : mFile(file)
        , mBegin(kind.begin)
        , mEnd(kind.end)
    { }

    // False when there is more than is bearable.
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

    // Offsets from the start of the stretch.
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
        // More of them are counted by nobody but oggIsBearable, which refuses them.
        if (header[5] & 2 && mFirstPages.size() <= kMaxFirstPages)
            mFirstPages.push_back(offset - mBegin);
        return mStrays <= kMaxStrays && mStrays * mFirstPages.size() <= kMaxStraysInLinks;
    }

    const SourceFile& mFile;
    uint64_t mBegin;
    uint64_t mEnd;
    uint64_t mPageEnd = 0;
    uint64_t mStrays = 0;
    std::vector<uint64_t> mFirstPages;
};

// The number of comments in the second packet of a stream.
uint64_t commentsIn(std::span<const uint8_t> packet)
{
    size_t position = 0;
    if (packet.size() >= 8 && std::memcmp(packet.data(), "OpusTags", 8) == 0)
        position = 8;
    else if (packet.size() >= 7 && std::memcmp(packet.data(), "\3vorbis", 7) == 0)
        position = 7;
    if (packet.size() < position + 8)
        return 0;
    const uint64_t vendorBytes = le32(&packet[position]);
    if (vendorBytes > packet.size() - position - 8)
        return 0;
    // No more than their lengths have room for: a library refuses the packet otherwise.
    const uint64_t room = (packet.size() - position - 8 - vendorBytes) / 4;
    return std::min<uint64_t>(le32(&packet[position + 4 + static_cast<size_t>(vendorBytes)]), room);
}

// Adds up the comments of all streams, whose pages it reads by the library that all decoders read them by.
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

    // Adds those of the stream whose first page is at an offset. False when there is more than is bearable.
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
        uint64_t bytes = 0;
        bool isAmongFirst = true;
        while (mPages.next(&page, &offset)) {
            if (++mLooked > kMaxHeaderPages)
                return false;
            if (ogg_page_bos(&page) && !isAmongFirst)
                return true; // the next link
            isAmongFirst = ogg_page_bos(&page);
            if (ogg_page_serialno(&page) != serial)
                continue;
            bytes += static_cast<uint64_t>(page.body_len);
            if (bytes > kMaxCommentPacket || ogg_stream_pagein(&mStream, &page) != 0)
                return false;
            const int got = ogg_stream_packetout(&mStream, &packet);
            if (got == 0)
                continue;
            if (got > 0) {
                mCount += commentsIn({packet.packet, static_cast<size_t>(packet.bytes)});
                mBytes += static_cast<uint64_t>(packet.bytes);
            }
            return mBytes <= kMaxCommentBytes;
        }
        return true;
    }

    [[nodiscard]] uint64_t count() const { return mCount; }

private:
    OggPages& mPages;
    ogg_stream_state mStream;
    size_t mLooked = 0;
    uint64_t mCount = 0;
    uint64_t mBytes = 0;
};

} // namespace

bool oggPagesAreBearable(const FilePointer& file, const FileKind& kind)
{
    return PageSearch(*file, kind).run();
}

bool oggIsBearable(const FilePointer& file, const FileKind& kind, uint64_t mostComments)
{
    PageSearch search(*file, kind);
    if (!search.run() || search.firstPages().size() > kMaxFirstPages)
        return false;
    OggPages pages(Cursor(file, kind.begin, kind.end));
    CommentSum comments(pages);
    for (const uint64_t page : search.firstPages()) {
        if (!comments.add(page) || comments.count() > mostComments)
            return false;
    }
    return true;
}

} // namespace kess
