// SPDX-License-Identifier: MIT
// The headers of a Vorbis stream for libvorbis.
#pragma once

#include <vorbis/codec.h>

#include <cstdint>
#include <span>
#include <vector>

namespace engine {

// The headers of a stream in the form of libvorbis. Comments are never passed to it: each would cost several
// allocations, and the library's copies aren't used.
class VorbisHeaders
{
public:
    VorbisHeaders();
    ~VorbisHeaders();
    VorbisHeaders(const VorbisHeaders&) = delete;
    VorbisHeaders& operator=(const VorbisHeaders&) = delete;

    // Takes the next of the three headers. Returns false if it isn't one, or needs too much memory.
    [[nodiscard]] bool add(std::span<const uint8_t> packet);

    // The first and the third, where there are no comments.
    [[nodiscard]] bool addIdentification(std::span<const uint8_t> packet);
    [[nodiscard]] bool addSetup(std::span<const uint8_t> packet);

    [[nodiscard]] bool awaitsSetup() const { return mCount == 2; }
    [[nodiscard]] bool complete() const { return mCount == 3; }

    // The library's functions take it without const, and don't change it.
    [[nodiscard]] vorbis_info* info() const { return &mInfo; }

    // Initialises the state of a decoder, to be cleared by vorbis_dsp_clear() whatever the result. The first call
    // builds the tables that all states share. If it fails, they are incomplete, and all later calls fail.
    [[nodiscard]] bool makeState(vorbis_dsp_state* state) const;

    // An upper bound of the memory that the library uses for the tables.
    [[nodiscard]] uint64_t tableBytes() const { return mTableBytes; }

    // Whether these headers, completed by setup as the third, equal those of other. Comments are ignored.
    [[nodiscard]] bool wouldEqual(const VorbisHeaders& other, std::span<const uint8_t> setup) const;

private:
    [[nodiscard]] bool pass(std::span<const uint8_t> packet, bool first);

    mutable vorbis_info mInfo;
    vorbis_comment mComment;
    std::vector<uint8_t> mPackets; // the first and the third, joined
    uint64_t mTableBytes = 0;
    int mCount = 0;
    mutable bool mIsBroken = false; // no tables can be built
};

} // namespace engine
