// SPDX-License-Identifier: MIT
#include "encode/data_stream.hpp"

#include <algorithm>
#include <cassert>

namespace builder {

namespace {

constexpr size_t kGatheredBytes = 64 * 1024;

} // namespace

DataStream::DataStream(base::ByteSink& sink)
    : mSink(sink)
{ }

base::Result<> DataStream::writeBlock(std::span<const uint8_t> bytes)
{
    if (const base::Result<> result = flush(); !result)
        return result.error();
    mChecksum.add(bytes);
    mBytes += bytes.size();
    return mSink.write(bytes);
}

base::Result<> DataStream::writePacket(std::span<const uint8_t> packet)
{
    assert(packet.size() <= bank::kMaximumPacketBytes);
    const size_t before = mGathered.size();
    size_t rest = packet.size();
    for (; rest >= 0x80; rest >>= 7)
        mGathered.push_back(uint8_t(rest | 0x80));
    mGathered.push_back(uint8_t(rest));
    mGathered.insert(mGathered.end(), packet.begin(), packet.end());
    mBytes += mGathered.size() - before;
    return mGathered.size() < kGatheredBytes ? base::Result<>() : flush();
}

base::Result<> DataStream::finish(bank::Sound* sound)
{
    if (const base::Result<> result = flush(); !result)
        return result.error();
    std::vector<bank::SeekPoint>& points = sound->seekPoints;
    const size_t stride =
        std::max<size_t>(1, (points.size() + bank::kMaximumSeekPoints - 1) / bank::kMaximumSeekPoints);
    for (size_t i = 0; i * stride < points.size(); ++i)
        points[i] = points[i * stride];
    points.resize((points.size() + stride - 1) / stride);
    sound->dataBytes = mBytes;
    sound->dataChecksum = mChecksum.value();
    return {};
}

base::Result<> DataStream::flush()
{
    if (mGathered.empty())
        return {};
    mChecksum.add(mGathered);
    base::Result<> result = mSink.write(mGathered);
    mGathered.clear();
    return result;
}

} // namespace builder
