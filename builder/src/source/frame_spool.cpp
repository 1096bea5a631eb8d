#include "source/frame_spool.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>

#include <sys/stat.h>

namespace tarnok {

namespace {

// One step of the SplitMix64 generator (Steele, Lea and Flood 2014), used as a hash of the place.
uint64_t scramble(uint64_t number)
{
    number += 0x9e3779b97f4a7c15u;
    number = (number ^ (number >> 30)) * 0xbf58476d1ce4e5b9u;
    number = (number ^ (number >> 27)) * 0x94d049bb133111ebu;
    return number ^ (number >> 31);
}

// Triangular noise from -1 to 1, in steps of the target.
double dither(uint64_t place)
{
    const uint64_t random = scramble(place);
    return (double(random >> 32) - double(random & 0xffffffffu)) / 4294967296.0;
}

// Little-endian integers of `width` bytes, full scale at -1 to 1, dithered and clipped.
void quantise(const float* samples, size_t count, uint64_t firstPlace, size_t width, uint8_t* target)
{
    const double scale = std::ldexp(1.0, int(8 * width) - 1);
    for (size_t i = 0; i < count; ++i) {
        const double wanted = std::nearbyint(double(samples[i]) * scale + dither(firstPlace + i));
        const auto value = int64_t(std::clamp(wanted, -scale, scale - 1));
        for (size_t byte = 0; byte < width; ++byte)
            *target++ = uint8_t(uint64_t(value) >> (8 * byte));
    }
}

} // namespace

Result<std::unique_ptr<FrameSpool>> FrameSpool::create(const FrameFacts& facts, const std::vector<std::string>& folders,
                                                       std::stop_token stop)
{
    std::unique_ptr<FrameSpool> spool(new FrameSpool(facts, std::move(stop)));
    const uint64_t frameBytes = uint64_t(facts.channels) * sizeof(float);
    if (facts.length <= kMemoryLimit / frameBytes) {
        spool->mMemory.resize(size_t(facts.length) * size_t(facts.channels));
        return spool;
    }
    spool->mFolders = folders;
    if (Status status = spool->openNextFolder(); !status)
        return status.fault();
    return spool;
}

Status FrameSpool::write(uint64_t frame, const float* frames, size_t count)
{
    const auto channels = size_t(mFacts.channels);
    if (!mFile) {
        std::copy_n(frames, count * channels, mMemory.data() + size_t(frame) * channels);
        return {};
    }
    const auto bytes = std::as_bytes(std::span(frames, count * channels));
    for (;;) {
        const int error = writeAt(mFile.get(), bytes, frame * channels * sizeof(float));
        if (error == 0)
            return {};
        if (!anotherDiskMayHelp(error) || !openNextFolder())
            return mStop.stop_requested() ? cancelled() : faultOf(error);
    }
}

Status FrameSpool::seek(uint64_t frame)
{
    mPosition = frame;
    return {};
}

Status FrameSpool::readFloat(float* frames, size_t count)
{
    const auto channels = size_t(mFacts.channels);
    if (!mFile) {
        std::copy_n(mMemory.data() + size_t(mPosition) * channels, count * channels, frames);
    } else {
        const auto bytes = std::as_writable_bytes(std::span(frames, count * channels));
        if (const int error = readAt(mFile.get(), bytes, mPosition * channels * sizeof(float)))
            return faultOf(error);
    }
    mPosition += count;
    return {};
}

Status FrameSpool::readSamples(void* frames, size_t count)
{
    if (mFacts.sampleFormat == bank::SampleFormat::Float)
        return readFloat(static_cast<float*>(frames), count);
    const auto channels = size_t(mFacts.channels);
    const uint64_t firstPlace = mPosition * channels;
    mRoom.resize(count * channels);
    if (Status status = readFloat(mRoom.data(), count); !status)
        return status;
    quantise(mRoom.data(), mRoom.size(), firstPlace, bank::bytesPerSample(mFacts.sampleFormat),
             static_cast<uint8_t*>(frames));
    return {};
}

Fault FrameSpool::faultOf(int error) const
{
    Fault fault = fileFault("keeping resampled sound for", "the bank", error < 0 ? EIO : error);
    if (anotherDiskMayHelp(error))
        fault.text += " (in " + listed(mFolders) + ")";
    return fault;
}

// Moves to the next folder with all that was written so far.
Status FrameSpool::openNextFolder()
{
    Fault last{TARNOK_ERR_FILE_OS, "no folder for temporary files has room for resampled sound"};
    while (mNextFolder < mFolders.size()) {
        Result<FileDescriptor> file = TemporaryFile::createUnnamed(mFolders[mNextFolder++]);
        struct stat status;
        if (!file) {
            last = file.fault();
        } else if (!mFile
                   || (fstat(mFile.get(), &status) == 0
                       && copyRange(mFile.get(), 0, file->get(), 0, uint64_t(status.st_size),
                                    [this] { return !mStop.stop_requested(); })
                           == 0)) {
            mFile = std::move(*file);
            return {};
        }
    }
    return last;
}

} // namespace tarnok
