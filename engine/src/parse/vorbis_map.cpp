// SPDX-License-Identifier: MIT
#include "parse/vorbis_map.hpp"

#include "parse/chained_sounds.hpp"

#include <algorithm>
#include <optional>
#include <span>
#include <utility>

namespace engine {

namespace {

// A file that chains more sounds than this is the recording of a stream, not a sound file.
constexpr size_t kMaximumLinks = 4096;

// For the tables of all different headers of a chain. Those of some fifty encoders fit.
constexpr uint64_t kMaximumTableBytes = 64u << 20;

// Longer than any packet of sound, and than comments that contain a picture. In a damaged file, a packet may never end.
constexpr long kMaximumPacketBytes = 16l << 20;

// Owns an ogg_stream_state.
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

// Counts the samples of one sound, packet by packet.
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
                isMarked = true; // pages are missing, so the position is unknown
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
        mFailed = mFailed || state.body_fill - state.body_returned > kMaximumPacketBytes;
    }

    // Whether the file must be refused because of this sound's headers.
    [[nodiscard]] bool isRefused() const { return mIsRefused; }

    // Adds the sound to the map. If that can't be done, returns the reason in the form that chainRemark()
    // expects.
    [[nodiscard]] std::optional<std::string> finish()
    {
        if (mFailed || !mLink.headers->complete())
            return "is damaged";
        const vorbis_info* info = mLink.headers->info();
        if (!mMap.links.empty()) {
            const vorbis_info* first = mMap.links.front().headers->info();
            if (first->channels != info->channels)
                return otherChannels(info->channels, first->channels);
            if (first->rate != info->rate)
                return otherRate(info->rate, first->rate);
        }
        // If the first position in the file is lower than the number of samples up to it, the difference is cut from
        // the start.
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
        return std::nullopt;
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
        mIsRefused = mIsRefused || mMap.tableBytes > kMaximumTableBytes;
        mFailed = mIsRefused;
    }

    // Returns false for a packet that isn't sound.
    bool count(ogg_packet& packet)
    {
        const long block = vorbis_packet_blocksize(mLink.headers->info(), &packet);
        if (block <= 0)
            return false;
        mProduced += vorbisPacketSamples(mBlock, block);
        mBlock = block;
        // No sound is that long. Sums of lower positions don't overflow.
        constexpr int64_t kMaximumPosition = int64_t{1} << 62;
        if (packet.granulepos < 0 || packet.granulepos > kMaximumPosition)
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

base::Result<VorbisMap> mapVorbis(OggPages& pages)
{
    VorbisMap map;
    std::unique_ptr<LinkMeasure> link;
    std::optional<std::string> reason; // why the chain isn't read further
    ogg_page page;
    uint64_t offset = 0;
    const bool isReadable = pages.seek(0);
    while (isReadable && !reason && pages.next(&page, &offset)) {
        const int serial = ogg_page_serialno(&page);
        if (ogg_page_bos(&page)) {
            if (link && link->isRefused())
                break;
            reason = link ? link->finish() : std::nullopt;
            if (map.links.size() == kMaximumLinks)
                reason = "exceeds the limit of " + std::to_string(kMaximumLinks);
            const int64_t start = map.links.empty() ? 0 : map.links.back().end;
            link = reason ? nullptr : std::make_unique<LinkMeasure>(map, serial, start);
        }
        if (link && serial == link->serial())
            link->add(&page, offset);
    }
    if (link && link->isRefused())
        return base::Error{base::ErrorCode::Damaged, "its Vorbis headers need more memory than those of any sound"};
    if (link)
        reason = link->finish();
    if (map.links.empty())
        return base::Error{base::ErrorCode::Damaged, "its Vorbis headers are damaged or missing"};
    if (reason)
        map.remark = chainRemark(map.links.size(), *reason);
    return map;
}

} // namespace engine
