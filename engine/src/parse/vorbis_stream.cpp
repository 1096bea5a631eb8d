#include "parse/vorbis_stream.hpp"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <span>
#include <utility>

namespace kess {

namespace {

constexpr long kReadBytes = 8192;

// More sounds than this in one file are no sound file but a stream's recording.
constexpr size_t kMaxLinks = 4096;

// The tables of all different headers of a chain. Those of some fifty encoders fit in.
constexpr uint64_t kMostTableBytes = 64u << 20;

// No packet of sound is that long, nor are comments with a picture in them. A damaged file may never end one.
constexpr long kLongestPacket = 16l << 20;

// An ogg_stream_state that ends by itself.
class PacketStream
{
public:
    explicit PacketStream(int serial) { ogg_stream_init(&mState, serial); }
    ~PacketStream() { ogg_stream_clear(&mState); }
    PacketStream(const PacketStream&) = delete;
    PacketStream& operator=(const PacketStream&) = delete;
    ogg_stream_state* state() { return &mState; }

private:
    ogg_stream_state mState;
};

// Goes through the packets of one sound and counts.
class LinkMeasure
{
public:
    LinkMeasure(VorbisMap& map, int serial, int64_t start)
        : mMap(map)
        , mStream(serial)
    {
        mLink.headers = std::make_shared<VorbisHeaders>();
        mLink.serial = serial;
        mLink.start = start;
    }

    [[nodiscard]] int serial() const { return mLink.serial; }

    void add(ogg_page* page, uint64_t offset)
    {
        if (ogg_stream_pagein(mStream.state(), page) != 0)
            return;
        bool beginsHere = !ogg_page_continued(page);
        bool isMarked = false;
        ogg_packet packet;
        for (int got; !mFailed && (got = ogg_stream_packetout(mStream.state(), &packet)) != 0; beginsHere = true) {
            if (got < 0) {
                isMarked = true; // pages are missing: what begins where isn't known here
                continue;
            }
            if (!mLink.headers->complete()) {
                addHeader(packet);
                continue;
            }
            if (!count(packet) || !beginsHere || isMarked)
                continue;
            mPoints.push_back(VorbisSeekPoint{offset, mMap.links.size(), mProduced});
            isMarked = true;
        }
        const ogg_stream_state& state = *mStream.state();
        mFailed = mFailed || state.body_fill - state.body_returned > kLongestPacket;
    }

    // Whether the file is to be refused for this sound's headers.
    [[nodiscard]] bool isRefused() const { return mIsRefused; }

    // Adds the sound to the map; false when it has no headers, or doesn't fit the sounds before it.
    [[nodiscard]] bool finish()
    {
        if (mFailed || !mLink.headers->complete())
            return false;
        const vorbis_info* info = mLink.headers->info();
        if (!mMap.links.empty()) {
            const vorbis_info* first = mMap.links.front().headers->info();
            if (first->channels != info->channels || first->rate != info->rate)
                return false;
        }
        // Where the first position in the file is less than the samples up to it, so many are cut from the start.
        const int64_t base = mBase.value_or(0);
        const int64_t cutAtStart = base < 0 ? -base : 0;
        int64_t length = mProduced - cutAtStart;
        if (mLastPosition && *mLastPosition - base - cutAtStart < length)
            length = *mLastPosition - base - cutAtStart;
        mLink.end = mLink.start + std::max<int64_t>(length, 0);
        for (VorbisSeekPoint& point : mPoints) {
            point.sample += mLink.start - cutAtStart;
            mMap.points.push_back(point);
        }
        mLink.first = mLink.start - cutAtStart;
        mMap.links.push_back(std::move(mLink));
        return true;
    }

private:
    void addHeader(const ogg_packet& packet)
    {
        const std::span<const uint8_t> bytes(packet.packet, static_cast<size_t>(packet.bytes));
        if (!mLink.headers->awaitsSetup()) {
            mFailed = !mLink.headers->add(bytes);
            return;
        }
        // Sounds of one encoder have the same headers.
        const auto same = std::find_if(mMap.links.begin(), mMap.links.end(), [&](const VorbisLink& link) {
            return mLink.headers->wouldEqual(*link.headers, bytes);
        });
        if (same != mMap.links.end()) {
            mLink.headers = same->headers;
            return;
        }
        mIsRefused = !mLink.headers->add(bytes);
        mMap.tableBytes += mLink.headers->tableBytes();
        mIsRefused = mIsRefused || mMap.tableBytes > kMostTableBytes;
        mFailed = mIsRefused;
    }

    // False for what isn't sound.
    bool count(ogg_packet& packet)
    {
        const long block = vorbis_packet_blocksize(mLink.headers->info(), &packet);
        if (block <= 0)
            return false;
        mProduced += vorbisPacketSamples(mBlock, block);
        mBlock = block;
        // No sound is that long; sums of what is left don't overflow.
        constexpr int64_t kMostPosition = int64_t{1} << 62;
        if (packet.granulepos < 0 || packet.granulepos > kMostPosition)
            return true;
        if (packet.e_o_s)
            mLastPosition = packet.granulepos;
        else if (!mBase)
            mBase = packet.granulepos - mProduced;
        return true;
    }

    VorbisMap& mMap;
    PacketStream mStream;
    VorbisLink mLink;
    std::vector<VorbisSeekPoint> mPoints;
    bool mFailed = false;
    bool mIsRefused = false;
    long mBlock = 0;
    int64_t mProduced = 0;
    std::optional<int64_t> mBase; // the file's position of the first sample
    std::optional<int64_t> mLastPosition; // that of the end, if the sound has one
};

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

bool mapVorbis(OggPages& pages, VorbisMap* map)
{
    if (!pages.seek(0))
        return false;
    std::unique_ptr<LinkMeasure> link;
    ogg_page page;
    uint64_t offset = 0;
    while (pages.next(&page, &offset)) {
        const int serial = ogg_page_serialno(&page);
        if (ogg_page_bos(&page)) {
            if (link && link->isRefused())
                return false;
            if (link && !link->finish())
                return !map->links.empty();
            if (map->links.size() == kMaxLinks)
                return true;
            const int64_t start = map->links.empty() ? 0 : map->links.back().end;
            link = std::make_unique<LinkMeasure>(*map, serial, start);
        }
        if (link && serial == link->serial())
            link->add(&page, offset);
    }
    if (!link || link->isRefused())
        return false;
    static_cast<void>(link->finish());
    return !map->links.empty();
}

} // namespace kess
