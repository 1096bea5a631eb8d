// SPDX-License-Identifier: MIT
#include "source/raw_sound.hpp"

#include "base/bytes.hpp"

#include <fcntl.h>

namespace builder {

std::optional<RawSound> RawSound::open(const std::string& path, const base::FileStamp& stamp,
                                       const PreparedFacts& facts, const RawSampleRange& samples)
{
    base::Result<base::OpenedFile> file = base::openRegular(path);
    if (!file || file->stamp != stamp)
        return std::nullopt;
    posix_fadvise(file->descriptor.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    return RawSound(std::move(file->descriptor), facts, samples);
}

RawSound::RawSound(base::FileDescriptor file, const PreparedFacts& facts, const RawSampleRange& samples)
    : mFile(std::move(file))
    , mFacts(facts)
    , mSamples(samples)
    , mFrameBytes(size_t(facts.channels) * bank::bytesPerSample(facts.sampleFormat))
{ }

base::Result<> RawSound::seek(int64_t position)
{
    if (position < 0 || uint64_t(position) > mFacts.sampleCount)
        return base::Error{base::ErrorCode::Unsupported};
    mPosition = uint64_t(position) * mFrameBytes;
    return {};
}

base::Result<> RawSound::readFloat(float*, size_t)
{
    return base::Error{base::ErrorCode::Unsupported};
}

base::Result<> RawSound::readSamples(void* frames, size_t count)
{
    const std::span bytes(static_cast<uint8_t*>(frames), count * mFrameBytes);
    if (!base::rangeInside(mPosition, bytes.size(), mSamples.bytes))
        return base::Error{base::ErrorCode::Unsupported};
    if (base::Result<> read = base::readAt(mFile.get(), bytes, mSamples.offset + mPosition); !read)
        return read;
    mPosition += bytes.size();
    return {};
}

} // namespace builder
