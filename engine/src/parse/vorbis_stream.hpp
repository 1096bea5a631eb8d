// Ogg Vorbis by the packet, over libogg and libvorbis.
//
// libvorbisfile and libsndfile lose the packets of files whose sound begins on the page of the headers, and seek to
// wrong samples where a file's positions don't fit its packets. Here each file is measured once, packet by packet,
// without decoding; length and positions are what decoding from the start gives.
#pragma once

#include "parse/source_file.hpp"
#include "parse/vorbis_headers.hpp"

#include <vorbis/codec.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace kess {

// The pages of a stretch of a file.
class OggPages
{
public:
    explicit OggPages(Cursor cursor);
    ~OggPages();
    OggPages(const OggPages&) = delete;
    OggPages& operator=(const OggPages&) = delete;

    // Goes on from a byte offset, which is the start of a page.
    [[nodiscard]] bool seek(uint64_t offset);

    // The next whole page with a right checksum; its offset is stored. False at the end. It is valid until the next
    // call.
    [[nodiscard]] bool next(ogg_page* page, uint64_t* offset);

    // At the end: the bytes after the last whole page, from where another one may begin. Valid until the next call.
    [[nodiscard]] std::span<const uint8_t> rest() const;

private:
    Cursor mCursor;
    ogg_sync_state mSync;
    uint64_t mOffset = 0; // of the first byte that libogg still holds
};

// One sound of a file that may chain several. Samples are counted through all of them.
struct VorbisLink
{
    std::shared_ptr<VorbisHeaders> headers; // shared by links whose headers are equal
    int serial = 0;
    int64_t first = 0; // first sample that the packets yield, before what the file says to cut
    int64_t start = 0; // first sample that counts
    int64_t end = 0; // behind the last one
};

// A page where decoding can begin: its first packet yields nothing but prepares the next, whose first sample this is.
struct VorbisSeekPoint
{
    uint64_t page = 0; // offset in the file
    size_t link = 0;
    int64_t sample = 0;
};

// Where the sounds of a file begin and end, and from where they can be decoded.
struct VorbisMap
{
    std::vector<VorbisLink> links; // those that share channels and rate with the first
    std::vector<VorbisSeekPoint> points;
    uint64_t tableBytes = 0; // of all different headers
};

// Samples that a packet yields behind one with the block size before, both as vorbis_packet_blocksize tells them; 0
// for the first packet, where before is 0 (Vorbis I, 4.3.8).
[[nodiscard]] inline int64_t vorbisPacketSamples(long before, long block)
{
    return before == 0 ? 0 : before / 4 + block / 4;
}

// Reads through the file. False when it has no whole set of headers, and when headers ask for more memory than any
// sound needs (vorbis_setup_check.hpp): those of one link, or all different ones together.
[[nodiscard]] bool mapVorbis(OggPages& pages, VorbisMap* map);

} // namespace kess
