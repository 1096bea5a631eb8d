// SPDX-License-Identifier: MIT
#include "source/frame_spool.hpp"

#include "base/bytes.hpp"
#include "base/file.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>

#include <sys/stat.h>

namespace builder {

namespace {

// One step of the SplitMix64 generator (Steele, Lea and Flood 2014), as a hash of the position.
uint64_t scramble(uint64_t number)
{
    number += 0x9e3779b97f4a7c15u;
    number = (number ^ (number >> 30)) * 0xbf58476d1ce4e5b9u;
    number = (number ^ (number >> 27)) * 0x94d049bb133111ebu;
    return number ^ (number >> 31);
}

// Triangular noise from -1 to 1, in quantisation steps.
double dither(uint64_t position)
{
    const uint64_t random = scramble(position);
    return (double(random >> 32) - double(random & 0xffffffffu)) / 4294967296.0;
}

// Converts to little-endian integers of `width` bytes, dithered and clipped; full scale is -1 to 1.
void quantise(const float* samples, size_t count, uint64_t firstPosition, size_t width, uint8_t* target)
{
    const double scale = std::ldexp(1.0, int(8 * width) - 1);
    for (size_t i = 0; i < count; ++i) {
        const double wanted = std::nearbyint(double(samples[i]) * scale + dither(firstPosition + i));
        const auto value = int64_t(std::clamp(wanted, -scale, scale - 1));
        for (size_t byte = 0; byte < width; ++byte)
            *target++ = uint8_t(uint64_t(value) >> (8 * byte));
    }
}

} // namespace

base::Result<std::unique_ptr<FrameSpool>> FrameSpool::create(const FrameFacts& facts, TemporaryFolders folders,
                                                             std::stop_token stop)
{
    std::unique_ptr<FrameSpool> spool(new FrameSpool(facts, std::move(folders), std::move(stop)));
    const uint64_t frameBytes = uint64_t(facts.channels) * sizeof(float);
    if (facts.length <= kMemoryLimit / frameBytes) {
        spool->mMemory.resize(size_t(facts.length) * size_t(facts.channels));
        return spool;
    }
    if (base::Result<> status = spool->openNextFolder(); !status)
        return status.error();
    return spool;
}

base::Result<> FrameSpool::write(uint64_t frame, const float* frames, size_t count)
{
    const auto channels = size_t(mFacts.channels);
    if (!mFile) {
        std::copy_n(frames, count * channels, mMemory.data() + size_t(frame) * channels);
        return {};
    }
    const std::span<const uint8_t> bytes = base::asBytes(std::span(frames, count * channels));
    for (;;) {
        const base::Result<> written = base::writeAt(mFile.get(), bytes, frame * channels * sizeof(float));
        if (written)
            return {};
        if (!base::anotherDiskMayHelp(written.error().systemError) || !openNextFolder())
            return mStop.stop_requested() ? base::cancelled() : storingError(written.error());
    }
}

base::Result<> FrameSpool::seek(uint64_t frame)
{
    mPosition = frame;
    return {};
}

base::Result<> FrameSpool::readFloat(float* frames, size_t count)
{
    const auto channels = size_t(mFacts.channels);
    if (!mFile) {
        std::copy_n(mMemory.data() + size_t(mPosition) * channels, count * channels, frames);
    } else {
        const std::span<uint8_t> bytes = base::asWritableBytes(std::span(frames, count * channels));
        const base::Result<> read = base::readAt(mFile.get(), bytes, mPosition * channels * sizeof(float));
        if (!read)
            return storingError(read.error());
    }
    mPosition += count;
    return {};
}

base::Result<> FrameSpool::readSamples(void* frames, size_t count)
{
    if (mFacts.sampleFormat == bank::SampleFormat::Float)
        return readFloat(static_cast<float*>(frames), count);
    const auto channels = size_t(mFacts.channels);
    const uint64_t firstPosition = mPosition * channels;
    mBuffer.resize(count * channels);
    if (base::Result<> status = readFloat(mBuffer.data(), count); !status)
        return status;
    quantise(mBuffer.data(), mBuffer.size(), firstPosition, bank::bytesPerSample(mFacts.sampleFormat),
             static_cast<uint8_t*>(frames));
    return {};
}

// The file is our own, so if it ends early, its disk has lost a part of it.
base::Error FrameSpool::storingError(const base::Error& error) const
{
    const bool endsEarly = error.code == base::ErrorCode::Damaged;
    return mFolders.fileError("storing resampled sound for", endsEarly ? EIO : error.systemError);
}

// Moves everything written so far to a file in the next folder.
base::Result<> FrameSpool::openNextFolder()
{
    for (;;) {
        base::Result<base::FileDescriptor> file =
            mFolders.createNext("no folder for temporary files has room for resampled sound");
        if (!file)
            return file.error();
        if (!mFile || copyTo(file->get())) {
            mFile = std::move(*file);
            return {};
        }
    }
}

bool FrameSpool::copyTo(int target) const
{
    struct stat status;
    return fstat(mFile.get(), &status) == 0
        && base::copyRange(mFile.get(), 0, target, 0, uint64_t(status.st_size),
                           [this] { return !mStop.stop_requested(); });
}

} // namespace builder
