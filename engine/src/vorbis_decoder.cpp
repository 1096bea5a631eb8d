#include "decoders.hpp"
#include "float_decoder.hpp"
#include "tags.hpp"

#include <vorbis/vorbisfile.h>

#include <algorithm>
#include <climits>

namespace kess {

namespace {

// libsndfile's seek lands beside the sample wanted in Ogg Vorbis; libvorbisfile's doesn't.
class VorbisDecoder final : public FloatDecoder
{
public:
    explicit VorbisDecoder(Cursor cursor)
        : mCursor(std::move(cursor))
    { }

    ~VorbisDecoder() override
    {
        if (mIsOpen)
            ov_clear(&mFile);
    }

    [[nodiscard]] KESS_RESULT open(const SourceFile& file, const FileKind& kind)
    {
        const ov_callbacks callbacks{readBytes, seekBytes, nullptr, tellBytes};
        if (ov_open_callbacks(&mCursor, &mFile, nullptr, 0, callbacks) != 0)
            return KESS_ERR_FILE_BAD;
        mIsOpen = true;
        const vorbis_info* info = ov_info(&mFile, 0);
        if (!info || !ov_seekable(&mFile))
            return KESS_ERR_FILE_BAD;
        const KESS_RESULT limits = checkLimits(info->channels, static_cast<double>(info->rate));
        if (limits != KESS_OK)
            return limits;
        mFacts.type = kind.type;
        mFacts.format = KESS_SOUND_FORMAT_PCM16;
        mFacts.channels = info->channels;
        mFacts.sampleRate = static_cast<double>(info->rate);
        mFacts.sampleCount = lengthOfLikeLinks();
        readTags(file, kind, &mFacts);
        return KESS_OK;
    }

    [[nodiscard]] KESS_RESULT seek(uint64_t frame) override
    {
        return ov_pcm_seek(&mFile, static_cast<ogg_int64_t>(frame)) == 0 ? KESS_OK : KESS_ERR_FILE_COULDNOTSEEK;
    }

protected:
    [[nodiscard]] size_t decode(float* buffer, size_t count) override
    {
        const auto wanted = static_cast<int>(std::min<size_t>(count, INT_MAX));
        for (int holes = 0; holes < kMaxHoles; ++holes) {
            float** planes = nullptr;
            int link = 0;
            const long got = ov_read_float(&mFile, &planes, wanted, &link);
            if (got == OV_HOLE)
                continue; // some pages are missing: go on with those that follow
            if (got <= 0 || link >= mLinks)
                return 0;
            const auto channels = static_cast<size_t>(mFacts.channels);
            for (size_t channel = 0; channel < channels; ++channel) {
                for (long i = 0; i < got; ++i)
                    buffer[static_cast<size_t>(i) * channels + channel] = planes[channel][i];
            }
            reorderXiphChannels(buffer, static_cast<size_t>(got), mFacts.channels);
            return static_cast<size_t>(got);
        }
        return 0;
    }

private:
    static constexpr int kMaxHoles = 1000;

    // A file may chain several sounds. It counts as one as far as channels and rate stay the same.
    uint64_t lengthOfLikeLinks()
    {
        uint64_t length = 0;
        for (mLinks = 0; mLinks < ov_streams(&mFile); ++mLinks) {
            const vorbis_info* info = ov_info(&mFile, static_cast<int>(mLinks));
            const ogg_int64_t samples = ov_pcm_total(&mFile, static_cast<int>(mLinks));
            if (!info || samples < 0 || info->channels != mFacts.channels
                || static_cast<double>(info->rate) != mFacts.sampleRate)
                break;
            length += static_cast<uint64_t>(samples);
        }
        return length;
    }

    static size_t readBytes(void* buffer, size_t size, size_t count, void* user)
    {
        return size == 0 ? 0 : static_cast<Cursor*>(user)->read(buffer, size * count) / size;
    }

    static int seekBytes(void* user, ogg_int64_t offset, int whence)
    {
        return static_cast<Cursor*>(user)->seek(offset, whence) < 0 ? -1 : 0;
    }

    static long tellBytes(void* user) { return static_cast<long>(static_cast<Cursor*>(user)->tell()); }

    Cursor mCursor;
    OggVorbis_File mFile{};
    bool mIsOpen = false;
    long mLinks = 0;
};

} // namespace

KESS_RESULT openVorbis(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder)
{
    auto opened = std::make_unique<VorbisDecoder>(Cursor(file, kind.begin, kind.end));
    const KESS_RESULT result = opened->open(*file, kind);
    if (result == KESS_OK)
        *decoder = std::move(opened);
    return result;
}

} // namespace kess
