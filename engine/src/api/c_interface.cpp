// SPDX-License-Identifier: MIT
// The C interface over the classes.
#include "api/call.hpp"
#include "kess.hpp"

namespace {

// Calls a method of object, which may be null.
template <typename Object, typename... Parameters, typename... Arguments>
KESS_RESULT call(Object* object, KESS_RESULT (Object::*method)(Parameters...), Arguments... arguments)
{
    if (object)
        return (object->*method)(arguments...);
    engine::beginCall();
    return KESS_ERR_INVALID_HANDLE;
}

} // namespace

using KESS::Sound;
using KESS::System;

KESS_RESULT KESS_System_Release(KESS_SYSTEM* system)
{
    return call(system, &System::release);
}

KESS_RESULT KESS_System_SetOutput(KESS_SYSTEM* system, KESS_OUTPUTTYPE output)
{
    return call(system, &System::setOutput, output);
}

KESS_RESULT KESS_System_Init(KESS_SYSTEM* system, int maxChannels, unsigned int flags, void* extraDriverData)
{
    return call(system, &System::init, maxChannels, flags, extraDriverData);
}

KESS_RESULT KESS_System_CreateSound(KESS_SYSTEM* system, const char* path, unsigned int mode,
                                    const KESS_CREATESOUNDEXINFO* info, KESS_SOUND** sound)
{
    return call(system, &System::createSound, path, mode, info, sound);
}

KESS_RESULT KESS_System_CreateSoundFromMemory(KESS_SYSTEM* system, const void* data, uint64_t bytes, unsigned int mode,
                                              const KESS_CREATESOUNDEXINFO* info, KESS_SOUND** sound)
{
    return call(system, &System::createSoundFromMemory, data, bytes, mode, info, sound);
}

KESS_RESULT KESS_System_CreateSoundFromCallbacks(KESS_SYSTEM* system, const KESS_SOURCE* source, unsigned int mode,
                                                 const KESS_CREATESOUNDEXINFO* info, KESS_SOUND** sound)
{
    return call(system, &System::createSoundFromCallbacks, source, mode, info, sound);
}

KESS_RESULT KESS_System_CreateSoundFromRange(KESS_SYSTEM* system, const char* path, uint64_t offset, uint64_t bytes,
                                             unsigned int mode, const KESS_CREATESOUNDEXINFO* info, KESS_SOUND** sound)
{
    return call(system, &System::createSoundFromRange, path, offset, bytes, mode, info, sound);
}

KESS_RESULT KESS_System_VerifyBank(KESS_SYSTEM* system, const char* path, const char* key,
                                   KESS_FINDING_CALLBACK finding, void* userData)
{
    return call(system, &System::verifyBank, path, key, finding, userData);
}

KESS_RESULT KESS_Sound_Release(KESS_SOUND* sound)
{
    return call(sound, &Sound::release);
}

KESS_RESULT KESS_Sound_GetFormat(KESS_SOUND* sound, KESS_SOUND_TYPE* type, KESS_SOUND_FORMAT* format, int* channels,
                                 int* bits)
{
    return call(sound, &Sound::getFormat, type, format, channels, bits);
}

KESS_RESULT KESS_Sound_GetDefaults(KESS_SOUND* sound, float* frequency, int* priority)
{
    return call(sound, &Sound::getDefaults, frequency, priority);
}

KESS_RESULT KESS_Sound_GetLength(KESS_SOUND* sound, unsigned int* length, unsigned int timeUnit)
{
    return call(sound, &Sound::getLength, length, timeUnit);
}

KESS_RESULT KESS_Sound_GetSampleCount(KESS_SOUND* sound, uint64_t* samples)
{
    return call(sound, &Sound::getSampleCount, samples);
}

KESS_RESULT KESS_Sound_GetDeclaredSampleCount(KESS_SOUND* sound, uint64_t* samples)
{
    return call(sound, &Sound::getDeclaredSampleCount, samples);
}

KESS_RESULT KESS_Sound_SeekData(KESS_SOUND* sound, uint64_t sample)
{
    return call(sound, &Sound::seekData, sample);
}

