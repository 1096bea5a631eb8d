// SPDX-License-Identifier: MIT
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

namespace engine {

namespace {

using Module = const KESS_DECODER_MODULE*;

// Whether the address space has room for the module and all libraries that it needs, about 200 MB. The loader reports
// its failures only as text, in the user's language, so a lack of memory can't be recognised there.
bool canMapModule()
{
    constexpr size_t kModuleBytes = 256 << 20;
    void* mapping =
        mmap(nullptr, kModuleBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapping == MAP_FAILED)
        return false;
    munmap(mapping, kModuleBytes);
    return true;
}

base::Error moduleError(KESS_RESULT result)
{
    switch (result) {
    case KESS_ERR_FORMAT:
        return {base::ErrorCode::Format, "it has no sound that can be decoded"};
    case KESS_ERR_MEMORY:
        return base::outOfMemory();
    default:
        return {base::ErrorCode::Damaged, "it can't be decoded"};
    }
}

base::Result<Module> findModule()
{
    const base::Error missing{base::ErrorCode::Format, "the module that may decode it isn't installed"};
    Dl_info self;
    if (dladdr(reinterpret_cast<const void*>(&findModule), &self) == 0 || !self.dli_fname)
        return missing;
    const std::string library = self.dli_fname;
    const size_t slash = library.rfind('/');
    const std::string path = (slash == library.npos ? "" : library.substr(0, slash + 1)) + "kess_ffmpeg.so";
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle)
        return access(path.c_str(), F_OK) == 0 && !canMapModule() ? base::outOfMemory() : missing;
    const auto entry = reinterpret_cast<KESS_DECODER_MODULE_FUNCTION>(dlsym(handle, KESS_DECODER_MODULE_ENTRY));
    const Module found = entry ? entry() : nullptr;
    if (!found || found->version != KESS_DECODER_MODULE_VERSION)
        return missing;
    return found;
}

// The module in the folder of this library. ErrorCode::Format if there is none, or one of another version. It is loaded
// when a file first needs it, and stays loaded. A failure is remembered, unless memory was short.
base::Result<Module> decoderModule()
{
    static std::mutex mutex;
    static std::optional<base::Result<Module>> known;
    const std::lock_guard lock(mutex);
    if (known)
        return *known;
    base::Result<Module> found = findModule();
    if (found || found.error().code != base::ErrorCode::Memory)
        known = found;
    return found;
}

struct ModuleInput
{
    FilePointer file;
    uint64_t begin;
};

size_t readInput(void* user, uint64_t offset, void* buffer, size_t count)
{
    const auto& input = *static_cast<const ModuleInput*>(user);
    if (offset > UINT64_MAX - input.begin)
        return 0;
    return input.file->readAt(input.begin + offset, buffer, count);
}

// Decodes with the module, which only reads forward: to seek back, the decoder is opened again.
class ModuleDecoder final : public Decoder
{
public:
    ModuleDecoder(const KESS_DECODER_MODULE& module, const RecognisedFile& file)
        : mModule(module)
        , mFile{file.file, file.kind.begin}
        , mInput{&mFile, readInput, file.kind.end - file.kind.begin}
        , mContainer(file.kind.container)
    { }

    ~ModuleDecoder() override { close(); }

    base::Result<> open(const RecognisedFile& file)
    {
        KESS_MODULE_FACTS facts{};
        if (const KESS_RESULT result = mModule.open(&mInput, mContainer, &mDecoder, &facts); result != KESS_OK)
            return moduleError(result);
        if (base::Result<> limits = checkLimits(facts.channels, facts.sampleRate); !limits)
            return limits;
        mFacts.type = file.kind.type;
        mFacts.format = facts.format;
        mFacts.channels = facts.channels;
        mFacts.sampleRate = facts.sampleRate;
        mFacts.sampleCount = facts.sampleCount;
        mIsFloat = facts.isFloat;
        readTags(file, mFacts);
        return {};
    }

    [[nodiscard]] const SoundFacts& facts() const override { return mFacts; }

