// SPDX-License-Identifier: MIT
// Writes the encoded data of one sound to a sink: counts it, computes its checksum, and gathers small packets.
#pragma once

#include "bank/checksum.hpp"
#include "bank/sound.hpp"
#include "base/bytes.hpp"

namespace builder {

class DataStream
{
public:
    explicit DataStream(base::ByteSink& sink);

    // Writes bytes directly to the sink, so the block should not be small.
    base::Result<> writeBlock(std::span<const uint8_t> bytes);

    // Writes the length of a packet, then the packet. The length is written in groups of seven bits, lowest first; the
    // high bit of a byte indicates that another one follows. At most bank::kMaximumPacketBytes (asserted).
    base::Result<> writePacket(std::span<const uint8_t> packet);

    // The number of bytes so far, which is the offset of what is written next.
    [[nodiscard]] uint64_t bytes() const { return mBytes; }

    // Writes the rest to the sink and stores size and checksum of the data in sound. If there are more seek points than
    // a bank can store, only every second, third, ... is kept.
    base::Result<> finish(bank::Sound* sound);

private:
    base::Result<> flush();

    base::ByteSink& mSink;
    bank::RunningChecksum mChecksum;
    std::vector<uint8_t> mGathered;
    uint64_t mBytes = 0;
};

} // namespace builder
