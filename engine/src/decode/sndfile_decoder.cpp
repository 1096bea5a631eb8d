#include "decode/decoders.hpp"

#include "decode/sample_convert.hpp"
#include "parse/flac_length.hpp"
#include "parse/header_checks.hpp"
#include "parse/plain_header.hpp"
#include "parse/tags.hpp"

#include <sndfile.h>

#include <algorithm>
#include <mutex>

namespace kess {

namespace {

struct CloseSndfile
{
    void operator()(SNDFILE* handle) const { sf_close(handle); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, CloseSndfile>;

Cursor& cursorOf(void* user)
{
    return *static_cast<Cursor*>(user);
}

SF_VIRTUAL_IO virtualIo()
{
    SF_VIRTUAL_IO io{};
    io.get_filelen = [](void* user) {
        return static_cast<sf_count_t>(cursorOf(user).size());
    };
    io.seek = [](sf_count_t offset, int whence, void* user) {
        return static_cast<sf_count_t>(cursorOf(user).seek(offset, whence));
    };
    io.read = [](void* buffer, sf_count_t count, void* user) {
        return count <= 0 ? 0 : static_cast<sf_count_t>(cursorOf(user).read(buffer, static_cast<size_t>(count)));
    };
    io.write = [](const void*, sf_count_t, void*) {
        return sf_count_t{0};
    };
    io.tell = [](void* user) {
        return static_cast<sf_count_t>(cursorOf(user).tell());
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

// Whether the library finds any sample of such a file exactly, with the same bits as a straight read. Of the others
// some refuse, and some decode from a wrong state.
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

// Decodes by libsndfile. Where that seeks inexactly, seeking is decoding up to the sample that is wanted.
class SndfileDecoder final : public Decoder
{
public:
    explicit SndfileDecoder(Cursor cursor)
        : mCursor(std::move(cursor))
    { }

    [[nodiscard]] KESS_RESULT open(const SourceFile& file, const FileKind& kind)
    {
        SF_INFO info;
        mHandle = openHandle(mCursor, &info);
        if (!mHandle || info.frames < 0)
            return reasonForRefusal(file, kind);
        const KESS_RESULT limits = checkLimits(info.channels, info.samplerate);
        if (limits != KESS_OK)
            return limits;
        mFacts.type = kind.type;
        mFacts.format = sampleFormat(info.format);
        mFacts.channels = info.channels;
        mFacts.sampleRate = info.samplerate;
        mFacts.sampleCount = static_cast<uint64_t>(info.frames);
        mSeeksExactly = seeksExactly(info.format);
        if (info.frames == SF_COUNT_MAX) {
            mSeeksExactly = false;
            const std::optional<uint64_t> length = flacLength(file, kind.begin, kind.end);
            if (!length)
                return KESS_ERR_FILE_BAD;
            mFacts.sampleCount = *length;
        }
        if (kind.type == KESS_SOUND_TYPE_AIFF || packsBlocks(info.format))
            mFacts.sampleCount = lengthInHeader(file, kind, mFacts.sampleCount);
        mFacts.raw = rawSamples(file, kind, mFacts);
        readTags(file, kind, &mFacts);
        return KESS_OK;
    }

    [[nodiscard]] const SoundFacts& facts() const override { return mFacts; }

    [[nodiscard]] KESS_RESULT seek(uint64_t frame) override
    {
        if (frame == mPosition)
            return KESS_OK;
        if (mSeeksExactly) {
            const auto target = static_cast<sf_count_t>(frame);
            if (sf_seek(mHandle.get(), target, SEEK_SET) != target)
                return fail();
            mPosition = frame;
            return KESS_OK;
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

    [[nodiscard]] KESS_RESULT read(void* buffer, size_t count, size_t* done) override
    {
        *done = 0;
        if (!mHandle)
            return KESS_ERR_FILE_BAD;
        size_t chunk = 0;
        auto* bytes = static_cast<uint8_t*>(buffer);
        const size_t frameBytes = static_cast<size_t>(mFacts.channels) * bytesPerSample(mFacts.format);
        while (*done < count) {
            const size_t wanted = std::min(count - *done, kChunkFrames);
            chunk = readChunk(bytes + *done * frameBytes, wanted);
            *done += chunk;
            if (chunk < wanted)
                break;
        }
        mPosition += *done;
        return KESS_OK;
    }

    [[nodiscard]] KESS_RESULT readFloat(float* buffer, size_t count, size_t* done) override
    {
        *done = 0;
        if (!mHandle)
            return KESS_ERR_FILE_BAD;
        *done = readFloats(buffer, count);
        mPosition += *done;
        return KESS_OK;
    }

private:
    static constexpr uint64_t kLost = ~uint64_t{0};
    static constexpr size_t kChunkFrames = 4096;

    KESS_RESULT fail()
    {
        mPosition = kLost;
        return KESS_ERR_FILE_COULDNOTSEEK;
    }

    KESS_RESULT skipTo(uint64_t frame)
    {
        mScratch.resize(kChunkFrames * static_cast<size_t>(mFacts.channels));
        while (mPosition < frame) {
            const auto wanted = static_cast<size_t>(std::min<uint64_t>(kChunkFrames, frame - mPosition));
            const size_t got = readFloats(reinterpret_cast<float*>(mScratch.data()), wanted);
            if (got == 0)
                return fail();
            mPosition += got;
        }
        return KESS_OK;
    }

    // These three: how many frames came, up to frames; fewer only at the end and where the file is damaged.
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

KESS_RESULT openSndfile(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder)
{
    const KESS_RESULT header = checkHeader(*file, kind);
    if (header != KESS_OK)
        return header;
    if (const std::optional<FileKind> stream = streamInWav(*file, kind))
        return openDecoder(file, *stream, decoder);
    std::optional<Cursor> view = plainView(file, kind);
    if (!view)
        return KESS_ERR_FILE_BAD;
    auto opened = std::make_unique<SndfileDecoder>(std::move(*view));
    const KESS_RESULT result = opened->open(*file, kind);
    if (result == KESS_OK)
        *decoder = std::move(opened);
    return result;
}

} // namespace kess
