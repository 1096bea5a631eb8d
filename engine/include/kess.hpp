// SPDX-License-Identifier: MIT
/* The audio engine for C++: the calls of kess.h as classes, beside the C functions and on the same objects.
 *
 * KESS::Sound::readData(...) is KESS_Sound_ReadData(sound, ...), and so on; kess.h documents every call. No call
 * throws.
 */
#ifndef KESS_HPP
#define KESS_HPP

#include "kess.h"

namespace KESS {

/* Opens files. Created by KESS_System_Create, destroyed by release(). */
class KESS_API System
{
public:
    KESS_RESULT release();
    KESS_RESULT setOutput(KESS_OUTPUTTYPE output);
    KESS_RESULT init(int maxChannels, unsigned int flags, void* extraDriverData);

    KESS_RESULT createSound(const char* path, unsigned int mode, const KESS_CREATESOUNDEXINFO* info, Sound** sound);

    KESS_RESULT createSoundFromMemory(const void* data, uint64_t bytes, unsigned int mode,
                                      const KESS_CREATESOUNDEXINFO* info, Sound** sound);
    KESS_RESULT createSoundFromCallbacks(const KESS_SOURCE* source, unsigned int mode,
                                         const KESS_CREATESOUNDEXINFO* info, Sound** sound);
    KESS_RESULT createSoundFromRange(const char* path, uint64_t offset, uint64_t bytes, unsigned int mode,
                                     const KESS_CREATESOUNDEXINFO* info, Sound** sound);

    KESS_RESULT verifyBank(const char* path, const char* key, KESS_FINDING_CALLBACK finding, void* userData);

private:
    struct Impl;
    friend struct SystemAccess;
    System();
    ~System();
    System(const System&) = delete;
    System& operator=(const System&) = delete;
    Impl* mImpl;
};

/* One opened file: a bank, one of its subsounds, a voice of one, or any other sound. */
class KESS_API Sound
{
public:
    KESS_RESULT release();

    KESS_RESULT getFormat(KESS_SOUND_TYPE* type, KESS_SOUND_FORMAT* format, int* channels, int* bits);
    KESS_RESULT getDefaults(float* frequency, int* priority);
    KESS_RESULT getLength(unsigned int* length, unsigned int timeUnit);
    KESS_RESULT getSampleCount(uint64_t* samples);
    KESS_RESULT getDeclaredSampleCount(uint64_t* samples);

    KESS_RESULT seekData(uint64_t sample);
    KESS_RESULT readData(void* buffer, unsigned int lengthBytes, unsigned int* read);
    KESS_RESULT readFloat(float* buffer, unsigned int frames, unsigned int* framesRead);
    KESS_RESULT getRawSamples(uint64_t* offset, uint64_t* bytes);

    KESS_RESULT getLoopPoints(uint64_t* start, uint64_t* end);
    KESS_RESULT setLoopCount(int count);
    KESS_RESULT getPeak(float* peak);
    KESS_RESULT getNumSyncPoints(int* count);
    KESS_RESULT getRemark(char* text, int textBytes);
    KESS_RESULT getSyncPoint(int index, uint64_t* sample, char* name, int nameBytes);
    KESS_RESULT getName(char* name, int nameBytes);

    KESS_RESULT getNumSubSounds(int* count);
    KESS_RESULT getSubSound(int index, Sound** subsound);
    KESS_RESULT getSubSoundByName(const char* name, Sound** subsound);
    KESS_RESULT createVoice(Sound** voice);
    KESS_RESULT getBankInfo(KESS_BANKINFO* info);
    KESS_RESULT getEncoding(KESS_ENCODING* encoding);
    KESS_RESULT verifyData();
    KESS_RESULT verifyBank(KESS_FINDING_CALLBACK finding, void* userData);
    KESS_RESULT isEncrypted(bool* encrypted);
    KESS_RESULT setEncryptionKey(const char* key);

private:
    struct Impl;
    friend struct SoundAccess;
    Sound();
    ~Sound();
    Sound(const Sound&) = delete;
    Sound& operator=(const Sound&) = delete;
    Impl* mImpl;
};

} // namespace KESS

#endif
