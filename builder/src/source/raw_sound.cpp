#include "source/raw_sound.hpp"

#include "base/bytes.hpp"

#include <fcntl.h>

namespace tarnok {

using bank::Error;

std::optional<RawSound> RawSound::open(const std::string& path, const base::FileStamp& stamp,
                                       const PreparedFacts& facts, const RawSamples& samples)
{
    base::Result<base::OpenedFile> file = base::openRegular(path);
    if (!file || file->stamp != stamp)
        return std::nullopt;
    posix_fadvise(file->descriptor.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    return RawSound(std::move(file->descriptor), facts, samples);
}

RawSound::RawSound(base::FileDescriptor file, const PreparedFacts& facts, const RawSamples& samples)
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
    const std::span bytes(static_cast<uint8_t*>(frames), count * mFrameBytes);
    if (!base::rangeInside(mPosition, bytes.size(), mSamples.bytes))
        return Error::Unsupported;
    const base::Result<> read = base::readAt(mFile.get(), bytes, mSamples.offset + mPosition);
    if (!read)
        return read.error().code == base::ErrorCode::Damaged ? Error::Damaged : Error::Io;
    mPosition += bytes.size();
    return Error::None;
}

} // namespace tarnok
