// SPDX-License-Identifier: MIT
#include "encode/data_stream.hpp"
#include "encode/encoders.hpp"

#include <algorithm>

namespace builder {

using base::Error;
using base::ErrorCode;

namespace {

constexpr size_t kBlockBytes = 256 * 1024;

} // namespace

base::Result<> PcmEncoder::encode(PreparedSound& sound, int, base::ByteSink& sink, std::stop_token stop,
                                  bank::Sound* encoded)
{
    const PreparedFacts& facts = sound.facts();
    const size_t frameBytes = size_t(facts.channels) * bank::bytesPerSample(facts.sampleFormat);
    if (frameBytes == 0)
        return Error{ErrorCode::Unsupported};
    if (const base::Result<> result = sound.seek(0); !result)
        return result.error();

    *encoded = describe(bank::Codec::Pcm, facts);
    DataStream data(sink);
    const size_t blockFrames = kBlockBytes / frameBytes;
    std::vector<uint8_t> block(blockFrames * frameBytes);
    for (uint64_t remaining = facts.sampleCount; remaining > 0;) {
        if (stop.stop_requested())
            return Error{ErrorCode::Cancelled};
        const size_t count = size_t(std::min<uint64_t>(remaining, blockFrames));
        if (const base::Result<> result = sound.readSamples(block.data(), count); !result)
            return result.error();
        if (const base::Result<> result = data.writeBlock(std::span(block).first(count * frameBytes)); !result)
            return result.error();
        remaining -= count;
    }
    return data.finish(encoded);
}

} // namespace builder
