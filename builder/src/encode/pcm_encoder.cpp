#include "encode/data_stream.hpp"
#include "encode/encoders.hpp"

#include <algorithm>

namespace tarnok {

using bank::Error;

namespace {

constexpr size_t kBlockBytes = 256 * 1024;

} // namespace

Error PcmEncoder::encode(PreparedSound& sound, int, bank::ByteSink& sink, std::stop_token stop, bank::Sound* encoded)
{
    const PreparedFacts& facts = sound.facts();
    const size_t frameBytes = size_t(facts.channels) * bank::bytesPerSample(facts.sampleFormat);
    if (frameBytes == 0)
        return Error::Unsupported;
    if (const Error error = sound.seek(0); error != Error::None)
        return error;

    *encoded = describe(bank::Codec::Pcm, facts);
    DataStream data(sink);
    const size_t blockFrames = kBlockBytes / frameBytes;
    std::vector<uint8_t> block(blockFrames * frameBytes);
    for (uint64_t left = facts.sampleCount; left > 0;) {
        if (stop.stop_requested())
            return Error::Cancelled;
        const size_t count = size_t(std::min<uint64_t>(left, blockFrames));
        if (const Error error = sound.readSamples(block.data(), count); error != Error::None)
            return error;
        if (const Error error = data.writeBlock(std::span(block).first(count * frameBytes)); error != Error::None)
            return error;
        left -= count;
    }
    return data.finish(encoded);
}

} // namespace tarnok
