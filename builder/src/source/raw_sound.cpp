#include "source/raw_sound.hpp"

#include <fcntl.h>

namespace tarnok {

using bank::Error;

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
    return Error::None;
}

} // namespace tarnok
