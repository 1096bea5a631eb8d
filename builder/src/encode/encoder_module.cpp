// SPDX-License-Identifier: MIT
#include "encode/encoder_module.hpp"

#include "encode/data_stream.hpp"
#include "encode/encoders.hpp"
#include "tarnok_encoder.h"

#include <dlfcn.h>
#include <elf.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cstring>
#include <fstream>
#include <vector>

namespace builder {

using bank::Codec;
using base::Error;
using base::ErrorCode;

static_assert(TARNOK_ENCODER_LOOKAROUND == kMaximumLookaround);

namespace {

const char* fileName(Codec codec)
{
    return codec == Codec::Xma ? "tarnok_xma.so" : "tarnok_at9.so";
}

// The folder from which this library was loaded, with a slash at the end.
std::string ownFolder()
{
    Dl_info self;
    if (dladdr(reinterpret_cast<const void*>(&fileName), &self) == 0 || !self.dli_fname)
        return {};
    const std::string library = self.dli_fname;
    const size_t slash = library.rfind('/');
    return slash == std::string::npos ? "./" : library.substr(0, slash + 1);
}

// Whether all segments of a library are inside its file. The system's loader doesn't check that: it also maps the
// missing part of a truncated file, and accessing that ends the process.
bool isComplete(const std::string& file)
{
    std::ifstream stream(file, std::ios::binary | std::ios::ate);
    const auto size = uint64_t(std::max<std::streamoff>(stream.tellg(), 0));
    Elf64_Ehdr header{};
    stream.seekg(0);
    if (!stream.read(reinterpret_cast<char*>(&header), sizeof header)
        || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64
        || header.e_phentsize != sizeof(Elf64_Phdr))
        return false;
    std::vector<Elf64_Phdr> segments(header.e_phnum);
    stream.seekg(std::streamoff(header.e_phoff & INT64_MAX));
    if (!stream.read(reinterpret_cast<char*>(segments.data()), std::streamsize(segments.size() * sizeof(Elf64_Phdr))))
        return false;
    return std::all_of(segments.begin(), segments.end(), [size](const Elf64_Phdr& segment) {
        return segment.p_offset <= size && segment.p_filesz <= size - segment.p_offset;
    });
}

bool isUsable(const TARNOK_ENCODER_MODULE* module, Codec codec)
{
    return module && module->interfaceVersion == TARNOK_ENCODER_INTERFACE && int(module->format) == int(codec)
        && module->version && *module->version && module->maximumChannels >= 1
        && module->maximumChannels <= unsigned(bank::kMaximumChannels) && module->sampleRate && module->encode;
}

// One run of a module's encode(): implements the functions that the module calls, refuses invalid calls, and collects
// the result.
class ModuleRun
{
public:
    ModuleRun(PreparedSound& sound, base::ByteSink& sink, const std::stop_token& stop, bank::Sound* encoded)
        : mSound(sound)
        , mData(sink)
        , mStop(stop)
        , mEncoded(encoded)
    { }

    TARNOK_ENCODER_HOST host()
    {
        return {this,
                [](void* user, int64_t position) { return self(user).seek(position); },
                [](void* user, float* frames, uint32_t count) { return self(user).read(frames, count); },
                [](void* user, const void* bytes, uint32_t count) { return self(user).write(bytes, count); },
                [](void* user, const void* bytes, uint32_t count) { return self(user).setup(bytes, count); },
                [](void* user, uint64_t position) { return self(user).seekPoint(position); },
                [](void* user) {
                    return int(self(user).mStop.stop_requested());
                }};
    }

