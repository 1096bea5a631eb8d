// SPDX-License-Identifier: MIT
#include "parse/vorbis_headers.hpp"

#include "parse/vorbis_setup_check.hpp"

#include <algorithm>
#include <array>
#include <optional>

namespace engine {

namespace {

constexpr std::array<uint8_t, 7> kCommentSignature{3, 'v', 'o', 'r', 'b', 'i', 's'};

// The library expects a comment header between the two others: no vendor, no comments, framing bit.
constexpr std::array<uint8_t, 16> kEmptyComments{3, 'v', 'o', 'r', 'b', 'i', 's', 0, 0, 0, 0, 0, 0, 0, 0, 1};

} // namespace

VorbisHeaders::VorbisHeaders()
{
    vorbis_info_init(&mInfo);
    vorbis_comment_init(&mComment);
}

VorbisHeaders::~VorbisHeaders()
{
    vorbis_comment_clear(&mComment);
    vorbis_info_clear(&mInfo);
}

bool VorbisHeaders::add(std::span<const uint8_t> packet)
{
    if (mCount == 0)
        return addIdentification(packet);
    if (mCount == 2)
        return addSetup(packet);
    if (packet.size() < kCommentSignature.size()
        || !std::equal(kCommentSignature.begin(), kCommentSignature.end(), packet.begin()))
        return false;
    mCount = 2;
    return true;
}

bool VorbisHeaders::addIdentification(std::span<const uint8_t> packet)
{
    mCount = 1;
    mPackets.assign(packet.begin(), packet.end());
    return pass(packet, true);
}

bool VorbisHeaders::addSetup(std::span<const uint8_t> packet)
{
    const std::optional<uint64_t> bytes = vorbisSetupBytes(packet.data(), packet.size());
    if (!bytes || !pass(kEmptyComments, false) || !pass(packet, false))
        return false;
    mCount = 3;
    mPackets.insert(mPackets.end(), packet.begin(), packet.end());
    mTableBytes = *bytes;
    return true;
}

bool VorbisHeaders::wouldEqual(const VorbisHeaders& other, std::span<const uint8_t> setup) const
{
    const std::span<const uint8_t> theirs = other.mPackets;
    return theirs.size() == mPackets.size() + setup.size()
        && std::equal(mPackets.begin(), mPackets.end(), theirs.begin())
        && std::equal(setup.begin(), setup.end(), theirs.begin() + static_cast<std::ptrdiff_t>(mPackets.size()));
}

bool VorbisHeaders::makeState(vorbis_dsp_state* state) const
{
    *state = {};
    if (!mIsBroken)
        mIsBroken = vorbis_synthesis_init(state, &mInfo) != 0;
    return !mIsBroken;
}

bool VorbisHeaders::pass(std::span<const uint8_t> bytes, bool first)
{
    ogg_packet packet{};
    packet.packet = const_cast<unsigned char*>(bytes.data());
    packet.bytes = static_cast<long>(bytes.size());
    packet.b_o_s = first;
    packet.granulepos = -1;
    return vorbis_synthesis_headerin(&mInfo, &mComment, &packet) == 0;
}

} // namespace engine
