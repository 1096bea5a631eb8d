// Decodes whatever the fuzzer makes up, then takes the same bytes for samples: what the encoder makes of them must
// decode to its last byte.
#include "bank/kadpcm.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using namespace bank::kadpcm;

void decode(std::span<const uint8_t> bytes, int channels, int frames)
{
    std::vector<int16_t> samples(static_cast<size_t>(channels * frames));
    const size_t used = decodeSuperblock(bytes, channels, frames, samples.data());
    if (used != 0 && used != superblockBytes(bytes, channels))
        std::abort();
}

void roundTrip(std::span<const uint8_t> bytes, int channels)
{
    const size_t frames = bytes.size() / (sizeof(int16_t) * static_cast<size_t>(channels));
    std::vector<int16_t> samples(frames * static_cast<size_t>(channels));
    if (!samples.empty())
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(int16_t));
    std::vector<uint8_t> encoded;
    Encoder encoder(channels);
    encoder.encode(samples, encoded);
    encoder.finish(encoded);
    std::span<const uint8_t> rest = encoded;
    for (size_t n = 0; n < frames; n += kSuperblockFrames) {
        const int part = static_cast<int>(std::min<size_t>(kSuperblockFrames, frames - n));
        const size_t used = decodeSuperblock(rest, channels, part, &samples[n * static_cast<size_t>(channels)]);
        if (used == 0)
            std::abort();
        rest = rest.subspan(used);
    }
    if (!rest.empty())
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 3)
        return 0;
    const int channels = data[0] % 3 + 1;
    const int frames = (data[1] | data[2] << 8) % kSuperblockFrames + 1;
    decode({data + 3, size - 3}, channels, frames);
    roundTrip({data + 3, size - 3}, channels);
    return 0;
}
