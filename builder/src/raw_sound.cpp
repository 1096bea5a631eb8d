#include "raw_sound.hpp"

#include "source_file.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <fcntl.h>

namespace tarnok {

using bank::Error;

namespace {

bool isAsMeant(std::span<const std::byte> floats)
{
    bool all = true;
    for (size_t at = 0; at < floats.size(); at += sizeof(float)) {
        float sample;
        std::memcpy(&sample, &floats[at], sizeof sample);
        all &= std::abs(sample) <= SourceFile::largestSample; // false for a NaN
    }
    return all;
}

} // namespace

std::optional<RawSound> RawSound::open(const std::string& path, const FileStamp& stamp, const PreparedFacts& facts,
                                       const RawSamples& samples)
{
    FileStamp found;
    Result<FileDescriptor> file = openForReading(path, &found);
    if (!file || found != stamp)
        return std::nullopt;
    posix_fadvise(file->get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    return RawSound(std::move(*file), facts, samples);
}

RawSound::RawSound(FileDescriptor file, const PreparedFacts& facts, const RawSamples& samples)
    : mFile(std::move(file))
    , mFacts(facts)
    , mSamples(samples)
    , mFrameBytes(size_t(facts.channels) * bank::bytesPerSample(facts.sampleFormat))
{ }

Error RawSound::seek(int64_t position)
{
    if (position < 0 || uint64_t(position) > mFacts.sampleCount)
        return Error::Unsupported;
    mPosition = uint64_t(position) * mFrameBytes;
    return Error::None;
}

Error RawSound::readFloat(float*, size_t)
{
    return Error::Unsupported;
}

Error RawSound::readSamples(void* frames, size_t count)
{
    const std::span bytes(static_cast<std::byte*>(frames), count * mFrameBytes);
    if (!bank::rangeInside(mPosition, bytes.size(), mSamples.bytes))
        return Error::Unsupported;
    if (const int error = readAt(mFile.get(), bytes, mSamples.offset + mPosition))
        return error < 0 ? Error::Damaged : Error::Io;
    mPosition += bytes.size();
    const bool isFloat = mFacts.sampleFormat == bank::SampleFormat::Float;
    return isFloat && !isAsMeant(bytes) ? Error::Unsupported : Error::None;
}

} // namespace tarnok
