// The headers of a Vorbis stream on their way into libvorbis.
#pragma once

#include <vorbis/codec.h>

#include <cstdint>
#include <span>
#include <vector>

namespace kess {

// What libvorbis knows of a stream. Its comments are never handed over: each would cost several allocations, and
// nobody asks the library for them.
class VorbisHeaders
{
public:
    VorbisHeaders();
    ~VorbisHeaders();
    VorbisHeaders(const VorbisHeaders&) = delete;
    VorbisHeaders& operator=(const VorbisHeaders&) = delete;

    // Takes the next of the three headers; false when it isn't one, or one that asks for too much memory.
    [[nodiscard]] bool add(std::span<const uint8_t> packet);

    // The first and the third, for those who keep no comments.
    [[nodiscard]] bool addIdentification(std::span<const uint8_t> packet);
    [[nodiscard]] bool addSetup(std::span<const uint8_t> packet);

    [[nodiscard]] bool awaitsSetup() const { return mCount == 2; }
    [[nodiscard]] bool complete() const { return mCount == 3; }

    // The library's functions take it without const, and don't change it.
    [[nodiscard]] vorbis_info* info() const { return &mInfo; }

    // Makes the state of a decoder, to be ended by vorbis_dsp_clear() whatever the answer. The first one builds the
    // tables that all share; where it fails they are left half built, and no other is made from them.
    [[nodiscard]] bool makeState(vorbis_dsp_state* state) const;

    // The memory that the library takes for the tables, an upper bound.
    [[nodiscard]] uint64_t tableBytes() const { return mTableBytes; }

    // Whether these headers, once complete, are those of other: setup is the third. The comments don't count.
    [[nodiscard]] bool wouldEqual(const VorbisHeaders& other, std::span<const uint8_t> setup) const;

private:
    [[nodiscard]] bool handOver(std::span<const uint8_t> packet, bool first);

    mutable vorbis_info mInfo;
    vorbis_comment mComment;
    std::vector<uint8_t> mPackets; // the first and the third, joined
    uint64_t mTableBytes = 0;
    int mCount = 0;
    mutable bool mIsBroken = false; // no tables can be built
};

} // namespace kess