    // The result: the first failure on our side, otherwise what the module returned.
    base::Result<> end(TARNOK_RESULT returned, uint32_t preSkip)
    {
        if (mResult)
            mResult = toResult(returned);
        // The module claims a cancellation that didn't happen. Cancelled sounds aren't reported, so this gets another
        // error.
        if (!mResult && mResult.error().code == ErrorCode::Cancelled && !mStop.stop_requested())
            return Error{ErrorCode::Codec};
        if (!mResult)
            return mResult;
        if (preSkip > bank::kMaximumPreSkip)
            return Error{ErrorCode::Codec};
        mEncoded->preSkip = preSkip;
        if (const base::Result<> result = mData.finish(mEncoded); !result)
            return result.error();
        const uint64_t decoded = mEncoded->sampleCount + preSkip;
        const uint64_t leastBytes = (decoded + bank::kMaximumSamplesPerByte - 1) / bank::kMaximumSamplesPerByte;
        return codecResult(leastBytes <= mEncoded->dataBytes);
    }

private:
    static ModuleRun& self(void* user) { return *static_cast<ModuleRun*>(user); }

    static base::Result<> toResult(TARNOK_RESULT returned)
    {
        switch (int(returned)) {
        case TARNOK_OK:
            return {};
        case TARNOK_ERR_CANCELLED:
            return Error{ErrorCode::Cancelled};
        case TARNOK_ERR_MEMORY:
            return Error{ErrorCode::Memory};
        case TARNOK_ERR_INVALID_FORMAT:
            return Error{ErrorCode::Unsupported};
        default:
            return Error{ErrorCode::Codec};
        }
    }

    // Records the first failure, and returns the result of a call of the module. After a cancellation every call fails,
    // so that a module that only checks results ends soon, too.
    TARNOK_RESULT answer(base::Result<> result)
    {
        if (result && mStop.stop_requested())
            result = Error{ErrorCode::Cancelled};
        if (mResult)
            mResult = std::move(result);
        if (mResult)
            return TARNOK_OK;
        switch (mResult.error().code) {
        case ErrorCode::Cancelled:
            return TARNOK_ERR_CANCELLED;
        case ErrorCode::Memory:
            return TARNOK_ERR_MEMORY;
        case ErrorCode::Codec:
            return TARNOK_ERR_INVALID_PARAM;
        default:
            return TARNOK_ERR_FILE_OS;
        }
    }

    [[nodiscard]] bool isWithinLookaround(int64_t position) const
    {
        return position >= -kMaximumLookaround && position <= int64_t(mSound.facts().sampleCount) + kMaximumLookaround;
    }

    TARNOK_RESULT seek(int64_t position)
    {
        if (!isWithinLookaround(position))
            return answer(Error{ErrorCode::Codec});
        mPosition = position;
        return answer(mSound.seek(position));
    }

    TARNOK_RESULT read(float* frames, uint32_t count)
    {
        if (!frames || !isWithinLookaround(mPosition + count))
            return answer(Error{ErrorCode::Codec});
        if (!mResult || mStop.stop_requested())
            return answer(Error{ErrorCode::Cancelled});
        mPosition += count;
        return answer(mSound.readFloat(frames, count));
    }

    TARNOK_RESULT write(const void* bytes, uint32_t count)
    {
        if ((!bytes && count > 0) || count > maximumBytes() - mData.bytes())
            return answer(Error{ErrorCode::Codec});
        if (!mResult || mStop.stop_requested())
            return answer(Error{ErrorCode::Cancelled});
        return answer(mData.writeBlock({static_cast<const uint8_t*>(bytes), count}));
    }

    TARNOK_RESULT setup(const void* bytes, uint32_t count)
    {
        if (!bytes || count > bank::kMaximumSetupBytes || !mEncoded->setup.empty())
            return answer(Error{ErrorCode::Codec});
        const auto* first = static_cast<const uint8_t*>(bytes);
        mEncoded->setup.assign(first, first + count);
        return answer({});
    }

    TARNOK_RESULT seekPoint(uint64_t position)
    {
        std::vector<bank::SeekPoint>& points = mEncoded->seekPoints;
        const bank::SeekPoint last = points.empty() ? bank::SeekPoint{} : points.back();
        if (position <= last.position || mData.bytes() <= last.offset)
            return answer(Error{ErrorCode::Codec});
        points.push_back({position, mData.bytes()});
        return answer({});
    }

    // More than any encoder needs. Without a limit, a module that never ends would fill the disk.
    [[nodiscard]] uint64_t maximumBytes() const
    {
        const PreparedFacts& facts = mSound.facts();
        return (facts.sampleCount + 2 * kMaximumLookaround) * uint64_t(facts.channels) * TARNOK_ENCODER_BYTES;
    }

