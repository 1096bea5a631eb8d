// The encoded data of one sound on its way into a sink: counts it, makes its checksum, and gathers small packets.
#pragma once

#include "bank/checksum.hpp"
#include "bank/sound.hpp"
#include "base/bytes.hpp"

namespace tarnok {

class DataStream
{
public:
    explicit DataStream(base::ByteSink& sink);

    // Bytes that are big enough to go to the sink by themselves.
    base::Result<> writeBlock(std::span<const uint8_t> bytes);

    // A packet behind its length, which is written in groups of seven bits, lowest first, the high bit of a byte
    // telling that another follows. At most bank::kMaximumPacketBytes (asserted).
    base::Result<> writePacket(std::span<const uint8_t> packet);

    // Bytes so far: the offset of what is written next.
    [[nodiscard]] uint64_t bytes() const { return mBytes; }

    // Hands the rest to the sink and fills in size and checksum of the data. Of more seek points than a bank holds,
    // every second, third, ... stays.
    base::Result<> finish(bank::Sound* sound);

private:
    base::Result<> flush();

    base::ByteSink& mSink;
    bank::RunningChecksum mChecksum;
    std::vector<uint8_t> mGathered;
    uint64_t mBytes = 0;
};

} // namespace tarnok
