// SPDX-License-Identifier: MIT
#include "parse/ogg_damage.hpp"

#include "base/bytes.hpp"
#include "parse/ogg_packets.hpp"
#include "parse/ogg_pages.hpp"

#include <algorithm>
#include <cstring>
#include <map>
#include <span>

namespace engine {

namespace {

// No sound is that long. Sums of lower positions don't overflow.
constexpr int64_t kMaximumPosition = int64_t{1} << 48;

// A file with more streams than this isn't a sound file. The rest are ignored.
constexpr size_t kMaximumStreams = 4096;

struct StreamState
{
    bool isSound = false;
    uint32_t nextNumber = 0; // of the next page
    int64_t position = 0; // of the last page that has one
};

// How many samples are missing between the last known position and `position`. The page that ends there contains
// some of them, unless it is lost, too.
uint64_t lostBefore(const StreamState& stream, int64_t position, uint32_t lostPages, bool isPageLost)
{
    if (position <= stream.position || position > kMaximumPosition)
        return 1;
    const auto samples = static_cast<uint64_t>(position - stream.position);
    return std::max<uint64_t>(1, isPageLost ? samples : samples * lostPages / (uint64_t{lostPages} + 1));
}

class DamageCount
{
public:
    void add(const ogg_page& page)
    {
        const auto number = static_cast<uint32_t>(ogg_page_pageno(&page));
        const int serial = ogg_page_serialno(&page);
        if (ogg_page_bos(&page)) {
            if (mStreams.size() == kMaximumStreams)
                mStreams.clear();
            const std::span<const uint8_t> body(page.body, static_cast<size_t>(page.body_len));
            mStreams[serial] = {recogniseOggCodec(body) != OggCodec::Unknown, number + 1, 0};
            return;
        }
        const auto found = mStreams.find(serial);
        if (found == mStreams.end() || !found->second.isSound)
            return;
        StreamState& stream = found->second;
        const int64_t position = ogg_page_granulepos(&page);
        // Some encoders don't count pages, so a lower number than expected is no sign of loss.
        const auto lost = static_cast<int32_t>(number - stream.nextNumber);
        if (lost > 0 && stream.position > 0)
            mLost += lostBefore(stream, position, static_cast<uint32_t>(lost), false);
        stream.nextNumber = number + 1;
        if (position > 0 && position <= kMaximumPosition)
            stream.position = position;
    }

    // The bytes of the file after its last complete page.
    void addRest(std::span<const uint8_t> rest)
    {
        constexpr size_t kSerialEnd = 18;
        constexpr size_t kMagicBytes = 4;
        if (rest.empty() || std::memcmp(rest.data(), "OggS", std::min(rest.size(), kMagicBytes)) != 0)
            return;
        const auto found = rest.size() < kSerialEnd
            ? mStreams.end()
            : mStreams.find(static_cast<int>(base::loadLittle<uint32_t>(&rest[14])));
        if (found == mStreams.end() || !found->second.isSound)
            mLost += 1;
        else
            mLost += lostBefore(found->second, static_cast<int64_t>(base::loadLittle<uint64_t>(&rest[6])), 1, true);
    }

    [[nodiscard]] uint64_t lost() const { return mLost; }

private:
    std::map<int, StreamState> mStreams; // by serial number
    uint64_t mLost = 0;
};

} // namespace

uint64_t lostOggSamples(Cursor cursor)
{
    OggPages pages(std::move(cursor));
    DamageCount count;
    ogg_page page;
    uint64_t offset = 0;
    while (pages.next(&page, &offset))
        count.add(page);
    count.addRest(pages.rest());
    return count.lost();
}

} // namespace engine