KESS_RESULT KESS_Sound_ReadData(KESS_SOUND* sound, void* buffer, unsigned int lengthBytes, unsigned int* read)
{
    return call(sound, &Sound::readData, buffer, lengthBytes, read);
}

KESS_RESULT KESS_Sound_ReadFloat(KESS_SOUND* sound, float* buffer, unsigned int frames, unsigned int* framesRead)
{
    return call(sound, &Sound::readFloat, buffer, frames, framesRead);
}

KESS_RESULT KESS_Sound_GetRawSamples(KESS_SOUND* sound, uint64_t* offset, uint64_t* bytes)
{
    return call(sound, &Sound::getRawSamples, offset, bytes);
}

KESS_RESULT KESS_Sound_GetLoopPoints(KESS_SOUND* sound, uint64_t* start, uint64_t* end)
{
    return call(sound, &Sound::getLoopPoints, start, end);
}

KESS_RESULT KESS_Sound_SetLoopCount(KESS_SOUND* sound, int count)
{
    return call(sound, &Sound::setLoopCount, count);
}

KESS_RESULT KESS_Sound_GetPeak(KESS_SOUND* sound, float* peak)
{
    return call(sound, &Sound::getPeak, peak);
}

KESS_RESULT KESS_Sound_GetNumSyncPoints(KESS_SOUND* sound, int* count)
{
    return call(sound, &Sound::getNumSyncPoints, count);
}

KESS_RESULT KESS_Sound_GetSyncPoint(KESS_SOUND* sound, int index, uint64_t* sample, char* name, int nameBytes)
{
    return call(sound, &Sound::getSyncPoint, index, sample, name, nameBytes);
}

KESS_RESULT KESS_Sound_GetRemark(KESS_SOUND* sound, char* text, int textBytes)
{
    return call(sound, &Sound::getRemark, text, textBytes);
}

KESS_RESULT KESS_Sound_GetName(KESS_SOUND* sound, char* name, int nameBytes)
{
    return call(sound, &Sound::getName, name, nameBytes);
}

KESS_RESULT KESS_Sound_GetNumSubSounds(KESS_SOUND* sound, int* count)
{
    return call(sound, &Sound::getNumSubSounds, count);
}

KESS_RESULT KESS_Sound_GetSubSound(KESS_SOUND* sound, int index, KESS_SOUND** subsound)
{
    return call(sound, &Sound::getSubSound, index, subsound);
}

KESS_RESULT KESS_Sound_GetSubSoundByName(KESS_SOUND* sound, const char* name, KESS_SOUND** subsound)
{
    return call(sound, &Sound::getSubSoundByName, name, subsound);
}

KESS_RESULT KESS_Sound_CreateVoice(KESS_SOUND* sound, KESS_SOUND** voice)
{
    return call(sound, &Sound::createVoice, voice);
}

KESS_RESULT KESS_Sound_GetBankInfo(KESS_SOUND* sound, KESS_BANKINFO* info)
{
    return call(sound, &Sound::getBankInfo, info);
}

KESS_RESULT KESS_Sound_GetEncoding(KESS_SOUND* sound, KESS_ENCODING* encoding)
{
    return call(sound, &Sound::getEncoding, encoding);
}

KESS_RESULT KESS_Sound_VerifyData(KESS_SOUND* sound)
{
    return call(sound, &Sound::verifyData);
}

KESS_RESULT KESS_Sound_VerifyBank(KESS_SOUND* sound, KESS_FINDING_CALLBACK finding, void* userData)
{
    return call(sound, &Sound::verifyBank, finding, userData);
}

KESS_RESULT KESS_Sound_SetEncryptionKey(KESS_SOUND* sound, const char* key)
{
    return call(sound, &Sound::setEncryptionKey, key);
}

KESS_RESULT KESS_Sound_IsEncrypted(KESS_SOUND* sound, int* encrypted)
{
    bool answer = false;
    const KESS_RESULT result = call(sound, &Sound::isEncrypted, &answer);
    if (encrypted)
        *encrypted = answer;
    return result;
}