    // The timestamps of these containers are too coarse to find a sample, and the codecs carry state from packet to
    // packet. Only decoding up to the target gives the samples of sequential decoding.
    base::Result<> seek(uint64_t frame) override
    {
        if (!mDecoder || frame < mPosition) {
            close();
            KESS_MODULE_FACTS facts{};
            const KESS_RESULT result = mModule.open(&mInput, mContainer, &mDecoder, &facts);
            if (result != KESS_OK || facts.channels != mFacts.channels)
                return base::Error{base::ErrorCode::NotSeekable};
            mPosition = 0;
        }
        mScratch.resize(kChunkFrames * static_cast<size_t>(mFacts.channels));
        while (mPosition < frame) {
            if (readSamples(mScratch.data(), static_cast<size_t>(std::min<uint64_t>(kChunkFrames, frame - mPosition)))
                == 0)
                return base::Error{base::ErrorCode::NotSeekable};
        }
        return {};
    }

    base::Result<size_t> read(void* buffer, size_t count) override
    {
        if (mFacts.format == KESS_SOUND_FORMAT_PCMFLOAT || mFacts.format == KESS_SOUND_FORMAT_PCM32)
            return readSamples(buffer, count);
        const size_t bytes = bytesPerSample(mFacts.format);
        return readChunks(count, [&](size_t start, size_t samples) {
            uint8_t* target = static_cast<uint8_t*>(buffer) + start * bytes;
            if (mIsFloat)
                floatToInt16(reinterpret_cast<const float*>(mScratch.data()), reinterpret_cast<int16_t*>(target),
                             samples);
            else
                packTopBytes(mScratch.data(), samples, bytes, target);
        });
    }

    base::Result<size_t> readFloat(float* buffer, size_t count) override
    {
        if (mIsFloat)
            return readSamples(buffer, count);
        return readChunks(count, [&](size_t start, size_t samples) {
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

    // Reads through the scratch buffer. convert(start, samples) moves its content to the target, from start on. Both
    // count samples of all channels.
    template <typename Convert>
    size_t readChunks(size_t count, Convert convert)
    {
        const auto channels = static_cast<size_t>(mFacts.channels);
        mScratch.resize(kChunkFrames * channels);
        size_t done = 0;
        while (done < count) {
            const size_t got = readSamples(mScratch.data(), std::min(count - done, kChunkFrames));
            if (got == 0)
                break;
            convert(done * channels, got * channels);
            done += got;
        }
        return done;
    }

    const KESS_DECODER_MODULE& mModule;
    ModuleInput mFile;
    KESS_MODULE_INPUT mInput;
    const char* mContainer;
    void* mDecoder = nullptr;
    SoundFacts mFacts;
    bool mIsFloat = false;
    uint64_t mPosition = 0;
    std::vector<int32_t> mScratch;
};

// Refuses headers that FFmpeg's demuxers can't handle: they keep a table of all declared packets, and search through
// all comments for each new one.
base::Result<> checkHeaders(const RecognisedFile& file)
{
    constexpr uint64_t kMaximumComments = 10'000;
    const std::string_view container = file.kind.container;
    if (container == "ogg")
        return checkOggStreams(file, kMaximumComments);
    if (container == "mov" && !tablesFitFile(file))
        return base::Error{base::ErrorCode::Damaged, "its tables declare more packets than it can hold"};
    return {};
}

} // namespace

base::Result<DecoderPointer> openModule(const RecognisedFile& file)
{
    if (!file.kind.container)
        return base::Error{base::ErrorCode::Format, "no decoder knows it"};
    base::Result<Module> module = decoderModule();
    if (!module)
        return std::move(module.error());
    if (base::Result<> checked = checkHeaders(file); !checked)
        return std::move(checked.error());
    auto decoder = std::make_unique<ModuleDecoder>(**module, file);
    if (base::Result<> opened = decoder->open(file); !opened)
        return std::move(opened.error());
    return DecoderPointer(std::move(decoder));
}

} // namespace engine
