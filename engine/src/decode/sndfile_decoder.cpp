// SPDX-License-Identifier: MIT
#include "decode/decoders.hpp"

#include "decode/sample_convert.hpp"
#include "parse/flac_length.hpp"
#include "parse/header_checks.hpp"
#include "parse/plain_header.hpp"
#include "parse/tags.hpp"

#include <sndfile.h>

#include <algorithm>
#include <mutex>

namespace engine {

namespace {

struct CloseSndfile
{
    void operator()(SNDFILE* handle) const { sf_close(handle); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, CloseSndfile>;

Cursor& asCursor(void* user)
{
    return *static_cast<Cursor*>(user);
}

SF_VIRTUAL_IO virtualIo()
{
    SF_VIRTUAL_IO io{};
    io.get_filelen = [](void* user) {
        return static_cast<sf_count_t>(asCursor(user).size());
    };
    io.seek = [](sf_count_t offset, int whence, void* user) {
        return static_cast<sf_count_t>(asCursor(user).seek(offset, whence));
    };
    io.read = [](void* buffer, sf_count_t count, void* user) {
        return count <= 0 ? 0 : static_cast<sf_count_t>(asCursor(user).read(buffer, static_cast<size_t>(count)));
    };
    io.write = [](const void*, sf_count_t, void*) {
        return sf_count_t{0};
    };
    io.tell = [](void* user) {
        return static_cast<sf_count_t>(asCursor(user).position());
    };
    return io;
}

SndfileHandle openHandle(Cursor& cursor, SF_INFO* info)
{
    // Opening writes the library's global error number and log; reading and seeking don't.
    static std::mutex opening;
    const std::lock_guard<std::mutex> lock(opening);

    if (cursor.seek(0, SEEK_SET) != 0)
        return nullptr;
    SF_VIRTUAL_IO io = virtualIo();
    *info = SF_INFO{};
    return SndfileHandle(sf_open_virtual(&io, SFM_READ, info, &cursor));
}

KESS_SOUND_FORMAT sampleFormat(int format)
{
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_DPCM_8:
        return KESS_SOUND_FORMAT_PCM8;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_DWVW_24:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24:
        return KESS_SOUND_FORMAT_PCM24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32:
        return KESS_SOUND_FORMAT_PCM32;
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE:
        return KESS_SOUND_FORMAT_PCMFLOAT;
    default:
        return KESS_SOUND_FORMAT_PCM16;
    }
}

// Whether a seek of the library leads to exactly the samples of sequential decoding. For other formats, it refuses to
// seek, or decodes from a wrong state.
bool seeksExactly(int format)
{
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
    case SF_FORMAT_IMA_ADPCM:
    case SF_FORMAT_MS_ADPCM:
        return true;
    default:
        return false;
    }
}

bool packsBlocks(int format)
{
    const int encoding = format & SF_FORMAT_SUBMASK;
    return encoding == SF_FORMAT_IMA_ADPCM || encoding == SF_FORMAT_MS_ADPCM || encoding == SF_FORMAT_GSM610
        || encoding == SF_FORMAT_G721_32 || encoding == SF_FORMAT_NMS_ADPCM_16 || encoding == SF_FORMAT_NMS_ADPCM_24
        || encoding == SF_FORMAT_NMS_ADPCM_32;
}

// Decodes with libsndfile. Where its seeks are inexact, this decodes up to the target instead.
class SndfileDecoder final : public Decoder
{
public:
    explicit SndfileDecoder(Cursor cursor)
        : mCursor(std::move(cursor))
    { }

    base::Result<> open(const RecognisedFile& file)
    {
        SF_INFO info;
        mHandle = openHandle(mCursor, &info);
        if (!mHandle || info.frames < 0)
            return refusal(file);
        if (base::Result<> limits = checkLimits(info.channels, info.samplerate); !limits)
            return limits;
        mFacts.type = file.kind.type;
        mFacts.format = sampleFormat(info.format);
        mFacts.channels = info.channels;
        mFacts.sampleRate = info.samplerate;
        mFacts.sampleCount = static_cast<uint64_t>(info.frames);
        mSeeksExactly = seeksExactly(info.format);
        if (info.frames == SF_COUNT_MAX) {
            mSeeksExactly = false;
            const std::optional<uint64_t> length = flacLength(*file.file, file.kind.begin, file.kind.end);
            if (!length)
                return base::Error{base::ErrorCode::Damaged, "it has no whole frame"};
            mFacts.sampleCount = *length;
        }
        if (file.kind.type == KESS_SOUND_TYPE_AIFF || packsBlocks(info.format))
            mFacts.sampleCount = lengthInHeader(file, mFacts.sampleCount);
        mFacts.raw = rawSamples(file, mFacts);
        readTags(file, mFacts);
        return {};
    }

    [[nodiscard]] const SoundFacts& facts() const override { return mFacts; }

