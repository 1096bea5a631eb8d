// SPDX-License-Identifier: MIT
#include "parse/mp4_tables.hpp"

#include "base/bytes.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace engine {

namespace {

using namespace std::string_view_literals;

// Boxes that hold boxes (ISO/IEC 14496-12, 6.2), as far as FFmpeg looks into them.
constexpr std::array kContainers{"moov"sv, "trak"sv, "mdia"sv, "minf"sv, "stbl"sv, "moof"sv, "traf"sv, "udta"sv,
                                 "edts"sv, "mvex"sv, "dinf"sv, "sinf"sv, "schi"sv, "tref"sv, "meta"sv};

constexpr int kMaximumDepth = 12;

class TableWalk
{
public:
    explicit TableWalk(Cursor cursor)
        : mCursor(std::move(cursor))
    { }

    // Reads the boxes between two offsets. Returns false if the tables don't fit.
    [[nodiscard]] bool look(uint64_t begin, uint64_t end, int depth)
    {
        uint64_t position = begin;
        std::array<uint8_t, 16> header{};
        while (end - position >= 8 && readAt(position, header.data(), 8)) {
            uint64_t headerBytes = 8;
            uint64_t size = base::loadBig<uint32_t>(&header[0]);
            if (size == 1 && readAt(position, header.data(), header.size())) {
                headerBytes = header.size();
                size = uint64_t{base::loadBig<uint32_t>(&header[8])} << 32 | base::loadBig<uint32_t>(&header[12]);
            }
            const uint64_t remaining = end - position;
            if (size == 0)
                size = remaining;
            if (size < headerBytes)
                return true; // not a box
            const uint64_t bytes = std::min(size, remaining) - std::min(headerBytes, remaining);
            const std::string_view type(reinterpret_cast<const char*>(&header[4]), 4);
            if (!lookInto(type, position + headerBytes, bytes, depth))
                return false;
            if (size >= remaining)
                return true;
            position += size;
        }
        return true;
    }

private:
    [[nodiscard]] bool lookInto(std::string_view type, uint64_t begin, uint64_t bytes, int depth)
    {
        if (type == "cmov")
            return false;
        if (type == "stsz" || type == "stz2")
            return addCount(begin + 8);
        if (type == "trun")
            return addCount(begin + 4);
        if (type == "ctts")
            return addRuns(begin, bytes);
        std::array<uint8_t, 8> first{};
        const bool hasFirst = bytes >= first.size() && readAt(begin, first.data(), first.size());
        const std::string_view firstType(reinterpret_cast<const char*>(&first[4]), 4);
        const bool isSpare = type == "free" || type == "hoov"; // a header that was overwritten, which FFmpeg looks for
        const bool isContainer = std::find(kContainers.begin(), kContainers.end(), type) != kContainers.end()
            || (isSpare && (firstType == "mvhd" || firstType == "cmov"));
        if (!isContainer || !hasFirst || depth == kMaximumDepth)
            return true;
        const uint64_t skipped = type == "meta" && firstType != "hdlr" ? 4 : 0; // version and flags
        return look(begin + skipped, begin + bytes, depth + 1);
    }

    [[nodiscard]] bool addCount(uint64_t offset)
    {
        std::array<uint8_t, 4> number;
        return !readAt(offset, number.data(), number.size()) || add(base::loadBig<uint32_t>(number.data()));
    }

    [[nodiscard]] bool addRuns(uint64_t begin, uint64_t bytes)
    {
        std::array<uint8_t, 8> run;
        for (uint64_t position = 8; position + run.size() <= bytes; position += run.size()) {
            if (!readAt(begin + position, run.data(), run.size()))
                return true;
            if (!add(base::loadBig<uint32_t>(run.data())))
                return false;
        }
        return true;
    }

    // A packet has one size and at most one run.
    [[nodiscard]] bool add(uint64_t packets)
    {
        mPackets += packets;
        return mPackets <= 2 * mCursor.size();
    }

    [[nodiscard]] bool readAt(uint64_t offset, uint8_t* bytes, size_t count)
    {
        return mCursor.seek(static_cast<int64_t>(offset), SEEK_SET) >= 0 && mCursor.read(bytes, count) == count;
    }

    Cursor mCursor;
    uint64_t mPackets = 0;
};

} // namespace

bool tablesFitFile(const RecognisedFile& file)
{
    return TableWalk(file.cursor()).look(0, file.kind.end - file.kind.begin, 0);
}

} // namespace engine
