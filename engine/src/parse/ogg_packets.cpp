// SPDX-License-Identifier: MIT
#include "parse/ogg_packets.hpp"

#include "base/bytes.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <utility>

namespace engine {

namespace {

constexpr size_t kHeaderBytes = 27;
constexpr size_t kMaximumStreams = 64;
constexpr size_t kMaximumCommentBytes = 16u << 20; // comments may hold a picture, which counts for the packet's length
constexpr size_t kMaximumPages = 4096; // by then, the second packet must have ended

struct OggPage
{
    uint64_t body = 0; // offset of the page's data
    uint64_t next = 0; // offset of the page after it
    uint32_t serial = 0;
    bool first = false;
    std::vector<uint8_t> lacing;
};

std::optional<OggPage> readPage(const InputFile& file, uint64_t offset)
{
    std::array<uint8_t, kHeaderBytes> header;
    if (!file.readAllAt(offset, header.data(), header.size()) || std::memcmp(header.data(), "OggS\0", 5) != 0)
        return std::nullopt;
    OggPage page;
    page.first = header[5] & 2;
    page.serial = base::loadLittle<uint32_t>(&header[14]);
    page.lacing.resize(header[26]);
    page.body = offset + kHeaderBytes + page.lacing.size();
    if (!file.readAllAt(offset + kHeaderBytes, page.lacing.data(), page.lacing.size()))
        return std::nullopt;
    page.next = page.body;
    for (uint8_t length : page.lacing)
        page.next += length;
    return page;
}

OggCodec pageCodec(const InputFile& file, const OggPage& page)
{
    std::array<uint8_t, 8> start{};
    const size_t got = file.readAt(page.body, start.data(), start.size());
    return recogniseOggCodec(std::span(start).first(got));
}

// Bytes of the second packet of the stream whose first page is given.
std::vector<uint8_t> secondPacket(const InputFile& file, const OggPage& first)
{
    std::vector<uint8_t> packet;
    size_t packetIndex = 0;
    std::optional<OggPage> page = first;
    for (size_t pages = 0; page && pages < kMaximumPages; ++pages, page = readPage(file, page->next)) {
        if (page->serial != first.serial)
            continue;
        uint64_t position = page->body;
        for (uint8_t length : page->lacing) {
            if (packetIndex == 1 && length > 0) {
                const size_t before = packet.size();
                packet.resize(before + length);
                if (packet.size() > kMaximumCommentBytes || !file.readAllAt(position, packet.data() + before, length))
                    return {};
            }
            position += length;
            if (length < 255 && packetIndex++ == 1)
                return packet;
        }
    }
    return {};
}

// First pages of the streams of the first link.
std::vector<OggPage> firstPages(const InputFile& file)
{
    std::vector<OggPage> pages;
    std::optional<OggPage> page = readPage(file, 0);
    while (page && page->first && pages.size() < kMaximumStreams) {
        const uint64_t next = page->next;
        pages.push_back(std::move(*page));
        page = readPage(file, next);
    }
    return pages;
}

} // namespace

OggCodec recogniseOggCodec(std::span<const uint8_t> packet)
{
    const auto begins = [&](const char* signature, size_t length) {
        return packet.size() >= length && std::memcmp(packet.data(), signature, length) == 0;
    };
    if (begins("\x01vorbis", 7))
        return OggCodec::Vorbis;
    if (begins("OpusHead", 8))
        return OggCodec::Opus;
    if (begins("Speex   ", 8))
        return OggCodec::Speex;
    if (begins("\x7f"
               "FLAC",
               5))
        return OggCodec::Flac;
    return OggCodec::Unknown;
}

size_t commentOffset(OggCodec codec)
{
    switch (codec) {
    case OggCodec::Vorbis:
        return 7; // "\3vorbis"
    case OggCodec::Opus:
        return 8; // "OpusTags"
    case OggCodec::Flac:
        return 4; // the header of a FLAC metadata block
    case OggCodec::Speex:
    case OggCodec::Unknown:
        break;
    }
    return 0;
}

std::vector<OggCodec> oggCodecs(const InputFile& file)
{
    std::vector<OggCodec> codecs;
    for (const OggPage& page : firstPages(file))
        codecs.push_back(pageCodec(file, page));
    return codecs;
}

std::vector<uint8_t> oggComments(const InputFile& file)
{
    for (const OggPage& page : firstPages(file)) {
        const OggCodec codec = pageCodec(file, page);
        if (codec == OggCodec::Unknown)
            continue;
        std::vector<uint8_t> packet = secondPacket(file, page);
        const size_t offset = std::min(commentOffset(codec), packet.size());
        packet.erase(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(offset));
        return packet;
    }
    return {};
}

} // namespace engine
