// SPDX-License-Identifier: MIT
// Where the samples of an Ogg Vorbis file are.
//
// libvorbisfile and libsndfile lose the packets of files whose sound begins on the page of the headers, and seek to
// wrong samples where a file's positions don't match its packets. Here each file is measured once, packet by packet,
// without decoding. Length and positions are those that decoding from the start gives.
#pragma once

#include "parse/ogg_pages.hpp"
#include "parse/vorbis_headers.hpp"

#include <vorbis/codec.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace engine {

// One sound of a file that may chain several. Samples are counted through all of them.
struct VorbisLink
{
    std::shared_ptr<VorbisHeaders> headers; // shared by links whose headers are equal
    int serial = 0;
    int64_t first = 0; // first sample that the packets yield, including those to be cut from the start
    int64_t start = 0; // first sample of the sound
    int64_t end = 0; // after the last one
};

// A page where decoding can begin. Its first packet yields nothing but prepares the next one, which begins with sample.
struct VorbisSeekPoint
{
    uint64_t page = 0; // offset in the file
    size_t link = 0;
    int64_t sample = 0;
};

// The ranges of the sounds of a file, and the pages where decoding can begin.
struct VorbisMap
{
    std::vector<VorbisLink> links; // those that share channels and rate with the first
    std::vector<VorbisSeekPoint> points;
    uint64_t tableBytes = 0; // of all different headers
    std::string remark; // why a chain isn't read to its end; empty if it is
};

// The number of samples of a packet, from its block size and that of the previous packet, both by
// vorbis_packet_blocksize. 0 for the first packet, where previous is 0 (Vorbis I, 4.3.8).
[[nodiscard]] inline int64_t vorbisPacketSamples(long previous, long block)
{
    return previous == 0 ? 0 : previous / 4 + block / 4;
}

// Reads the whole file. ErrorCode::Damaged: it has no complete set of headers, or headers need more memory than any
// sound does (vorbis_setup_check.hpp): those of one link, or all different ones together.
base::Result<VorbisMap> mapVorbis(OggPages& pages);

} // namespace engine
