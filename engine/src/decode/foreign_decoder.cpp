#include "decode/decoders.hpp"

#include "decode/decoder_module.h"
#include "decode/sample_convert.hpp"
#include "parse/header_checks.hpp"
#include "parse/mp4_tables.hpp"
#include "parse/ogg_check.hpp"
#include "parse/tags.hpp"

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace kess {

namespace {

// Whether there is room for the module and all libraries that it needs, which take about 200 MB of addresses. The
// loader says why it failed in words only, and those depend on the language.
bool canMapModule()
{
    constexpr size_t kModuleBytes = 256 << 20;
    void* room =
        mmap(nullptr, kModuleBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (room == MAP_FAILED)
        return false;
    munmap(room, kModuleBytes);
    return true;
}

struct ModuleSearch
{
    const KESS_DECODER_MODULE* module = nullptr;
    KESS_RESULT result = KESS_ERR_FORMAT;
};

ModuleSearch findModule()
{
    Dl_info self;
    if (dladdr(reinterpret_cast<const void*>(&findModule), &self) == 0 || !self.dli_fname)
        return {};
    const std::string library = self.dli_fname;
    const size_t slash = library.rfind('/');
    const std::string path = (slash == library.npos ? "" : library.substr(0, slash + 1)) + "kess_ffmpeg.so";
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle)
        return {nullptr, access(path.c_str(), F_OK) == 0 && !canMapModule() ? KESS_ERR_MEMORY : KESS_ERR_FORMAT};
    const auto entry = reinterpret_cast<KESS_DECODER_MODULE_FUNCTION>(dlsym(handle, KESS_DECODER_MODULE_ENTRY));
    const KESS_DECODER_MODULE* found = entry ? entry() : nullptr;
    if (!found || found->version != KESS_DECODER_MODULE_VERSION)
        return {};
    return {found, KESS_OK};
}

// The module beside this library: KESS_ERR_FORMAT when there is none, or one of another version. It is looked for when
// a file first needs it, and again only where memory was short, and stays loaded.
ModuleSearch decoderModule()
{
    static std::mutex mutex;
    static std::optional<ModuleSearch> known;
    const std::lock_guard lock(mutex);
    if (known)
        return *known;
    const ModuleSearch search = findModule();
    if (search.result != KESS_ERR_MEMORY)
        known = search;
    return search;
}

struct InputFile
{
    FilePointer file;
    uint64_t begin;
};

size_t readInput(void* user, uint64_t offset, void* buffer, size_t count)
{
    const auto& input = *static_cast<const InputFile*>(user);
    if (offset > UINT64_MAX - input.begin)
        return 0;
    return input.file->readAt(input.begin + offset, buffer, count);
}

// Decodes by the module, which only reads on: seeking back begins anew.
class ForeignDecoder final : public Decoder
{
public:
    ForeignDecoder(const KESS_DECODER_MODULE& module, const FilePointer& file, const FileKind& kind)
        : mModule(module)
        , mFile{file, kind.begin}
        , mInput{&mFile, readInput, kind.end - kind.begin}
        , mContainer(kind.container)
    { }

    ~ForeignDecoder() override { close(); }

    [[nodiscard]] KESS_RESULT open(const FileKind& kind)
    {
        KESS_MODULE_FACTS facts{};
        KESS_RESULT result = mModule.open(&mInput, mContainer, &mDecoder, &facts);
        if (result == KESS_OK)
            result = checkLimits(facts.channels, facts.sampleRate);
        if (result != KESS_OK)
            return result;
        mFacts.type = kind.type;
        mFacts.format = facts.format;
        mFacts.channels = facts.channels;
        mFacts.sampleRate = facts.sampleRate;
        mFacts.sampleCount = facts.sampleCount;
        mIsFloat = facts.isFloat;
        readTags(*mFile.file, kind, &mFacts);
        return KESS_OK;
    }

    [[nodiscard]] const SoundFacts& facts() const override { return mFacts; }

    // Timestamps of these containers are too coarse to find a sample by, and the codecs carry state from packet to
    // packet: only decoding up to a sample gives what a straight read gives.
    [[nodiscard]] KESS_RESULT seek(uint64_t frame) override
    {
        if (!mDecoder || frame < mPosition) {
            close();
            KESS_MODULE_FACTS facts{};
            const KESS_RESULT result = mModule.open(&mInput, mContainer, &mDecoder, &facts);
            if (result != KESS_OK || facts.channels != mFacts.channels)
                return KESS_ERR_FILE_COULDNOTSEEK;
            mPosition = 0;
        }
        mScratch.resize(kChunkFrames * static_cast<size_t>(mFacts.channels));
        while (mPosition < frame) {
            if (readSamples(mScratch.data(), static_cast<size_t>(std::min<uint64_t>(kChunkFrames, frame - mPosition)))
                == 0)
                return KESS_ERR_FILE_COULDNOTSEEK;
        }
        return KESS_OK;
    }

    [[nodiscard]] KESS_RESULT read(void* buffer, size_t count, size_t* done) override
    {
        if (mFacts.format == KESS_SOUND_FORMAT_PCMFLOAT || mFacts.format == KESS_SOUND_FORMAT_PCM32) {
            *done = readSamples(buffer, count);
            return KESS_OK;
        }
        const auto bytes = static_cast<size_t>(mFacts.format); // of a sample: the integer formats are numbered by it
        return readChunks(count, done, [&](size_t start, size_t samples) {
            uint8_t* target = static_cast<uint8_t*>(buffer) + start * bytes;
            if (mIsFloat)
                floatToInt16(reinterpret_cast<const float*>(mScratch.data()), reinterpret_cast<int16_t*>(target),
                             samples);
            else
                packTopBytes(mScratch.data(), samples, bytes, target);
        });
    }

    [[nodiscard]] KESS_RESULT readFloat(float* buffer, size_t count, size_t* done) override
    {
        if (mIsFloat) {
            *done = readSamples(buffer, count);
            return KESS_OK;
        }
        return readChunks(count, done, [&](size_t start, size_t samples) {
            for (size_t i = 0; i < samples; ++i)
                buffer[start + i] = static_cast<float>(mScratch[i]) * 0x1p-31f;
        });
    }

private:
    static constexpr size_t kChunkFrames = 4096;

    void close()
    {
        if (mDecoder)
            mModule.close(mDecoder);
        mDecoder = nullptr;
    }

    size_t readSamples(void* buffer, size_t count)
    {
        size_t done = 0;
        if (!mDecoder || mModule.read(mDecoder, buffer, count, &done) != KESS_OK)
            return 0;
        mPosition += done;
        return done;
    }

    // Reads through the scratch buffer; convert(start, samples) takes what lies there to its place in the target, both
    // counted in samples of all channels.
    template <typename Convert>
    KESS_RESULT readChunks(size_t count, size_t* done, Convert convert)
    {
        const auto channels = static_cast<size_t>(mFacts.channels);
        mScratch.resize(kChunkFrames * channels);
        *done = 0;
        while (*done < count) {
            const size_t got = readSamples(mScratch.data(), std::min(count - *done, kChunkFrames));
            if (got == 0)
                break;
            convert(*done * channels, got * channels);
            *done += got;
        }
        return KESS_OK;
    }

    const KESS_DECODER_MODULE& mModule;
    InputFile mFile;
    KESS_MODULE_INPUT mInput;
    const char* mContainer;
    void* mDecoder = nullptr;
    SoundFacts mFacts;
    bool mIsFloat = false;
    uint64_t mPosition = 0;
    std::vector<int32_t> mScratch;
};

// Whether FFmpeg's demuxers can take the header: they keep a table of what it declares, and search through all comments
// for each new one.
bool isBearable(const FilePointer& file, const FileKind& kind)
{
    constexpr uint64_t kMostComments = 10'000;
    const std::string_view container = kind.container;
    if (container == "mov")
        return tablesFitFile(file, kind);
    return container != "ogg" || (commentCount(*file) <= kMostComments && oggIsBearable(file, kind, kMostComments));
}

} // namespace

KESS_RESULT openForeign(const FilePointer& file, const FileKind& kind, DecoderPointer* decoder)
{
    if (!kind.container)
        return KESS_ERR_FORMAT;
    const auto [module, found] = decoderModule();
    if (found != KESS_OK)
        return found;
    if (!isBearable(file, kind))
        return KESS_ERR_FILE_BAD;
    auto opened = std::make_unique<ForeignDecoder>(*module, file, kind);
    const KESS_RESULT result = opened->open(kind);
    if (result == KESS_OK)
        *decoder = std::move(opened);
    return result;
}

} // namespace kess
