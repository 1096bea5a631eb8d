// An audio engine that decodes nothing. A "sound" is a text file that says what the engine is to find in it:
//     sound <result> <type> <format> <channels> <hertz> <milliseconds>
// Any other file is of no known format. A suggested type that isn't the file's own is answered by "unknown format".
#include "kess.hpp"

#include <cstdio>
#include <memory>

namespace KESS {

struct System::Impl
{ };

struct Sound::Impl
{
    int result, type, format, channels, hertz;
    unsigned int milliseconds;
};

System::System()
    : mImpl(nullptr)
{ }

System::~System() = default;

Sound::Sound()
    : mImpl(new Impl{})
{ }

Sound::~Sound()
{
    delete mImpl;
}

struct SystemAccess
{
    static System* create() { return new System; }
};

struct SoundAccess
{
    static KESS_RESULT open(const char* path, int suggestedType, Sound** sound)
    {
        *sound = nullptr;
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "r"), &std::fclose);
        if (!file)
            return KESS_ERR_FILE_NOTFOUND;
        Sound::Impl facts{};
        const int fields = std::fscanf(file.get(), "sound %d %d %d %d %d %u", &facts.result, &facts.type, &facts.format,
                                       &facts.channels, &facts.hertz, &facts.milliseconds);
        if (fields != 6)
            return KESS_ERR_FORMAT;
        if (facts.result == KESS_OK && suggestedType != 0 && suggestedType != facts.type)
            return KESS_ERR_FORMAT;
        if (facts.result == KESS_OK) {
            *sound = new Sound;
            *(*sound)->mImpl = facts;
        }
        return static_cast<KESS_RESULT>(facts.result);
    }
};

KESS_RESULT System::release()
{
    delete this;
    return KESS_OK;
}

KESS_RESULT System::setOutput(KESS_OUTPUTTYPE)
{
    return KESS_OK;
}

KESS_RESULT System::init(int, unsigned int, void*)
{
    return KESS_OK;
}

KESS_RESULT System::createSound(const char* path, unsigned int, const KESS_CREATESOUNDEXINFO* info, Sound** sound)
{
    return SoundAccess::open(path, info ? info->suggestedsoundtype : 0, sound);
}

KESS_RESULT Sound::release()
{
    delete this;
    return KESS_OK;
}

KESS_RESULT Sound::getFormat(KESS_SOUND_TYPE* type, KESS_SOUND_FORMAT* format, int* channels, int*)
{
    if (type)
        *type = static_cast<KESS_SOUND_TYPE>(mImpl->type);
    if (format)
        *format = static_cast<KESS_SOUND_FORMAT>(mImpl->format);
    if (channels)
        *channels = mImpl->channels;
    return KESS_OK;
}

KESS_RESULT Sound::getDefaults(float* frequency, int*)
{
    *frequency = static_cast<float>(mImpl->hertz);
    return KESS_OK;
}

KESS_RESULT Sound::getLength(unsigned int* length, unsigned int)
{
    *length = mImpl->milliseconds;
    return KESS_OK;
}

} // namespace KESS

extern "C" KESS_RESULT KESS_System_Create(KESS::System** system, unsigned int)
{
    *system = KESS::SystemAccess::create();
    return KESS_OK;
}
