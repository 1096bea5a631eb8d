// SPDX-License-Identifier: MIT
// An audio engine that decodes nothing. A "sound" is a text file that says what the engine must find in it:
//     sound <result> <type> <format> <channels> <hertz> <milliseconds>
// Any other file has no known format. If another type than that of the file is suggested, the result is "unknown
// format".
#include "kess.hpp"

#include <fstream>
#include <string>

namespace KESS {

struct Sound::Impl
{
    int result, type, format, channels, hertz;
    unsigned int milliseconds;
};

System::System() = default;
System::~System() = default;
Sound::Sound() = default;

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
        std::ifstream file(path);
        if (!file)
            return KESS_ERR_FILE_NOTFOUND;
        std::string word;
        Sound::Impl facts;
        file >> word >> facts.result >> facts.type >> facts.format >> facts.channels >> facts.hertz
            >> facts.milliseconds;
        if (word != "sound" || !file)
            return KESS_ERR_FORMAT;
        if (facts.result != KESS_OK)
            return static_cast<KESS_RESULT>(facts.result);
        if (suggestedType != 0 && suggestedType != facts.type)
            return KESS_ERR_FORMAT;
        *sound = new Sound;
        (*sound)->mImpl = new Sound::Impl(facts);
        return KESS_OK;
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