    base::Result<> seek(uint64_t frame) override
    {
        if (frame == mPosition)
            return {};
        if (mSeeksExactly) {
            const auto target = static_cast<sf_count_t>(frame);
            if (sf_seek(mHandle.get(), target, SEEK_SET) != target)
                return fail();
            mPosition = frame;
            return {};
        }
        if (frame < mPosition || mPosition == kLost) {
            SF_INFO info;
            mHandle.reset();
            mHandle = openHandle(mCursor, &info);
            if (!mHandle || info.channels != mFacts.channels)
                return fail();
            mPosition = 0;
        }
        return skipTo(frame);
    }

    base::Result<size_t> read(void* buffer, size_t count) override
    {
        if (!mHandle)
            return base::Error{base::ErrorCode::Damaged};
        size_t done = 0;
        auto* bytes = static_cast<uint8_t*>(buffer);
        const size_t frameBytes = static_cast<size_t>(mFacts.channels) * bytesPerSample(mFacts.format);
        while (done < count) {
            const size_t wanted = std::min(count - done, kChunkFrames);
            const size_t got = readChunk(bytes + done * frameBytes, wanted);
            done += got;
            if (got < wanted)
                break;
        }
        mPosition += done;
        return done;
    }

    base::Result<size_t> readFloat(float* buffer, size_t count) override
    {
        if (!mHandle)
            return base::Error{base::ErrorCode::Damaged};
        const size_t done = readFloats(buffer, count);
        mPosition += done;
        return done;
    }

private:
    static constexpr uint64_t kLost = ~uint64_t{0};
    static constexpr size_t kChunkFrames = 4096;

    base::Error fail()
    {
        mPosition = kLost;
        return {base::ErrorCode::NotSeekable};
    }

    base::Result<> skipTo(uint64_t frame)
    {
        mScratch.resize(kChunkFrames * static_cast<size_t>(mFacts.channels));
        while (mPosition < frame) {
            const auto wanted = static_cast<size_t>(std::min<uint64_t>(kChunkFrames, frame - mPosition));
            const size_t got = readFloats(reinterpret_cast<float*>(mScratch.data()), wanted);
            if (got == 0)
                return fail();
            mPosition += got;
        }
        return {};
    }

    // These three return how many frames were read. Fewer only at the end and where the file is damaged.
    size_t readFloats(float* buffer, size_t frames)
    {
        const sf_count_t got = sf_readf_float(mHandle.get(), buffer, static_cast<sf_count_t>(frames));
        return got > 0 ? static_cast<size_t>(got) : 0;
    }

    size_t readShorts(int16_t* buffer, size_t frames)
    {
        const sf_count_t got = sf_readf_short(mHandle.get(), buffer, static_cast<sf_count_t>(frames));
        return got > 0 ? static_cast<size_t>(got) : 0;
    }

    size_t readInts(int32_t* buffer, size_t frames)
    {
        const sf_count_t got = sf_readf_int(mHandle.get(), buffer, static_cast<sf_count_t>(frames));
        return got > 0 ? static_cast<size_t>(got) : 0;
    }

    // Reads at most kChunkFrames in the file's own format.
    size_t readChunk(uint8_t* buffer, size_t frames)
    {
        switch (mFacts.format) {
        case KESS_SOUND_FORMAT_PCMFLOAT:
            return readFloats(reinterpret_cast<float*>(buffer), frames);
        case KESS_SOUND_FORMAT_PCM32:
            return readInts(reinterpret_cast<int32_t*>(buffer), frames);
        case KESS_SOUND_FORMAT_PCM16:
            return readShorts(reinterpret_cast<int16_t*>(buffer), frames);
        default:
            break;
        }
        const auto channels = static_cast<size_t>(mFacts.channels);
        mScratch.resize(kChunkFrames * channels);
        const size_t got = readInts(mScratch.data(), frames);
        packTopBytes(mScratch.data(), got * channels, bytesPerSample(mFacts.format), buffer);
        return got;
    }

    Cursor mCursor;
    SndfileHandle mHandle;
    SoundFacts mFacts;
    std::vector<int32_t> mScratch;
    uint64_t mPosition = 0;
    bool mSeeksExactly = false;
};

} // namespace

base::Result<DecoderPointer> openSndfile(const RecognisedFile& file)
{
    if (base::Result<> header = checkHeader(file); !header)
        return std::move(header.error());
    if (const std::optional<FileKind> stream = streamInWav(file))
        return openDecoder({file.file, *stream, {}});
    std::optional<Cursor> view = plainView(file);
    if (!view)
        return base::Error{base::ErrorCode::Damaged, "its samples, or their format, are missing"};
    auto decoder = std::make_unique<SndfileDecoder>(std::move(*view));
    if (base::Result<> opened = decoder->open(file); !opened)
        return std::move(opened.error());
    return DecoderPointer(std::move(decoder));
}

} // namespace engine
