// SPDX-License-Identifier: MIT
#include "decode/decoders.hpp"

#include "decode/float_decoder.hpp"
#include "parse/header_checks.hpp"
#include "parse/mpeg_frames.hpp"

#include <mpg123.h>

#include <algorithm>
#include <cstdio>

namespace engine {

namespace {

struct DeleteHandle
{
    void operator()(mpg123_handle* handle) const { mpg123_delete(handle); }
};

// libsndfile reads MPEG audio too, but estimates positions: without a length tag, a variable bit rate leads to the
// wrong length, and a seek to wrong samples. The library that it is based on can do both exactly.
class MpegDecoder final : public FloatDecoder
{
public:
    explicit MpegDecoder(Cursor cursor)
        : mCursor(std::move(cursor))
    { }

    base::Result<> open(const RecognisedFile& file)
    {
        // The scan reads every header of the file. So the length is that of the existing frames, without what the
        // encoder declares as padding.
        long rate = 0;
        int channels = 0;
        int encoding = 0;
        if (!start(file) || mpg123_getformat(mHandle.get(), &rate, &channels, &encoding) != MPG123_OK
            || !fixFormat(channels) || mpg123_scan(mHandle.get()) != MPG123_OK)
            return base::Error{base::ErrorCode::Damaged, "its frames can't be decoded"};
        const off_t length = mpg123_length(mHandle.get());
        if (length < 0)
            return base::Error{base::ErrorCode::Damaged, "its length can't be measured"};
        mFacts.type = file.kind.type;
        mFacts.format = KESS_SOUND_FORMAT_PCM16;
        mFacts.channels = channels;
        mFacts.sampleRate = static_cast<double>(rate);
        mFacts.sampleCount = static_cast<uint64_t>(length);
        mFacts.declaredCount = std::max(mFacts.sampleCount, declaredCount(file));
        return checkLimits(channels, mFacts.sampleRate);
    }

    base::Result<> seek(uint64_t frame) override
    {
        const auto target = static_cast<off_t>(frame);
        if (mpg123_seek(mHandle.get(), target, SEEK_SET) != target)
            return base::Error{base::ErrorCode::NotSeekable};
        return {};
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
    bool start(const RecognisedFile& file)
    {
        // A frame of the lowest bit rate borrows bits from up to some 20 previous frames. After a seek, these are
        // decoded first, so that the samples are those of sequential decoding.
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
        // Frames of free format don't contain their length. The library would search for the next header, in damaged
        // files again and again. So it gets the length, or one that makes it skip all such headers.
        constexpr long kTooLong = 65536;
        mpg123_param(handle, MPG123_FREEFORMAT_SIZE,
                     freeFormatLength(*file.file, file.kind.begin, file.kind.end).value_or(kTooLong), 0);
        return mpg123_replace_reader_handle(handle, readBytes, seekBytes, nullptr) == MPG123_OK
            && mpg123_open_handle(handle, &mCursor) == MPG123_OK;
    }

    // The samples of all frames that the encoder has counted if some of them are missing, otherwise 0. Some encoders
    // also count the frame that stores the number. So if one frame is missing, the size in bytes decides.
    uint64_t declaredCount(const RecognisedFile& file)
    {
        const FileKind& kind = file.kind;
        const std::optional<MpegLength> declared = lengthInFirstFrame(*file.file, kind.begin);
        const off_t stored = mpg123_framelength(mHandle.get());
        const int frameSamples = mpg123_spf(mHandle.get());
        if (!declared || stored < 0 || frameSamples <= 0 || declared->frames <= static_cast<uint64_t>(stored))
            return 0;
        const bool isCut =
            declared->frames - static_cast<uint64_t>(stored) > 1 || declared->bytes > kind.end - kind.begin;
        return isCut ? declared->frames * static_cast<uint64_t>(frameSamples) : 0;
    }

    // Frames with another number of channels in the same stream are converted. Frames with another rate are usually
    // damage and are passed on unchanged: if they were refused, the library would write to the error stream.
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

base::Result<DecoderPointer> openMpeg(const RecognisedFile& file)
{
    auto decoder = std::make_unique<MpegDecoder>(file.cursor());
    if (base::Result<> opened = decoder->open(file); !opened)
        return std::move(opened.error());
    return DecoderPointer(std::move(decoder));
}

} // namespace engine
