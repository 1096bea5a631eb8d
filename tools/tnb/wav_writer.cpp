// SPDX-License-Identifier: MIT
#include "wav_writer.hpp"

#include <array>
#include <limits>
#include <string_view>

namespace tnb {

namespace {

constexpr uint64_t kMaximum32 = std::numeric_limits<uint32_t>::max();
constexpr uint16_t kFormatPcm = 1;
constexpr uint16_t kFormatFloat = 3;
constexpr uint16_t kFormatExtensible = 0xfffe;

// The bytes after the format number in the GUID of an extensible format.
constexpr std::array<uint8_t, 14> kSubformatRest = {0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xaa, 0, 0x38, 0x9b, 0x71};

void put(std::vector<uint8_t>& bytes, std::string_view text)
{
    bytes.insert(bytes.end(), text.begin(), text.end());
}

void put16(std::vector<uint8_t>& bytes, uint32_t value)
{
    bytes.push_back(static_cast<uint8_t>(value));
    bytes.push_back(static_cast<uint8_t>(value >> 8));
}

void put32(std::vector<uint8_t>& bytes, uint64_t value)
{
    put16(bytes, static_cast<uint32_t>(value & 0xffff));
    put16(bytes, static_cast<uint32_t>(value >> 16 & 0xffff));
}

void put64(std::vector<uint8_t>& bytes, uint64_t value)
{
    put32(bytes, value);
    put32(bytes, value >> 32);
}

// Chunks begin at even offsets. The padding byte isn't part of the chunk's size.
void putChunk(std::vector<uint8_t>& bytes, std::string_view id, const std::vector<uint8_t>& payload)
{
    put(bytes, id);
    put32(bytes, payload.size());
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    if (payload.size() % 2 != 0)
        bytes.push_back(0);
}

} // namespace

WavWriter::WavWriter(const SoundProperties& sound, base::ByteSink& file)
    : mSound(sound)
    , mFile(file)
    , mDataBytes(sound.samples * static_cast<uint64_t>(sound.channels * sound.bits / 8))
{
    appendSampler(mTail);
    appendCues(mTail);
}

base::Result<> WavWriter::begin()
{
    std::vector<uint8_t> chunks;
    putChunk(chunks, "fmt ", formatChunk());
    if (mSound.format == KESS_SOUND_FORMAT_PCMFLOAT) {
        std::vector<uint8_t> fact;
        put32(fact, std::min(mSound.samples, kMaximum32));
        putChunk(chunks, "fact", fact);
    }

    const uint64_t riffBytes = 4 + chunks.size() + 8 + mDataBytes + mDataBytes % 2 + mTail.size();
    const bool isLarge = riffBytes > kMaximum32;
    std::vector<uint8_t> head;
    put(head, isLarge ? "RF64" : "RIFF");
    put32(head, isLarge ? kMaximum32 : riffBytes);
    put(head, "WAVE");
    if (isLarge) {
        std::vector<uint8_t> sizes;
        put64(sizes, riffBytes + 36); // this chunk is included
        put64(sizes, mDataBytes);
        put64(sizes, mSound.samples);
        put32(sizes, 0); // no other chunk is large
        putChunk(head, "ds64", sizes);
    }
    head.insert(head.end(), chunks.begin(), chunks.end());
    put(head, "data");
    put32(head, isLarge ? kMaximum32 : mDataBytes);
    return mFile.write(head);
}

std::vector<uint8_t> WavWriter::formatChunk() const
{
    const uint16_t kind = mSound.format == KESS_SOUND_FORMAT_PCMFLOAT ? kFormatFloat : kFormatPcm;
    const bool isExtensible = mSound.channels > 2;
    const auto channels = static_cast<uint32_t>(mSound.channels);
    const auto bits = static_cast<uint32_t>(mSound.bits);
    std::vector<uint8_t> chunk;
    put16(chunk, isExtensible ? kFormatExtensible : kind);
    put16(chunk, channels);
    put32(chunk, mSound.rate);
    put32(chunk, mSound.rate * channels * (bits / 8));
    put16(chunk, channels * (bits / 8));
    put16(chunk, bits);
    if (isExtensible) {
        put16(chunk, 22); // size of the extension
        put16(chunk, bits); // all bits are valid
        put32(chunk, 0); // no speaker positions
        put16(chunk, kind);
        chunk.insert(chunk.end(), kSubformatRest.begin(), kSubformatRest.end());
    } else if (kind != kFormatPcm) {
        put16(chunk, 0);
    }
    return chunk;
}

void WavWriter::appendSampler(std::vector<uint8_t>& chunks)
{
    if (!mSound.loop)
        return;
    if (mSound.loop->end > kMaximum32) {
        mOmitsPoints = true;
        return;
    }
    constexpr uint32_t kMiddleC = 60;
    std::vector<uint8_t> chunk;
    put32(chunk, 0); // manufacturer
    put32(chunk, 0); // product
    put32(chunk, mSound.rate > 0 ? 1'000'000'000 / mSound.rate : 0); // nanoseconds per sample
    put32(chunk, kMiddleC);
    put32(chunk, 0); // no fraction of a semitone
    put64(chunk, 0); // no time code
    put32(chunk, 1); // one loop
    put32(chunk, 0); // no further bytes
    put32(chunk, 0); // its identifier
    put32(chunk, 0); // forward
    put32(chunk, mSound.loop->start);
    put32(chunk, mSound.loop->end - 1); // its last sample
    put32(chunk, 0); // no fraction
    put32(chunk, 0); // play count: endless
    putChunk(chunks, "smpl", chunk);
}

void WavWriter::appendCues(std::vector<uint8_t>& chunks)
{
    uint32_t count = 0;
    std::vector<uint8_t> points;
    std::vector<uint8_t> labels;
    put(labels, "adtl");
    for (const base::SyncPoint& point : mSound.syncPoints) {
        if (point.frame > kMaximum32) {
            mOmitsPoints = true;
            continue;
        }
        ++count;
        put32(points, count);
        put32(points, point.frame);
        put(points, "data");
        put64(points, 0); // offsets of chunk and block
        put32(points, point.frame);
        if (point.name.empty())
            continue;
        std::vector<uint8_t> label;
        put32(label, count);
        put(label, point.name);
        label.push_back(0);
        putChunk(labels, "labl", label);
    }
    if (count == 0)
        return;
    std::vector<uint8_t> chunk;
    put32(chunk, count);
    chunk.insert(chunk.end(), points.begin(), points.end());
    putChunk(chunks, "cue ", chunk);
    if (labels.size() > 4)
        putChunk(chunks, "LIST", labels);
}

base::Result<> WavWriter::write(std::span<uint8_t> samples)
{
    // 8-bit samples are unsigned in WAV, signed in banks.
    if (mSound.format == KESS_SOUND_FORMAT_PCM8) {
        for (uint8_t& sample : samples)
            sample ^= 0x80;
    }
    return mFile.write(samples);
}

base::Result<> WavWriter::finish()
{
    if (mDataBytes % 2 != 0)
        mTail.insert(mTail.begin(), 0);
    return mFile.write(mTail);
}

} // namespace tnb