    PreparedSound& mSound;
    DataStream mData;
    const std::stop_token& mStop;
    bank::Sound* mEncoded;
    int64_t mPosition = 0;
    base::Result<> mResult; // the first failure on our side
};

// Encodes with a module.
class ExternalEncoder final : public Encoder
{
public:
    ExternalEncoder(const TARNOK_ENCODER_MODULE& module, unsigned flags)
        : mModule(module)
        , mFlags(flags)
    { }

    base::Result<> encode(PreparedSound& sound, int quality, base::ByteSink& sink, std::stop_token stop,
                          bank::Sound* encoded) override
    {
        const PreparedFacts& facts = sound.facts();
        *encoded = describe(Codec(int(mModule.format)), facts);
        encoded->quality = uint8_t(quality);
        TARNOK_ENCODER_SOUND description{};
        description.channels = uint32_t(facts.channels);
        description.sampleRate = facts.sampleRate;
        description.sampleCount = facts.sampleCount;
        description.quality = uint32_t(quality);
        description.flags = mFlags;
        if (facts.loop) {
            description.loops = 1;
            description.loopStart = facts.loop->start;
            description.loopEnd = facts.loop->end;
        }
        if (const base::Result<> result = sound.seek(0); !result)
            return result.error();
        ModuleRun run(sound, sink, stop, encoded);
        const TARNOK_ENCODER_HOST host = run.host();
        uint32_t preSkip = 0;
        const TARNOK_RESULT returned = mModule.encode(&description, &host, &preSkip);
        return run.end(returned, preSkip);
    }

private:
    const TARNOK_ENCODER_MODULE& mModule;
    unsigned mFlags;
};

} // namespace

bool EncoderModule::encodes(Codec codec)
{
    return codec == Codec::Xma || codec == Codec::At9;
}

base::Result<std::shared_ptr<const EncoderModule>> EncoderModule::load(Codec codec)
{
    assert(encodes(codec));
    const std::string file = ownFolder() + fileName(codec);
    if (access(file.c_str(), F_OK) != 0)
        return Error{ErrorCode::ModuleMissing,
                     std::string("the encoder module for ") + codecName(codec) + " is not installed (" + file + ")"};
    const auto bad = [&](const std::string& why) {
        return Error{ErrorCode::ModuleBad,
                     std::string("the encoder module for ") + codecName(codec) + " can't be used: " + why};
    };
    if (!isComplete(file))
        return bad(file + " is not a library for this system, or is damaged");
    void* handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* why = dlerror();
        return bad(why ? why : file);
    }
    const std::shared_ptr<void> library(handle, [](void* closed) { dlclose(closed); });
    const auto entry = reinterpret_cast<TARNOK_ENCODER_FUNCTION>(dlsym(handle, TARNOK_ENCODER_ENTRY));
    if (!entry)
        return bad(file + " is not an encoder module");
    const TARNOK_ENCODER_MODULE* module = entry();
    if (!isUsable(module, codec))
        return bad(file + " was made for another format or another version of this program");
    return std::shared_ptr<const EncoderModule>(new EncoderModule(library, *module));
}

EncoderModule::EncoderModule(std::shared_ptr<void> library, const TARNOK_ENCODER_MODULE& interface)
    : mLibrary(std::move(library))
    , mInterface(interface)
{ }

std::string EncoderModule::version() const
{
    return std::string("module ") + mInterface.version;
}

int EncoderModule::maximumChannels() const
{
    return int(mInterface.maximumChannels);
}

uint32_t EncoderModule::encodingRate(uint32_t sampleRate) const
{
    const uint32_t rate = mInterface.sampleRate(sampleRate);
    return rate >= 1 && rate <= bank::kMaximumSampleRate ? rate : sampleRate;
}

std::unique_ptr<Encoder> EncoderModule::makeEncoder(unsigned flags) const
{
    return std::make_unique<ExternalEncoder>(mInterface, flags);
}

} // namespace builder
