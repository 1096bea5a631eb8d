// SPDX-License-Identifier: MIT
#include "bank/sound.hpp"

#include "bank/checksum.hpp"
#include "layout.hpp"

#include <cassert>

namespace bank {

size_t bytesPerSample(SampleFormat format)
{
    switch (format) {
    case SampleFormat::Pcm8:
        return 1;
    case SampleFormat::Pcm16:
        return 2;
    case SampleFormat::Pcm24:
        return 3;
    case SampleFormat::Pcm32:
    case SampleFormat::Float:
        return 4;
    case SampleFormat::None:
        break;
    }
    return 0;
}

Sound emptySound()
{
    Sound sound;
    sound.dataChecksum = checksum(std::span<const uint8_t>());
    return sound;
}

std::vector<uint8_t> serialise(const Sound& sound)
{
    const std::vector<uint8_t> chunks = layout::packChunks(sound);
    const layout::Row row = layout::makeRow(sound, chunks);
    assert(layout::plausible(row));

    std::vector<uint8_t> bytes(layout::kSerialisedHeadBytes);
    layout::store(row, bytes.data());
    base::storeLittle(bytes.data() + kSoundRecordBytes, static_cast<uint32_t>(sound.setup.size()));
    bytes.insert(bytes.end(), sound.setup.begin(), sound.setup.end());
    bytes.insert(bytes.end(), chunks.begin(), chunks.end());
    return bytes;
}

base::Result<Sound> deserialise(std::span<const uint8_t> bytes)
{
    if (bytes.size() < layout::kSerialisedHeadBytes)
        return layout::damaged({});
    const layout::Row row = layout::loadRow(bytes.data());
    const uint32_t setupBytes = base::loadLittle<uint32_t>(bytes.data() + kSoundRecordBytes);
    const std::span<const uint8_t> rest = bytes.subspan(layout::kSerialisedHeadBytes);
    if (setupBytes > kMaximumSetupBytes || setupBytes > rest.size() || row.chunksBytes != rest.size() - setupBytes
        || !layout::plausible(row))
        return layout::damaged({});
    const std::span<const uint8_t> chunks = rest.subspan(setupBytes);
    if (checksum(chunks) != row.chunksChecksum)
        return layout::damaged({});

    Sound sound = layout::makeSound(row);
    sound.setup.assign(rest.begin(), rest.begin() + setupBytes);
    if (const base::Result<> result = layout::unpackChunks(chunks, &sound); !result)
        return result.error();
    return sound;
}

} // namespace bank
