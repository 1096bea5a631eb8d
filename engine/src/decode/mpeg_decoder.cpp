#include "decode/decoders.hpp"

#include "decode/float_decoder.hpp"
#include "parse/header_checks.hpp"
#include "parse/mpeg_frames.hpp"

#include <mpg123.h>

#include <algorithm>
#include <cstdio>

namespace kess {

namespace {

struct DeleteHandle
{
    void operator()(mpg123_handle* handle) const { mpg123_delete(handle); }
};

// libsndfile reads MPEG audio too, but through estimates: without a length tag a variable bit rate gives it the wrong
// length, and a seek wrong samples. The library under it can do both exactly.
class MpegDecoder final : public FloatDecoder
{
public:
    explicit MpegDecoder(Cursor cursor)
        : mCursor(std::move(cursor))
    { }

    [[nodiscard]] KESS_RESULT open(const SourceFile& file, const FileKind& kind)
    {
        // The scan goes from header to header through the whole file, so that the length is that of the frames that
        // are there, less what the encoder says is padding.
        long rate = 0;
        int channels = 0;
        int encoding = 0;
        if (!start(file, kind) || mpg123_getformat(mHandle.get(), &rate, &channels, &encoding) != MPG123_OK
            || !fixFormat(channels) || mpg123_scan(mHandle.get()) != MPG123_OK)
            return KESS_ERR_FILE_BAD;
        const off_t length = mpg123_length(mHandle.get());
        if (length < 0)
            return KESS_ERR_FILE_BAD;
        mFacts.type = kind.type;
        mFacts.format = KESS_SOUND_FORMAT_PCM16;
        mFacts.channels = channels;
        mFacts.sampleRate = static_cast<double>(rate);
        mFacts.sampleCount = static_cast<uint64_t>(length);
        mFacts.declaredCount = std::max(mFacts.sampleCount, declaredCount(file, kind));
        return checkLimits(channels, mFacts.sampleRate);
    }

    [[nodiscard]] KESS_RESULT seek(uint64_t frame) override
    {
        const auto target = static_cast<off_t>(frame);
        return mpg123_seek(mHandle.get(), target, SEEK_SET) == target ? KESS_OK : KESS_ERR_FILE_COULDNOTSEEK;
    }

protected:
    [[nodiscard]] size_t decode(float* buffer, size_t count) override
    {
        const size_t frameBytes = static_cast<size_t>(mFacts.channels) * sizeof(float);
        for (;;) {
            size_t bytes = 0;
            const int result =
                mpg123_read(mHandle.get(), reinterpret_cast<unsigned char*>(buffer), count * frameBytes, &bytes);
            if (bytes >= frameBytes)
                return bytes / frameBytes;
            if (result != MPG123_OK && result != MPG123_NEW_FORMAT)
                return 0;
            if (bytes == 0 && result == MPG123_OK)
                return 0;
        }
    }

private:
    bool start(const SourceFile& file, const FileKind& kind)
    {
        // A frame of the lowest bit rate borrows bits from up to some 20 frames before it; after a seek these are
        // decoded first, so that the sound is that of a straight read.
        constexpr long kPreframes = 32;
        mHandle.reset(mpg123_new(nullptr, nullptr));
        mpg123_handle* handle = mHandle.get();
        if (!handle)
            return false;
        mpg123_param(handle, MPG123_REMOVE_FLAGS, MPG123_AUTO_RESAMPLE, 0);
        mpg123_param(handle, MPG123_ADD_FLAGS, MPG123_QUIET | MPG123_FORCE_FLOAT | MPG123_GAPLESS | MPG123_SKIP_ID3V2,
                     0);
        mpg123_param(handle, MPG123_INDEX_SIZE, -1000, 0); // grows: every frame is indexed
        mpg123_param(handle, MPG123_PREFRAMES, kPreframes, 0);
        mpg123_param(handle, MPG123_RESYNC_LIMIT, 65536, 0);
        // Frames of free format don't tell their length. The library searches for the next header, in vain for up to
        // five of them between any two others; so it gets the length, or one that makes junk of all such headers.
        constexpr long kTooLong = 65536;
        mpg123_param(handle, MPG123_FREEFORMAT_SIZE, freeFormatLength(file, kind.begin, kind.end).value_or(kTooLong),
                     0);
        return mpg123_replace_reader_handle(handle, readBytes, seekBytes, nullptr) == MPG123_OK
            && mpg123_open_handle(handle, &mCursor) == MPG123_OK;
    }

    // The samples of all frames that the encoder has counted, if some of them are missing, else 0. Some encoders count
    // the frame that says so, too: a single one is missing only if bytes are.
    uint64_t declaredCount(const SourceFile& file, const FileKind& kind)
    {
        const std::optional<MpegLength> told = lengthInFirstFrame(file, kind.begin);
        const off_t there = mpg123_framelength(mHandle.get());
        const int frameSamples = mpg123_spf(mHandle.get());
        if (!told || there < 0 || frameSamples <= 0 || told->frames <= static_cast<uint64_t>(there))
            return 0;
        const bool isCut = told->frames - static_cast<uint64_t>(there) > 1 || told->bytes > kind.end - kind.begin;
        return isCut ? told->frames * static_cast<uint64_t>(frameSamples) : 0;
    }

    // Frames of another number of channels in the same stream are converted. Those of another rate, which are as a
    // rule not frames but damage, go through as they are: to refuse them makes the library write to the error stream.
    bool fixFormat(int channels)
    {
        const long* rates = nullptr;
        size_t count = 0;
        mpg123_rates(&rates, &count);
        bool isFixed = mpg123_format_none(mHandle.get()) == MPG123_OK;
        for (size_t i = 0; i < count; ++i) {
            const int mode = channels == 1 ? MPG123_MONO : MPG123_STEREO;
            isFixed = isFixed && mpg123_format(mHandle.get(), rates[i], mode, MPG123_ENC_FLOAT_32) == MPG123_OK;
        }
        return isFixed;
    }

    static ssize_t readBytes(void* user, void* buffer, size_t count)
    {
        return static_cast<ssize_t>(static_cast<Cursor*>(user)->read(buffer, count));
    }

    static off_t seekBytes(void* user, off_t offset, int whence)
    {
        return static_cast<off_t>(static_cast<Cursor*>(user)->seek(offset, whence));
    }

    Cursor mCursor;
    std::unique_ptr<mpg123_handle, DeleteHandle> mHandle;
};

} // namespace

KESS_RESULT openMpeg(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder)
{
    auto opened = std::make_unique<MpegDecoder>(Cursor(file, kind.begin, kind.end));
    const KESS_RESULT result = opened->open(*file, kind);
    if (result == KESS_OK)
        *decoder = std::move(opened);
    return result;
}

} // namespace kess
