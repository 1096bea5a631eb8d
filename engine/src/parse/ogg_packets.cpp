#include "parse/ogg_packets.hpp"

#include "parse/bytes.hpp"

#include <array>
#include <cstring>
#include <optional>
#include <utility>

namespace kess {

namespace {

constexpr size_t kHeaderBytes = 27;
constexpr size_t kMaxStreams = 64;
constexpr size_t kMaxCommentBytes = 16u << 20; // comments may hold a picture, which counts for the packet's length
constexpr size_t kMaxPages = 4096; // pages looked at before the second packet must have ended

struct OggPage
{
    uint64_t body = 0; // where the page's data begins
    uint64_t next = 0; // where the page behind it begins
    uint32_t serial = 0;
    bool first = false;
    std::vector<uint8_t> lacing;
};

std::optional<OggPage> readPage(const SourceFile& file, uint64_t offset)
{
    std::array<uint8_t, kHeaderBytes> header;
    if (!file.readAllAt(offset, header.data(), header.size()) || std::memcmp(header.data(), "OggS\0", 5) != 0)
        return std::nullopt;
    OggPage page;
    page.first = header[5] & 2;
    page.serial = le32(&header[14]);
    page.lacing.resize(header[26]);
    page.body = offset + kHeaderBytes + page.lacing.size();
    if (!file.readAllAt(offset + kHeaderBytes, page.lacing.data(), page.lacing.size()))
        return std::nullopt;
    page.next = page.body;
    for (uint8_t length : page.lacing)
        page.next += length;
    return page;
}

OggCodec codecOf(const SourceFile& file, const OggPage& page)
{
    std::array<uint8_t, 8> start{};
    const size_t got = file.readAt(page.body, start.data(), start.size());
    return oggCodecOf(std::span(start).first(got));
}

// Bytes of the second packet of the stream whose first page is given.
std::vector<uint8_t> secondPacket(const SourceFile& file, const OggPage& first)
{
    std::vector<uint8_t> packet;
    size_t packetIndex = 0;
    std::optional<OggPage> page = first;
    for (size_t pages = 0; page && pages < kMaxPages; ++pages, page = readPage(file, page->next)) {
        if (page->serial != first.serial)
            continue;
        uint64_t position = page->body;
        for (uint8_t length : page->lacing) {
            if (packetIndex == 1 && length > 0) {
                const size_t before = packet.size();
                packet.resize(before + length);
                if (packet.size() > kMaxCommentBytes || !file.readAllAt(position, packet.data() + before, length))
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
std::vector<OggPage> firstPages(const SourceFile& file)
{
    std::vector<OggPage> pages;
    std::optional<OggPage> page = readPage(file, 0);
    while (page && page->first && pages.size() < kMaxStreams) {
        const uint64_t next = page->next;
        pages.push_back(std::move(*page));
        page = readPage(file, next);
    }
    return pages;
}

std::vector<uint8_t> commentsOf(const SourceFile& file, const OggPage& first)
{
    std::vector<uint8_t> packet = secondPacket(file, first);
    size_t signature = 0;
    switch (codecOf(file, first)) {
    case OggCodec::Vorbis:
        signature = 7; // "\3vorbis"
        break;
    case OggCodec::Opus:
        signature = 8; // "OpusTags"
        break;
    case OggCodec::Flac:
        signature = 4; // the header of a FLAC metadata block
        break;
    case OggCodec::Speex: // none
    case OggCodec::Unknown:
        break;
    }
    if (packet.size() < signature)
        return {};
    packet.erase(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(signature));
    return packet;
}

} // namespace

OggCodec oggCodecOf(std::span<const uint8_t> packet)
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

std::vector<OggCodec> oggCodecs(const SourceFile& file)
{
    std::vector<OggCodec> codecs;
    for (const OggPage& page : firstPages(file))
        codecs.push_back(codecOf(file, page));
    return codecs;
}

std::vector<uint8_t> oggComments(const SourceFile& file)
{
    for (const OggPage& page : firstPages(file)) {
        if (codecOf(file, page) != OggCodec::Unknown)
            return commentsOf(file, page);
    }
    return {};
}

std::vector<std::vector<uint8_t>> allOggComments(const SourceFile& file)
{
    std::vector<std::vector<uint8_t>> comments;
    for (const OggPage& page : firstPages(file)) {
        if (codecOf(file, page) != OggCodec::Unknown)
            comments.push_back(commentsOf(file, page));
    }
    return comments;
}

} // namespace kess
